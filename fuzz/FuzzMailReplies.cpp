#include <optional>

#include "../plx-foundation/src/PLXPOP3Answer.h"
#include "../plx-foundation/src/PLXSMTPReply.h"
#include "EncoderTwins.h"
#include "Fuzz.h"
#include "PLXNetworkingStream.h"

// The first line is a command of POP3, or empty for a mail server; the rest is what the server sends. What is
// understood of it is the same however the network cuts it, and no more than a twin reads that looks at
// lines.

namespace {

constexpr std::size_t kLongestText = 3000;  // every beginning of the text is looked at

// The number in front or behind the first word, among the first `longest_i` characters.
std::uint32_t CodeOf(std::string text_i, std::size_t longest_i) {
  text_i = std::string(text_i.substr(0, longest_i).c_str());
  std::size_t at = std::min(text_i.find_first_not_of(" \t"), text_i.size());
  if (at < text_i.size() && (text_i[at] < '0' || text_i[at] > '9')) {
    at = std::min(text_i.find_first_of(" \t", at), text_i.size());
    at = std::min(text_i.find_first_not_of(" \t", at), text_i.size());
  }
  std::uint32_t code = 0;
  for (; at < text_i.size() && text_i[at] >= '0' && text_i[at] <= '9'; ++at) {
    code = code * 10 + static_cast<std::uint32_t>(text_i[at] - '0');
  }
  return code;
}

// How long the reply is that the text begins with; none when it is not over with it.
std::optional<std::size_t> LengthOfReply(std::string_view text_i) {
  for (std::size_t start = 0, end = 0; (end = text_i.find('\n', start)) != text_i.npos; start = end + 1) {
    if (end - start < 4 || text_i[start + 3] != '-') return end + 1;
  }
  return std::nullopt;
}

void CheckSMTP(std::string const& text_i, unsigned seed_i) {
  std::string const first = text_i.substr(0, text_i.find('\n'));
  std::size_t const begin = first.find_first_not_of(" \t");
  bool const isNumbered = begin != first.npos && first[begin] >= '0' && first[begin] <= '9';
  std::uint32_t const code = isNumbered ? CodeOf(first, first.size()) : 0;
  std::optional<std::size_t> const length = LengthOfReply(text_i);
  for (unsigned const seed : {0U, seed_i}) {
    PLXSMTPReply reply;
    std::size_t taken = 0;
    InPieces(text_i, seed, [&](std::string_view piece_i) {
      Require(reply.IsComplete() == (length && taken >= *length));
      reply.Append(Plx(std::string(piece_i)));
      taken += piece_i.size();
    });
    Require(reply.IsComplete() == length.has_value() && reply.GetCode() == code);
    Require(reply.IsTooLong() == (text_i.size() >= PLXSMTPReply::kLongest));
  }
  PLXSMTPReply whole;
  whole.Append(Plx(text_i));
  Require(whole.IsComplete() == length.has_value() && whole.GetCode() == code);
}

// Whether an answer to the command is over with this text, when nothing comes behind it.
bool IsOver(std::string const& command_i, std::string_view text_i) {
  auto const begins = [](std::string_view text, std::string_view capitals) {
    return std::equal(capitals.begin(), capitals.end(), text.begin(),
                      text.begin() + static_cast<long>(std::min(capitals.size(), text.size())),
                      [](char a, char b) { return a == (b >= 'a' && b <= 'z' ? b - 'a' + 'A' : b); });
  };
  if (!text_i.starts_with('+') && !text_i.starts_with('-')) return true;
  std::string const line = command_i + "\r\n";
  bool const isLong = begins(line, "RETR") || begins(line, "UIDL\r\n") || begins(line, "LIST\r\n") ||
                      begins(line, "CAPA\r\n") || begins(line, "TOP ");
  return text_i.ends_with(isLong && begins(text_i, "+OK") ? "\r\n.\r\n" : "\n");
}

void CheckPOP3(std::string const& command_i, std::string const& text_i, unsigned seed_i) {
  PLXPOP3Answer::End const end = PLXPOP3Answer::OfAnswerTo(Plx(command_i + "\r\n"));
  for (unsigned const seed : {0U, seed_i}) {
    PLXPOP3Answer answer(end);
    std::string_view taken;
    InPieces(text_i, seed, [&](std::string_view piece_i) {
      Require(answer.Append(Plx(std::string(piece_i))));
      taken = std::string_view(text_i).substr(0, taken.size() + piece_i.size());
      Require(answer.IsComplete() == IsOver(command_i, taken));
      Require(!answer.IsUnhurried() || (answer.IsPositive() && end == PLXPOP3Answer::End::Message));
    });
    Require(Std(answer.GetText()) == text_i);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view input(reinterpret_cast<char const*>(data_i), size_i);
  std::string const command(TakeLine(input));
  std::string const text(input);
  if (text.size() > kLongestText) return 0;
  auto const seed = static_cast<unsigned>(1 + size_i);
  if (command.empty()) {
    CheckSMTP(text, seed);
  } else {
    CheckPOP3(command, text, seed);
  }
  // A text that ends in a number, so that reading beyond its end would change the answer.
  std::string const buffer = text + std::string(1, '\0') + "7";
  char const* cursor = buffer.c_str();
  Require(CrackNum(&cursor) == CodeOf(text, text.size()) && cursor <= buffer.c_str() + text.size());
  return 0;
}
