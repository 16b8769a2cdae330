#pragma once

#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "PLXModuleAPIGlue.h"
#include "SimulatedHost.h"

// Tables of wrappers of the server's calls, and what holds of all of them.

inline std::string ToString(PLXString const& text_i) {
  return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

template <typename T>
std::string Told(T const& value_i) {
  std::ostringstream text;
  if constexpr (std::is_same_v<T, PLXString>) {
    text << ToString(value_i);
  } else if constexpr (std::is_same_v<T, PLXStringID>) {
    text << ToString(value_i.GetString());
  } else if constexpr (std::is_same_v<T, PLXTag>) {
    text << ToString(value_i.GetName());
  } else if constexpr (std::is_same_v<T, PLXNumber>) {
    text << (value_i.IsNull() ? "null" : ToString(value_i.GetStringRepresentation()));
  } else if constexpr (std::is_same_v<T, PLXUInt32>) {
    text << (value_i == kPLXResult_GeneralError || value_i == kPLXResult_BufferTooSmall
                 ? "error"
                 : std::to_string(value_i));
  } else {
    text << std::boolalpha << value_i;
  }
  return text.str();
}
// Where a wrapper may put what it answers. Told after the result as far as it has changed.
struct GlueOutputs {
  PLXString text = "old";
  PLXString other = "old";
  PLXStringID id = PLXStringID("old", PLXStringID::kIgnoreCase);
  PLXStringID otherID = id;
  PLXUInt32 word = 99;

  std::string TellChanges() const {
    std::string told;
    for (PLXString const& changed : {text, other, id.GetString(), otherID.GetString()}) {
      if (!(changed == "old")) told += " " + Told(changed);
    }
    return word != 99 ? told + " " + Told(word) : told;
  }
};

// One wrapper, called with its usual arguments.
struct GlueRow {
  char const* sent;  // the whole call, as SimulatedHost::Call has it
  std::function<std::string(_PLXAPI_ModuleProcessingInfo*)> run;
  char const* result = "0";
  char const* failed = "error";  // the result when the server refuses

  PLXUInt32 GetCode() const {
    PLXUInt32 code = 0;
    for (int index = 0; index < 4; ++index) code = code << 8 | static_cast<unsigned char>(sent[index]);
    return code;
  }
  // Numbers, the tag and the action are what the server left, whatever its result.
  bool IsUnchecked() const {
    std::string const call(sent);
    return call.find("[?]") != std::string::npos || call == "MTag >32" || call == "MAct >32";
  }
  // Of the first buffer to be filled; 0 when there is none.
  PLXUInt32 GetCapacity() const {
    char const* const capacity = std::strchr(sent, '>');
    return capacity != nullptr ? static_cast<PLXUInt32>(std::atoi(capacity + 1)) : 0;
  }
};

// The function of a row: a wrapper's name without its prefix, and its arguments, members of `out` among them.
#define RUN(name, ...)                                                               \
  [](_PLXAPI_ModuleProcessingInfo* info) {                                           \
    [[maybe_unused]] GlueOutputs out;                                                \
    std::string const result = Told(PLXGlue##name(info __VA_OPT__(, ) __VA_ARGS__)); \
    return result + out.TellChanges();                                               \
  }

// Runs every row on a host of its own: with what the host holds, with replies in its way, and with the number
// of calls that makes.
class GlueRows {
 public:
  typedef std::function<void(SimulatedHost&)> Furnish;
  GlueRows(std::vector<GlueRow> rows_i, Furnish furnish_i)
      : myRows(std::move(rows_i)), myFurnish(std::move(furnish_i)) {}

  void ExpectOneCallWithTheArguments() const {
    for (GlueRow const& row : myRows) {
      SimulatedHost host;
      Run(row, host, {}, row.result, 1);
      EXPECT_EQ(host.calls.at(0).sent, row.sent);
    }
  }
  // Also when the server answers and refuses at once.
  void ExpectNeutralityOnFailure() const {
    for (GlueRow const& row : myRows) {
      SimulatedHost host;
      Run(row, host, {{.result = kPLXResult_GeneralError}}, row.failed, 1);
      if (row.IsUnchecked()) continue;
      SimulatedHost talkative;
      Run(row, talkative, {{.result = kPLXResult_GeneralError, .answersToo = true}}, row.failed, 1);
    }
  }
  // Of a need that a buffer can meet; not of one that is none, no more than there was, or more than any page.
  void ExpectOneMoreTry() const {
    typedef SimulatedHost::Reply Reply;
    auto const need = [](PLXUInt32 need_i) {
      return Reply{.result = kPLXResult_BufferTooSmall, .sizes = {need_i, need_i}};
    };
    for (GlueRow const& row : myRows) {
      if (row.GetCapacity() == 0) continue;
      SimulatedHost first;
      Run(row, first, {need(1000)}, row.result, 2);
      SimulatedHost second;
      Run(row, second, {need(1000), need(2000)}, row.failed, 2);
      for (PLXUInt32 const absurd : {0u, row.GetCapacity(), 0x40000000u, 0xFFFFFFFFu}) {
        SimulatedHost host;
        Run(row, host, {need(absurd)}, row.failed, 1);
      }
    }
  }
  // Run under the address sanitizer, a buffer that is not released shows.
  void ExpectPassageOfExceptions() const {
    for (GlueRow const& row : myRows) {
      SCOPED_TRACE(row.sent);
      SimulatedHost host;
      host.Script(row.GetCode(), {.throws = true});
      EXPECT_THROW(row.run(host.Event()), std::runtime_error);
    }
  }

 private:
  void Run(GlueRow const& row_i, SimulatedHost& host_io, std::vector<SimulatedHost::Reply> const& replies_i,
           char const* told_i, std::size_t calls_i) const {
    SCOPED_TRACE(row_i.sent);
    myFurnish(host_io);
    for (SimulatedHost::Reply const& reply : replies_i) host_io.Script(row_i.GetCode(), reply);
    EXPECT_EQ(row_i.run(host_io.Event()), told_i);
    EXPECT_EQ(host_io.calls.size(), calls_i);
  }

  std::vector<GlueRow> myRows;
  Furnish myFurnish;
};
