#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "PLXModuleAPI.h"

// A server for tests of modules: holds one page's worth of data, answers the calls from it, records each call
// as it read it at the time, and fails the test when a call breaks the conventions between server and module.
// Of databases it knows the requests, not the records: it answers what the test holds ready for the request.
//
//   SimulatedHost host;
//   host.tag = "plxFTP";
//   EXPECT_EQ(ProcessPLXRequest(host.Event(kPLXEvent_Tag)), 0u);
//   EXPECT_EQ(host.output, "");
//
// Checked in every call: the size of a text that comes in counts its terminator and the terminator is there;
// a buffer or word to be filled is all zero; a number has the size of its type; unused slots are zero; a word
// stands in the last slot; a second try repeats the first one's texts and words and brings the room that was
// asked for, and there is no third. One thread at a time; hosts of different threads do not meet.
class SimulatedHost {
 public:
  typedef std::vector<std::pair<std::string, std::string>> Pairs;

  // One call as the host read it.
  struct Call {
    PLXUInt32 code = 0;
    // The request and its slots in order: 'a text', 7 a word (from #10000 on in hexadecimal), ? one to be
    // filled, >32 a buffer to be filled and its capacity, 'a text'>32 one to be rewritten, #30000000/4=1 a
    // value with its type and size, #20000000>64 one to be filled, - a double that is not there; [7] and [?]
    // are words in the last slot.
    std::string sent;
    std::vector<std::string> texts;     // that came in, in order, without their terminators
    std::vector<PLXUInt32> words;       // that came in, in order
    std::vector<PLXUInt32> capacities;  // of the buffers to be filled, in order
    PLXUInt32 result = 0;
  };

  // An answer that is used once in place of the host's own. What the host's own would have changed stays
  // unchanged.
  struct Reply {
    PLXUInt32 result = 0;
    // For each buffer to be filled, what is written into it (as far as it goes in)...
    std::vector<std::string> texts = {};
    // ... and what is stored in its size word; unwritten where there is none.
    std::vector<PLXUInt32> sizes = {};
    bool throws = false;
    // Answers from what the host holds and then returns the result all the same.
    bool answersToo = false;
  };

  SimulatedHost();
  SimulatedHost(SimulatedHost const&) = delete;
  SimulatedHost& operator=(SimulatedHost const&) = delete;

  // The record of one event. It lives as long as the host and is the same for all its events.
  _PLXAPI_ModuleProcessingInfo* Event(PLXUInt32 eventCode_i = kPLXEvent_Tag);

  // Puts a reply in the queue of a request; queued replies are used before the host's own answers.
  void Script(PLXUInt32 code_i, Reply const& reply_i) { myReplies[code_i].push_back(reply_i); }
  void ScriptFailure(PLXUInt32 code_i) { Script(code_i, {.result = kPLXResult_GeneralError}); }
  // 'MBtS' with the need of one buffer, whatever its capacity.
  void ScriptNeed(PLXUInt32 code_i, PLXUInt32 need_i) {
    Script(code_i, {.result = kPLXResult_BufferTooSmall, .sizes = {need_i}});
  }

  std::size_t CountCalls(PLXUInt32 code_i) const;

  // ---- What the host holds ----
  std::string tag;
  std::string body;
  std::string action;
  Pairs tagParameters;  // names compare ignoring case
  Pairs pathArguments;
  Pairs postArguments;
  std::map<std::string, std::string> cgi;
  std::map<std::string, std::string> cookies;
  std::map<std::string, std::string> pageVariables;
  std::map<std::string, std::string> preferences;
  std::map<std::string, std::string> logins;  // of server and domain
  std::map<PLXUInt32, std::string> texts;     // answers of requests for one text, by code
  std::map<PLXUInt32, PLXUInt32> numbers;     // answers of requests for one number, by code
  double fieldValue = 0;                      // of every field, in the type that is asked for

  // ---- What the module did ----
  std::string output;
  std::string problem;
  std::string remedy;
  Pairs log;  // level, text
  std::vector<Call> calls;

 private:
  struct Slots;

  static PLXUInt32 Support(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1, void* a2, void* a3, void* a4,
                           void* a5);
  static PLXUInt32 Database(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1, void* a2, void* a3,
                            void* a4, void* a5, void* a6);
  PLXUInt32 Serve(Slots& slots_io);
  PLXUInt32 Answer(Slots& slots_io);
  PLXUInt32 AnswerAsScripted(Slots& slots_io, Reply const& reply_i);
  PLXUInt32 AnswerFromData(Slots& slots_io);
  PLXUInt32 AnswerArguments(Slots& slots_io, Pairs const& pairs_i, bool byIndex_i);
  PLXUInt32 Record(Slots& slots_io);
  void CheckRepeat(Slots const& slots_i);

  _PLXAPI_ModuleProcessingInfo myInfo;
  std::map<PLXUInt32, std::deque<Reply>> myReplies;
  // The needs that the last call was refused with; empty when it was not refused.
  std::vector<PLXUInt32> myNeeds;
  unsigned myTries = 0;
};

// "MTag" for 0x4D546167.
std::string SpellCode(PLXUInt32 code_i);
