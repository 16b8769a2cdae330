#pragma once

#include <string>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXString.h"

// Slow, simple twins of the encoders, which walk a text step by step and replace in its middle, for
// comparison on random input.

namespace twin {

inline int HexValue(char character_i) {
  std::size_t const digit = std::string("0123456789ABCDEFabcdef").find(character_i);
  return digit == std::string::npos ? -1 : static_cast<int>(digit < 16 ? digit : digit - 6);
}

inline std::string URLDecode(std::string text_i) {
  for (char& character : text_i) {
    if (character == '+') character = ' ';
  }
  for (std::size_t position = text_i.rfind('%'); position != std::string::npos;) {
    if (position + 2 < text_i.size()) {
      int const high = HexValue(text_i[position + 1]);
      int const low = HexValue(text_i[position + 2]);
      if (high >= 0 && low >= 0) text_i.replace(position, 3, 1, static_cast<char>(16 * high + low));
    }
    if (position == 0) break;
    position = text_i.rfind('%', position - 1);
  }
  return text_i;
}

// With a table of a few entities, enough for texts of their letters.
inline std::string HTMLDecode(std::string text_i) {
  struct Row {
    char const* entity;
    char byte;
  };
  Row const rows[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&not;", '\xAC'}, {"&lanquo;", '\xAB'}};
  for (std::size_t position = text_i.find('&'); position != std::string::npos;) {
    std::size_t const semicolon = text_i.find(';', position);
    if (semicolon == std::string::npos) break;
    std::string const candidate = text_i.substr(position, semicolon - position + 1);
    for (Row const& row : rows) {
      if (candidate == row.entity) {
        text_i.replace(position, candidate.size(), 1, row.byte);
        break;
      }
    }
    position = text_i.find('&', position + 1);
  }
  return text_i;
}

inline std::string Unescape(std::string text_i, bool decodeNumbers_i) {
  for (std::size_t position = text_i.find('\\');
       position != std::string::npos && position + 1 < text_i.size();) {
    auto const digit = [&](std::size_t index_i) {
      char const character = position + index_i < text_i.size() ? text_i[position + index_i] : 'x';
      return character >= '0' && character <= '9' ? character - '0' : -1;
    };
    std::size_t const letter = std::string("\\nrtv").find(text_i[position + 1]);
    if (letter != std::string::npos) {
      text_i.replace(position, 2, 1, "\\\n\r\t\v"[letter]);
    } else if (decodeNumbers_i && digit(1) >= 0 && digit(1) <= 2 && digit(2) >= 0 && digit(3) >= 0) {
      text_i.replace(position, 4, 1, static_cast<char>(100 * digit(1) + 10 * digit(2) + digit(3)));
    }
    position = text_i.find('\\', position + 1);
  }
  return text_i;
}

inline std::string Base64Decode(std::string const& text_i) {
  std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string data;
  for (std::size_t position = 0; position < text_i.size();) {
    if (text_i[position] == '\r' || text_i[position] == '\n') {
      ++position;
      continue;
    }
    if (text_i.size() - position < 4) break;
    std::size_t group = 0;
    for (std::size_t index = 0; index < 4; ++index) {
      std::size_t const value = alphabet.find(text_i[position + index]);
      group = group << 6 | (value == std::string::npos ? 0 : value);
    }
    data += static_cast<char>(group >> 16);
    if (text_i[position + 2] != '=') data += static_cast<char>(group >> 8);
    if (text_i[position + 3] != '=') data += static_cast<char>(group);
    position += 4;
  }
  return data;
}

// Bit by bit onto a pending line, which moves out when it is full, the last one too.
inline std::string Base64Encode(std::string const& data_i, std::string const& lineEnd_i) {
  std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  std::string line;
  for (std::size_t position = 0; position < data_i.size(); position += 3) {
    std::size_t const count = data_i.size() - position < 3 ? data_i.size() - position : 3;
    unsigned group = 0;
    for (std::size_t index = 0; index < 3; ++index) {
      group = group << 8 | (index < count ? static_cast<unsigned char>(data_i[position + index]) : 0);
    }
    for (std::size_t digit = 0; digit < 4; ++digit) {
      line += digit <= count ? alphabet[group >> (18 - 6 * digit) & 63] : '=';
    }
    if (line.size() >= 76) {
      text += line.substr(0, 76) + lineEnd_i;
      line.erase(0, 76);
    }
  }
  return text + line;
}

inline std::string QuotedPrintableDecode(std::string const& text_i) {
  std::vector<std::string> lines(1);
  for (std::size_t position = 0; position < text_i.size(); ++position) {
    if (text_i.compare(position, 2, "\r\n") == 0) {
      lines.emplace_back();
      ++position;
    } else {
      lines.back() += text_i[position];
    }
  }
  std::string decoded;
  for (std::size_t index = 0; index < lines.size(); ++index) {
    std::string& line = lines[index];
    line.erase(line.find_last_not_of(" \t\r\n") + 1);
    bool const isJoined = !line.empty() && line.back() == '=';
    if (isJoined) line.pop_back();
    for (std::size_t position = line.find('='); position != std::string::npos;) {
      if (position + 2 >= line.size()) break;
      int const high = HexValue(line[position + 1]);
      int const low = HexValue(line[position + 2]);
      line.replace(position, 3, 1, static_cast<char>(16 * (high < 0 ? 0 : high) + (low < 0 ? 0 : low)));
      position = line.find('=', position + 1);
    }
    decoded += line;
    if (!isJoined && index + 1 < lines.size()) decoded += "\r\n";
  }
  return decoded;
}

}  // namespace twin
