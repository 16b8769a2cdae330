#pragma once

#include <filesystem>
#include <string_view>

// Writing what has to be there after a kill or a loss of power. All give false with errno telling why.

// All of the bytes, whatever interrupts or cuts the calls short.
bool PLXWriteAll(int file_i, std::string_view bytes_i);
// Waits until the names in the folder are on the disk.
bool PLXSyncFolder(std::filesystem::path const& folder_i);
// Puts the text in the file's place, mode 0600: whoever reads finds the old file or the new one, complete,
// after a loss of power too. What a death meanwhile leaves is the file's name with kPLXTemporarySuffix behind
// it, its X replaced by other letters.
bool PLXReplaceFile(std::filesystem::path const& file_i, std::string_view text_i);
inline constexpr std::string_view kPLXTemporarySuffix = ".XXXXXX";
