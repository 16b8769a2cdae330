#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

enum class PLXLogLevel { kNote, kWarning, kError, kFailure };

struct PLXLogOptions {
  std::filesystem::path folder;          // empty: standard error only
  bool toStandardError = true;           // warnings and worse, notes too when there is no folder
  std::size_t bytesPerFile = 10u << 20;  // then the file is rotated
  std::size_t filesKept = 5;             // rotated files beside the current one
};

// The server's logs: server.log for what happens, access.log with a line per request, trace.log when tracing.
//
// Process-wide; every function may be called from any thread, and before Open and after Close writes go to
// standard error. A line break or control character in a text is written escaped, so that nobody outside can
// forge a line. Every line begins with date and time (local, milliseconds), those of the server log also with
// the level's word. The server log reaches the disk at once, the others within a second. spdlog is seen by
// the one source behind this header.
class PLXLog {
 public:
  // Opens (or reopens, after a rotation from outside) the files. Throws std::runtime_error when a file cannot
  // be written, with a sentence for the person who started the server.
  static void Open(PLXLogOptions const& options_i);
  static void Close();

  static void Note(std::string_view text_i) { Write(PLXLogLevel::kNote, text_i); }
  static void Warning(std::string_view text_i) { Write(PLXLogLevel::kWarning, text_i); }
  static void Error(std::string_view text_i) { Write(PLXLogLevel::kError, text_i); }
  static void Failure(std::string_view text_i) { Write(PLXLogLevel::kFailure, text_i); }
  static void Write(PLXLogLevel level_i, std::string_view text_i);

  static void Access(std::string_view line_i);
  static void Trace(std::string_view line_i);
};
