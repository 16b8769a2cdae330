#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/mman.h>

#include "PLXFile.h"
#include "PLXMIMEParser.h"

// Which delimiters count is known only at the end of the message, so it is collected first and then read as
// one in memory is: the two forms cannot disagree. A long one is collected in a file without a name, which
// the system keeps in memory as long as there is room for it.

namespace {

constexpr PLXUInt32 kBlockSize = 8192;                 // bytes asked for at once
constexpr std::size_t kLongestInMemory = 1024 * 1024;  // bytes

struct CloseFile {
  void operator()(std::FILE* file_i) const { std::fclose(file_i); }
};

class CollectedMessage {
 public:
  CollectedMessage() = default;
  CollectedMessage(CollectedMessage const&) = delete;
  CollectedMessage& operator=(CollectedMessage const&) = delete;
  ~CollectedMessage() {
    if (myMapping != MAP_FAILED) munmap(myMapping, mySize);
  }

  // False when it could not be stored.
  bool Append(std::string_view bytes_i) {
    mySize += bytes_i.size();
    if (myFile == nullptr) {
      myText.append(bytes_i);
      return myText.size() <= kLongestInMemory || MoveToFile();
    }
    return std::fwrite(bytes_i.data(), 1, bytes_i.size(), myFile.get()) == bytes_i.size();
  }

  // Nothing is appended after this. Null when it could not be stored.
  std::optional<std::string_view> GetText() {
    if (myFile == nullptr) return myText;
    if (std::fflush(myFile.get()) != 0) return std::nullopt;
    myMapping = mmap(nullptr, mySize, PROT_READ, MAP_PRIVATE, fileno(myFile.get()), 0);
    if (myMapping == MAP_FAILED) return std::nullopt;
    return std::string_view(static_cast<char const*>(myMapping), mySize);
  }

 private:
  bool MoveToFile() {
    myFile.reset(std::tmpfile());
    if (myFile == nullptr || std::fwrite(myText.data(), 1, myText.size(), myFile.get()) != myText.size()) {
      return false;
    }
    myText = std::string();
    return true;
  }

  std::string myText;
  std::unique_ptr<std::FILE, CloseFile> myFile;  // null while the text is in memory
  std::size_t mySize = 0;
  void* myMapping = MAP_FAILED;
};

// Reads up to `count_i` bytes and calls with each block; stops where that answers false. False then.
template <typename Function>
bool ReadBlocks(PLXStringUtility::MessageReadCallback read_i, void* context_i, PLXUInt32 count_i,
                Function const& function_i) {
  char block[kBlockSize];
  while (count_i > 0) {
    PLXUInt32 const wanted = std::min(count_i, kBlockSize);
    PLXUInt32 size = wanted;
    if (!read_i(block, size, context_i) || size == 0) return true;
    size = std::min(size, wanted);
    if (!function_i(std::string_view(block, size))) return false;
    count_i -= size;
  }
  return true;
}

std::optional<std::string_view> Collect(PLXStringUtility::MessageReadCallback read_i, void* context_i,
                                        PLXUInt32 start_i, PLXUInt32 length_i, CollectedMessage& message_o) {
  ReadBlocks(read_i, context_i, start_i, [](std::string_view) { return true; });
  bool const isCollected = ReadBlocks(read_i, context_i, std::min(length_i, PLXFile::kLongestFile),
                                      [&](std::string_view bytes_i) { return message_o.Append(bytes_i); });
  return isCollected ? message_o.GetText() : std::nullopt;
}

}  // namespace

bool PLXStringUtility::ParseMessagePartStream(MessageReadCallback read_i, void* context_i,
                                              PLXString const& headers_i, PLXUInt32 start_i,
                                              PLXUInt32 length_i, PLXString const& folder_i,
                                              PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                              MessagePartList* results_io) {
  CollectedMessage message;
  std::optional<std::string_view> const text = Collect(read_i, context_i, start_i, length_i, message);
  if (!text) return false;
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io);
  bool const result = parser.ParsePart({headers_i.GetCStringAccess(), headers_i.GetLength()}, *text, nullptr);
  parser.FillResults();
  return result;
}

bool PLXStringUtility::ParseMultipartMessageStream(MessageReadCallback read_i, void* context_i,
                                                   PLXString const& boundary_i, PLXUInt32 start_i,
                                                   PLXUInt32 length_i, PLXString const& folder_i,
                                                   PLXTokenizedString const& patterns_i,
                                                   PLXUInt32 maximumSize_i, MessagePartList* results_io) {
  CollectedMessage message;
  std::optional<std::string_view> const text = Collect(read_i, context_i, start_i, length_i, message);
  if (!text) return false;
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io);
  std::optional<bool> const result =
      parser.ParseMultipart({boundary_i.GetCStringAccess(), boundary_i.GetLength()}, *text, nullptr);
  parser.FillResults();
  return result.value_or(false);
}
