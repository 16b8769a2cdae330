#include "SimulatedHost.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>
#include <strings.h>

namespace {

// What stands in the slots of a request: 'i' a text in, 'o' a text out, 'b' a text in and out, 'r' raw
// characters with their length; then at the end 'w' a word in or 'n' a number out, in the last slot.
struct Shape {
  PLXUInt32 code;
  char const* slots;
  PLXUInt32 capacity;  // of the texts out at the first try
};

constexpr Shape ourShapes[] = {
    {kPLXSupport_GetModulePath, "o", 256},
    {kPLXSupport_GetModuleParentFolderPath, "o", 256},
    {kPLXSupport_WriteToServer, "r", 0},
    {kPLXSupport_WriteToLog, "iw", 0},
    {kPLXSupport_SetErrorInformation, "ii", 0},
    {kPLXSupport_NormalizeString, "b", 0},
    {kPLXSupport_GetDefaultLanguage, "n", 0},
    {kPLXSupport_GetPageID, "n", 0},
    {kPLXSupport_RegisterModuleName, "i", 0},
    {kPLXSupport_RegisterModuleVersion, "i", 0},
    {kPLXSupport_RegisterModuleAuthor, "i", 0},
    {kPLXSupport_RegisterModuleDeveloperID, "i", 0},
    {kPLXSupport_RegisterModuleVersionTrackerURL, "i", 0},
    {kPLXSupport_RegisterForTag, "iw", 0},
    {kPLXSupport_UnregisterForTag, "i", 0},
    {kPLXSupport_RegisterForAction, "b", 32},
    {kPLXSupport_UnregisterForAction, "i", 0},
    {kPLXSupport_GetTag, "o", 32},
    {kPLXSupport_GetTagParameter, "iow", 32},
    {kPLXSupport_GetTagParameterByIndex, "oow", 32},
    {kPLXSupport_GetTagParameterCount, "n", 0},
    {kPLXSupport_GetTagBody, "o", 32},
    {kPLXSupport_GetActionName, "o", 32},
    {kPLXSupport_GetPathArgument, "iow", 32},
    {kPLXSupport_GetPathArgumentByIndex, "oow", 32},
    {kPLXSupport_GetPathArgumentCount, "n", 0},
    {kPLXSupport_GetPostArgument, "iow", 32},
    {kPLXSupport_GetPostArgumentByIndex, "oow", 32},
    {kPLXSupport_GetPostArgumentCount, "n", 0},
    {kPLXSupport_GetCGIEnvironmentVariable, "io", 32},
    {kPLXSupport_SetPageVariable, "ii", 0},
    {kPLXSupport_GetPageVariable, "io", 32},
    {kPLXSupport_GetPageVariableByIndex, "oow", 32},
    {kPLXSupport_GetPageVariableCount, "n", 0},
    {kPLXSupport_GetCookie, "io", 32},
    {kPLXSupport_SetHTTPResponseStatus, "ii", 0},
    {kPLXSupport_SetHTTPResponseHeader, "ii", 0},
    {kPLXSupport_SetHTTPResponseURI, "i", 0},
    {kPLXSupport_GetAdminDomainName, "o", 32},
    {kPLXSupport_GetAdminRegionPath, "o", 32},
    {kPLXSupport_GetVirtualHost, "o", 32},
    {kPLXSupport_GetVirtualRootPath, "o", 32},
    {kPLXSupport_GetURLPath, "o", 32},
    {kPLXSupport_GetURLParentFolderPath, "o", 32},
    {kPLXSupport_GetRegionDataFolderPath, "b", 32},
    {kPLXSupport_MapURLToPhysicalPath, "b", 32},
    {kPLXSupport_VerifyRegionContainsFile, "b", 32},
    {kPLXSupport_ValidateServerLogin, "ii", 0},
    {kPLXSupport_ValidateDomainLogin, "ii", 0},
    {kPLXSupport_SetPreference, "ii", 0},
    {kPLXSupport_GetPreference, "io", 32},
    {kPLXSupport_RemovePreference, "i", 0},
};

constexpr unsigned ourSlotCount = 5;

bool IsSameName(std::string const& left_i, std::string const& right_i) {
  return strcasecmp(left_i.c_str(), right_i.c_str()) == 0;
}

bool IsZero(char const* address_i, std::size_t size_i) {
  return std::all_of(address_i, address_i + size_i, [](char character_i) { return character_i == 0; });
}

}  // namespace

std::string SpellCode(PLXUInt32 code_i) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code_i >> shift & 0xFF);
  return text;
}

// The words of one call, taken apart by the shape of its request.
struct SimulatedHost::Slots {
  struct Answer {
    char* buffer;
    PLXUInt32* size;
    PLXUInt32 capacity;
  };

  Slots(PLXUInt32 code_i, void* const (&words_i)[ourSlotCount]) {
    call.code = code_i;
    auto const shape = std::find_if(std::begin(ourShapes), std::end(ourShapes),
                                    [code_i](Shape const& shape_i) { return shape_i.code == code_i; });
    if (shape == std::end(ourShapes)) {
      ADD_FAILURE() << "no such request: " << SpellCode(code_i);
      return;
    }
    unsigned slot = 0;
    bool hasWord = false;
    for (char const* kind = shape->slots; *kind != 0; ++kind) {
      if (*kind == 'w' || *kind == 'n') {
        TakeWord(words_i[ourSlotCount - 1], *kind == 'n');
        hasWord = true;
      } else {
        TakeText(*kind, words_i[slot], static_cast<PLXUInt32*>(words_i[slot + 1]), shape->capacity);
        slot += 2;
      }
    }
    for (; slot < ourSlotCount - (hasWord ? 1u : 0u); ++slot) {
      EXPECT_EQ(words_i[slot], nullptr) << SpellCode(code_i) << ": slot " << slot + 1 << " is in use";
    }
  }

  void TakeWord(void* word_i, bool isNumber_i) {
    number = static_cast<PLXUInt32*>(word_i);
    ASSERT_NE(number, nullptr) << SpellCode(call.code) << ": no word in the last slot";
    call.word = *number;
    if (isNumber_i) {
      EXPECT_EQ(*number, 0u) << SpellCode(call.code) << ": the number is not cleared";
    }
  }

  void TakeText(char kind_i, void* address_i, PLXUInt32* size_i, PLXUInt32 capacity_i) {
    char* const text = static_cast<char*>(address_i);
    ASSERT_NE(text, nullptr) << SpellCode(call.code) << ": no text";
    ASSERT_NE(size_i, nullptr) << SpellCode(call.code) << ": no size";
    ASSERT_GT(*size_i, 0u) << SpellCode(call.code) << ": a size of 0";
    if (kind_i == 'r') {
      call.texts.emplace_back(text, *size_i);
    } else if (kind_i == 'i') {
      EXPECT_EQ(text[*size_i - 1], 0) << SpellCode(call.code) << ": no terminator where the size says";
      call.texts.emplace_back(text, *size_i - 1);
    } else {
      TakeAnswer(kind_i == 'b', text, size_i, capacity_i);
    }
  }

  void TakeAnswer(bool holdsText_i, char* text_i, PLXUInt32* size_i, PLXUInt32 capacity_i) {
    PLXUInt32 const capacity = *size_i;
    std::size_t const length = strnlen(text_i, capacity);
    if (holdsText_i) {
      call.texts.emplace_back(text_i, length);
      EXPECT_LT(length, capacity) << SpellCode(call.code) << ": the text to be rewritten has no terminator";
      firstCapacities.push_back(std::max(capacity_i, static_cast<PLXUInt32>(length) + 1));
    } else {
      firstCapacities.push_back(capacity_i);
      EXPECT_EQ(length, 0u) << SpellCode(call.code) << ": the buffer is not cleared";
    }
    EXPECT_TRUE(IsZero(text_i + length, capacity - length))
        << SpellCode(call.code) << ": the rest is not cleared";
    call.capacities.push_back(capacity);
    answers.push_back({text_i, size_i, capacity});
  }

  // Stores one answer as the contract has it; 'MBtS' when it does not fit.
  PLXUInt32 Store(std::size_t answer_i, std::string const& text_i) {
    if (answer_i >= answers.size()) return kPLXResult_GeneralError;
    Answer const& answer = answers[answer_i];
    PLXUInt32 const length = static_cast<PLXUInt32>(text_i.size());
    if (length > answer.capacity) {
      *answer.size = length + 1;
      return kPLXResult_BufferTooSmall;
    }
    std::memcpy(answer.buffer, text_i.data(), length);
    if (length < answer.capacity) answer.buffer[length] = 0;
    *answer.size = length;
    return kPLXResult_Success;
  }

  // Two answers of which either may not fit; the size of one that does then holds its need.
  PLXUInt32 Store(std::string const& first_i, std::string const& second_i) {
    PLXUInt32 const first = Store(0, first_i);
    PLXUInt32 const second = Store(1, second_i);
    if (first == second) return first;
    std::size_t const fitting = first == kPLXResult_Success ? 0 : 1;
    if (fitting < answers.size()) ++*answers[fitting].size;
    return kPLXResult_BufferTooSmall;
  }

  PLXUInt32 StoreFound(std::map<std::string, std::string> const& values_i) {
    auto const value = values_i.find(Text(0));
    return value != values_i.end() ? Store(0, value->second) : kPLXResult_GeneralError;
  }

  std::string Text(std::size_t index_i) const {
    return index_i < call.texts.size() ? call.texts[index_i] : "";
  }

  Call call;
  std::vector<Answer> answers;
  std::vector<PLXUInt32> firstCapacities;
  PLXUInt32* number = nullptr;
};

SimulatedHost::SimulatedHost() : myInfo{this, 0, Support, nullptr} {}

_PLXAPI_ModuleProcessingInfo* SimulatedHost::Event(PLXUInt32 eventCode_i) {
  myInfo.eventCode_i = eventCode_i;
  return &myInfo;
}

std::size_t SimulatedHost::CountCalls(PLXUInt32 code_i) const {
  return static_cast<std::size_t>(std::count_if(
      calls.begin(), calls.end(), [code_i](Call const& call_i) { return call_i.code == code_i; }));
}

PLXUInt32 SimulatedHost::Support(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1, void* a2, void* a3,
                                 void* a4, void* a5) {
  SimulatedHost& host = *static_cast<SimulatedHost*>(connID_i);
  void* const words[ourSlotCount] = {a1, a2, a3, a4, a5};
  Slots slots(code_i, words);
  host.CheckRepeat(slots);
  host.calls.push_back(slots.call);
  PLXUInt32 const result = host.Answer(slots);
  host.calls.back().result = result;
  host.myNeeds.clear();
  if (result == kPLXResult_BufferTooSmall) {
    for (Slots::Answer const& answer : slots.answers) host.myNeeds.push_back(*answer.size);
  }
  return result;
}

void SimulatedHost::CheckRepeat(Slots const& slots_i) {
  Call const& call = slots_i.call;
  Call const* const previous = calls.empty() ? nullptr : &calls.back();
  bool const isRepeat = previous != nullptr && !myNeeds.empty() && previous->code == call.code;
  myTries = isRepeat ? myTries + 1 : 1;
  if (!isRepeat) {
    EXPECT_EQ(call.capacities, slots_i.firstCapacities) << SpellCode(call.code) << ": first capacities";
    return;
  }
  EXPECT_LE(myTries, 2u) << SpellCode(call.code) << ": tried too often";
  EXPECT_EQ(call.texts, previous->texts) << SpellCode(call.code) << ": the second try brings other texts";
  EXPECT_EQ(call.word, previous->word) << SpellCode(call.code) << ": the second try brings another word";
  for (std::size_t index = 0; index < call.capacities.size(); ++index) {
    EXPECT_EQ(call.capacities[index], std::max(previous->capacities[index], myNeeds[index]))
        << SpellCode(call.code) << ": room of the second try";
  }
}

PLXUInt32 SimulatedHost::Answer(Slots& slots_io) {
  auto const replies = myReplies.find(slots_io.call.code);
  if (replies == myReplies.end() || replies->second.empty()) return AnswerFromData(slots_io);
  Reply const reply = replies->second.front();
  replies->second.pop_front();
  return AnswerAsScripted(slots_io, reply);
}

PLXUInt32 SimulatedHost::AnswerAsScripted(Slots& slots_io, Reply const& reply_i) {
  if (reply_i.throws) throw std::runtime_error("the host threw");
  for (std::size_t index = 0; index < slots_io.answers.size(); ++index) {
    Slots::Answer const& answer = slots_io.answers[index];
    if (index < reply_i.texts.size()) {
      std::string const& text = reply_i.texts[index];
      std::memcpy(answer.buffer, text.data(), std::min<std::size_t>(text.size(), answer.capacity));
    }
    if (index < reply_i.sizes.size()) *answer.size = reply_i.sizes[index];
  }
  return reply_i.result;
}

PLXUInt32 SimulatedHost::AnswerArguments(Slots& slots_io, Pairs const& pairs_i, bool byIndex_i) {
  PLXUInt32 index = slots_io.call.word;
  if (byIndex_i) {
    return index < pairs_i.size() ? slots_io.Store(pairs_i[index].first, pairs_i[index].second)
                                  : kPLXResult_GeneralError;
  }
  for (auto const& pair : pairs_i) {
    if (IsSameName(pair.first, slots_io.Text(0)) && index-- == 0) return slots_io.Store(0, pair.second);
  }
  return kPLXResult_GeneralError;
}

PLXUInt32 SimulatedHost::AnswerFromData(Slots& slots_io) {
  PLXUInt32 const code = slots_io.call.code;
  switch (code) {
    case kPLXSupport_GetTag:
      return slots_io.Store(0, tag);
    case kPLXSupport_GetTagBody:
      return slots_io.Store(0, body);
    case kPLXSupport_GetActionName:
      return slots_io.Store(0, action);
    case kPLXSupport_GetTagParameter:
      return AnswerArguments(slots_io, tagParameters, false);
    case kPLXSupport_GetTagParameterByIndex:
      return AnswerArguments(slots_io, tagParameters, true);
    case kPLXSupport_GetPathArgument:
      return AnswerArguments(slots_io, pathArguments, false);
    case kPLXSupport_GetPathArgumentByIndex:
      return AnswerArguments(slots_io, pathArguments, true);
    case kPLXSupport_GetPostArgument:
      return AnswerArguments(slots_io, postArguments, false);
    case kPLXSupport_GetPostArgumentByIndex:
      return AnswerArguments(slots_io, postArguments, true);
    case kPLXSupport_GetPageVariableByIndex:
      return AnswerArguments(slots_io, Pairs(pageVariables.begin(), pageVariables.end()), true);
    case kPLXSupport_GetCGIEnvironmentVariable:
      return slots_io.StoreFound(cgi);
    case kPLXSupport_GetCookie:
      return slots_io.StoreFound(cookies);
    case kPLXSupport_GetPageVariable:
      return slots_io.StoreFound(pageVariables);
    case kPLXSupport_GetPreference:
      return slots_io.StoreFound(preferences);
    default:
      return Record(slots_io);
  }
}

// Requests that change something, and those answered with one text or number by code.
PLXUInt32 SimulatedHost::Record(Slots& slots_io) {
  PLXUInt32 const code = slots_io.call.code;
  std::string const first = slots_io.Text(0);
  std::string const second = slots_io.Text(1);
  switch (code) {
    case kPLXSupport_WriteToServer:
      output += first;
      return kPLXResult_Success;
    case kPLXSupport_WriteToLog:
      log.emplace_back(SpellCode(slots_io.call.word), first);
      return kPLXResult_Success;
    case kPLXSupport_SetErrorInformation:
      problem = first;
      remedy = second;
      return kPLXResult_Success;
    case kPLXSupport_SetPageVariable:
      pageVariables[first] = second;
      return kPLXResult_Success;
    case kPLXSupport_SetPreference:
      preferences[first] = second;
      return kPLXResult_Success;
    case kPLXSupport_RemovePreference:
      preferences.erase(first);
      return kPLXResult_Success;
    case kPLXSupport_ValidateServerLogin:
    case kPLXSupport_ValidateDomainLogin: {
      auto const login = logins.find(first);
      return login != logins.end() && login->second == second ? kPLXResult_Success : kPLXResult_NotAuthorized;
    }
    default:
      break;
  }
  if (auto const number = numbers.find(code); number != numbers.end() && slots_io.number != nullptr) {
    *slots_io.number = number->second;
  }
  // A text that is rewritten stays as it is unless the test holds another.
  auto const text = texts.find(code);
  if (!slots_io.answers.empty()) return slots_io.Store(0, text != texts.end() ? text->second : first);
  return kPLXResult_Success;
}
