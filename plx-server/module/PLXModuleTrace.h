#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// What a trace tells of an event of a module, or of a call that the module makes during it. Passwords are
// "(blanked)" in it already, and long texts are cut.
struct PLXTraceEntry {
  enum class What { kBegins, kCall, kEnds };
  struct Value {
    std::string text;
    bool isNumber = false;
    std::uint64_t cutFrom = 0;  // bytes of the whole text, when this is not all of it
  };

  What what = What::kCall;
  std::uint64_t event = 0;    // of this process
  std::uint64_t request = 0;  // 0 outside any
  std::string module;
  std::string eventCode;  // "'MTag'"
  std::string tag;        // as it is registered, or the action's name
  std::string file;       // of the page
  int line = 0;           // of the tag in it

  std::string code;  // kCall: "'MGTP'", of a database "database 'DOpn'"
  std::string name;  // kCall: "GetTagParameter"; empty when the server does not know the code
  std::vector<Value> arguments;
  std::vector<Value> answers;
  std::string result;  // code, "0" for success
  std::string problem;
  std::uint64_t bytesWritten = 0;     // kEnds
  std::chrono::microseconds took{0};  // kCall, kEnds

  static void AddText(std::vector<Value>& values_io, std::string_view text_i);
  static void AddNumber(std::vector<Value>& values_io, std::uint64_t number_i) {
    values_io.push_back({std::to_string(number_i), true, 0});
  }
  // The line of the trace log.
  std::string Line() const;
};

using PLXTraceSink = std::function<void(PLXTraceEntry const&)>;
