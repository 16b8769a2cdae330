#include "PLXLog.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <stdexcept>
#include <stop_token>
#include <thread>

namespace {

constexpr char kPattern[] = "%Y-%m-%d %H:%M:%S.%e %v";  // the level word is part of the text

// One generation of loggers: replaced whole by Open and Close, so a writer never sees half of one.
struct Loggers {
  std::shared_ptr<spdlog::logger> server;
  std::shared_ptr<spdlog::logger> access;
  std::shared_ptr<spdlog::logger> trace;
};

std::shared_ptr<spdlog::logger> MakeLogger(std::string const& name_i, std::vector<spdlog::sink_ptr> sinks_i) {
  auto logger = std::make_shared<spdlog::logger>(name_i, sinks_i.begin(), sinks_i.end());
  // An access line is in the combined format, which brings its own time.
  logger->set_pattern(name_i == "access" ? "%v" : kPattern);
  return logger;
}

// What writes to standard error alone.
std::shared_ptr<Loggers const> MakeConsoleLoggers(bool toStandardError_i) {
  std::vector<spdlog::sink_ptr> sinks;
  if (toStandardError_i) sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
  auto loggers = std::make_shared<Loggers>();
  loggers->access = MakeLogger("access", sinks);
  loggers->trace = MakeLogger("trace", sinks);
  loggers->server = MakeLogger("server", sinks);
  return loggers;
}

std::shared_ptr<Loggers const> MakeFileLoggers(PLXLogOptions const& options_i) {
  auto const file = [&options_i](char const* name_i) -> spdlog::sink_ptr {
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        (options_i.folder / name_i).string(), std::max<std::size_t>(options_i.bytesPerFile, 1),
        options_i.filesKept);
  };
  auto loggers = std::make_shared<Loggers>();
  std::vector<spdlog::sink_ptr> sinks{file("server.log")};
  if (options_i.toStandardError) {
    sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    sinks.back()->set_level(spdlog::level::warn);
  }
  loggers->server = MakeLogger("server", sinks);
  // The few lines of the server log are looked at while they are written; those of the others come by the
  // thousand a second and reach the disk once a second.
  loggers->server->flush_on(spdlog::level::trace);
  loggers->access = MakeLogger("access", {file("access.log")});
  loggers->trace = MakeLogger("trace", {file("trace.log")});
  return loggers;
}

struct State {
  std::shared_mutex mutex;
  std::shared_ptr<Loggers const> loggers = MakeConsoleLoggers(true);  // guarded by mutex
};

// Never destroyed: threads of modules may write until the process is gone.
State& OurState() {
  static State* const state = new State;
  return *state;
}

std::shared_ptr<Loggers const> CurrentLoggers() {
  State& state = OurState();
  std::shared_lock const lock(state.mutex);
  return state.loggers;
}

void Replace(std::shared_ptr<Loggers const> loggers_i) {
  State& state = OurState();
  std::unique_lock const lock(state.mutex);
  state.loggers.swap(loggers_i);
  loggers_i->access->flush();
  loggers_i->trace->flush();
}

// Brings the lines of the access and trace logs to the disk a second after the first that waits. Sleeps while
// nothing is written.
class Flusher {
 public:
  void Start() {
    std::lock_guard const lock(myMutex);
    if (!myThread.joinable()) myThread = std::jthread([this](std::stop_token const& stop) { Run(stop); });
  }
  void Stop() {
    std::jthread thread;
    {
      std::lock_guard const lock(myMutex);
      thread.swap(myThread);
    }
    thread.request_stop();
    Mark();
  }
  void Mark() {
    if (!myHasLines.load(std::memory_order_relaxed) && !myHasLines.exchange(true)) myHasLines.notify_one();
  }

 private:
  void Run(std::stop_token const& stop_i) {
    std::mutex mutex;
    std::condition_variable_any stopped;
    while (!stop_i.stop_requested()) {
      myHasLines.wait(false);
      std::unique_lock lock(mutex);
      stopped.wait_for(lock, stop_i, std::chrono::seconds(1), [] { return false; });
      myHasLines = false;
      auto const loggers = CurrentLoggers();
      loggers->access->flush();
      loggers->trace->flush();
    }
  }

  std::mutex myMutex;
  std::jthread myThread;
  std::atomic<bool> myHasLines = false;
};

Flusher& OurFlusher() {
  static Flusher* const flusher = new Flusher;
  return *flusher;
}

bool IsControl(char character_i) {
  auto const byte = static_cast<unsigned char>(character_i);
  return byte < 0x20 || byte == 0x7F;
}

void AppendEscaped(std::string& line_io, std::string_view text_i) {
  constexpr char digits[] = "0123456789abcdef";
  line_io.reserve(line_io.size() + text_i.size());
  for (char const character : text_i) {
    auto const byte = static_cast<unsigned char>(character);
    if (!IsControl(character)) {
      line_io.push_back(character);
    } else if (character == '\n') {
      line_io.append("\\n");
    } else if (character == '\r') {
      line_io.append("\\r");
    } else {
      line_io.append("\\x").push_back(digits[byte >> 4]);
      line_io.push_back(digits[byte & 15]);
    }
  }
}

void WriteEscaped(spdlog::logger& logger_i, std::string_view line_i) {
  if (std::none_of(line_i.begin(), line_i.end(), IsControl)) {
    logger_i.log(spdlog::level::info, spdlog::string_view_t(line_i.data(), line_i.size()));
    return;
  }
  std::string line;
  AppendEscaped(line, line_i);
  logger_i.log(spdlog::level::info, spdlog::string_view_t(line));
}

}  // namespace

void PLXLog::Open(PLXLogOptions const& options_i) {
  try {
    Replace(options_i.folder.empty() ? MakeConsoleLoggers(options_i.toStandardError)
                                     : MakeFileLoggers(options_i));
  } catch (spdlog::spdlog_ex const& error) {
    throw std::runtime_error("The logs cannot be written to " + options_i.folder.string() + ": " +
                             error.what());
  }
  OurFlusher().Start();
}

void PLXLog::Close() {
  OurFlusher().Stop();
  Replace(MakeConsoleLoggers(true));
}

void PLXLog::Write(PLXLogLevel level_i, std::string_view text_i) {
  static constexpr struct {
    char const* word;
    spdlog::level::level_enum level;
  } kLevels[] = {{"note ", spdlog::level::info},
                 {"warning ", spdlog::level::warn},
                 {"error ", spdlog::level::err},
                 {"failure ", spdlog::level::critical}};
  auto const& level = kLevels[static_cast<std::size_t>(level_i)];
  std::string line = level.word;
  AppendEscaped(line, text_i);
  CurrentLoggers()->server->log(level.level, spdlog::string_view_t(line));
}

void PLXLog::Access(std::string_view line_i) {
  WriteEscaped(*CurrentLoggers()->access, line_i);
  OurFlusher().Mark();
}

void PLXLog::Trace(std::string_view line_i) {
  WriteEscaped(*CurrentLoggers()->trace, line_i);
  OurFlusher().Mark();
}
