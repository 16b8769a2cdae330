#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

// The body of one request while it arrives: short ones in memory, longer ones in a file without a name, which
// goes with this object whatever happens to the process. Filled by one thread, then read by another.
class PLXRequestBody {
 public:
  // Bodies of more than `bytesInMemory_i` bytes go to a file in `folder_i`.
  PLXRequestBody(std::filesystem::path const& folder_i, std::size_t bytesInMemory_i)
      : myFolder(folder_i), myBytesInMemory(bytesInMemory_i) {}
  ~PLXRequestBody();
  PLXRequestBody(PLXRequestBody const&) = delete;
  PLXRequestBody& operator=(PLXRequestBody const&) = delete;

  // False when the file cannot be written, errno says why; the body is of no use then.
  bool Append(std::string_view bytes_i);
  std::uint64_t Size() const { return mySize; }

  // All bytes, in memory or mapped from the file, valid as long as this object. False when they cannot be
  // mapped.
  bool View(std::string_view& bytes_o);

 private:
  bool OpenFile();
  bool WriteOut(std::string_view bytes_i);

  std::filesystem::path const& myFolder;
  std::size_t const myBytesInMemory;
  std::uint64_t mySize = 0;
  std::string myMemory;
  int myFile = -1;
  void* myMapping = nullptr;
};
