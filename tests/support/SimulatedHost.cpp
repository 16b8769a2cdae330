#include "SimulatedHost.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <strings.h>

namespace {

// What stands in the slots of a request: 'i' a text in, 'o' a text out, 'b' a text in and out, 'r' raw
// characters with their length, 'd' a double in, if any, 'x' a word in, 'y' a word out, 'v' a value in, 'g' a
// value out; then at the end 'w' a word in or 'n' a number out, in the last slot.
struct Shape {
  char const* slots;
  char const* codes;
};

constexpr Shape ourSupportShapes[] = {{"o", "MMdP MMPP MTag MTBd MAct MADN MARP MVrH MVrP MUPa MUPF"},
                                      {"b", "MNmS MRfA MRDF MUPh MRCP"},
                                      {"i", "MRMN MRMV MRMA MRMD MRVt MUfT MUfA MHRU MRPr"},
                                      {"n", "MGDL PLXD MTPC MPAC MFAC MGPC"},
                                      {"r", "MWtS"},
                                      {"iw", "MWtL MRfT"},
                                      {"ii", "MSEI MSPV MHRS MSRH MVSL MVDL MSPr"},
                                      {"io", "MCGI MGPV MGCk MGPr"},
                                      {"iow", "MTPm MPAr MFAr"},
                                      {"oow", "MTPI MPAI MFAI MGPI"},
                                      {"idw", "MFig"}};

constexpr Shape ourDatabaseShapes[] = {{"", "MTrm"},
                                       {"i", "MIni MDCr MDDl"},
                                       {"n", "MOSF MOCF MOFC MDCt"},
                                       {"x", "MDCl MRCr MRAd MRUp MRDA MSCl MMFR MMLR MMPR MMNR"},
                                       {"ow", "MDNI"},
                                       {"iy", "MDFN"},
                                       {"xi", "MFDl MSEc"},
                                       {"xn", "MFCt MRCt MSRC"},
                                       {"xo", "MDEI MDNm"},
                                       {"xv", "MRDl MMTR"},
                                       {"xx", "MLck MMJp"},
                                       {"oyw", "MOFI"},
                                       {"xig", "MFGV"},
                                       {"xiv", "MFSV"},
                                       {"xix", "MFAd"},
                                       {"xiy", "MFFI MImp"},
                                       {"xoy", "MOFT"},
                                       {"ixyi", "MDOp"},
                                       {"xiyi", "MExp"},
                                       {"xoyw", "MFII"}};

// A code as its letters, a small number as such, anything larger in hexadecimal.
std::string SpellWord(PLXUInt32 word_i) {
  std::string const code = SpellCode(word_i);
  if (std::all_of(code.begin(), code.end(), [](unsigned char letter_i) { return std::isalpha(letter_i); })) {
    return code;
  }
  std::ostringstream text;
  if (word_i >= 0x10000) text << "#" << std::hex << std::uppercase;
  text << word_i;
  return text.str();
}

std::string SpellDouble(double number_i) {
  std::ostringstream text;
  text << number_i;
  return text.str();
}

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

  template <std::size_t kShapes, unsigned kSlots>
  Slots(PLXUInt32 code_i, Shape const (&shapes_i)[kShapes], void* const (&words_i)[kSlots]) {
    call.code = code_i;
    call.sent = SpellCode(code_i);
    auto const shape = std::find_if(std::begin(shapes_i), std::end(shapes_i), [this](Shape const& shape_i) {
      return std::strstr(shape_i.codes, call.sent.c_str()) != nullptr;
    });
    if (shape == std::end(shapes_i)) {
      ADD_FAILURE() << "no such request: " << SpellCode(code_i);
      return;
    }
    unsigned end = kSlots;
    void* const* slot = words_i;
    for (char const* kind = shape->slots; *kind != 0; ++kind) {
      if (*kind == 'w' || *kind == 'n') {
        call.sent += " [";
        TakeWord(words_i[--end], *kind == 'n');
        call.sent += "]";
      } else {
        call.sent += " ";
        slot = Take(*kind, slot);
      }
    }
    for (; slot < words_i + end; ++slot) {
      EXPECT_EQ(*slot, nullptr) << call.sent << ": slot " << slot - words_i + 1 << " is in use";
    }
  }

  // Takes what stands in the next slots; gives the slot behind it.
  void* const* Take(char kind_i, void* const* slot_i) {
    switch (kind_i) {
      case 'x':
      case 'y':
        TakeWord(slot_i[0], kind_i == 'y');
        return slot_i + 1;
      case 'd':
        call.sent += slot_i[0] == nullptr ? "-" : SpellDouble(*static_cast<double const*>(slot_i[0]));
        return slot_i + 1;
      case 'v':
      case 'g':
        TakeValue(kind_i == 'g', slot_i[0], static_cast<PLXUInt32*>(slot_i[1]),
                  static_cast<PLXUInt32*>(slot_i[2]));
        return slot_i + 3;
      default:
        TakeText(kind_i, slot_i[0], static_cast<PLXUInt32*>(slot_i[1]));
        return slot_i + 2;
    }
  }

  void TakeWord(void* word_i, bool isOut_i) {
    PLXUInt32* const word = static_cast<PLXUInt32*>(word_i);
    ASSERT_NE(word, nullptr) << call.sent << ": no word in its slot";
    if (isOut_i) {
      EXPECT_EQ(*word, 0u) << call.sent << ": the number is not cleared";
      number = word;
      call.sent += "?";
    } else {
      call.words.push_back(*word);
      call.sent += SpellWord(*word);
    }
  }

  void TakeValue(bool isOut_i, void* value_i, PLXUInt32 const* type_i, PLXUInt32* size_i) {
    ASSERT_TRUE(value_i != nullptr && type_i != nullptr && size_i != nullptr) << call.sent << ": no value";
    type = *type_i;
    call.sent += SpellWord(type);
    if (type == kPLXValueType_Text) return TakeText(isOut_i ? 'o' : 'i', value_i, size_i);
    EXPECT_EQ(*size_i, type == kPLXValueType_Double ? 8u : 4u) << call.sent << ": the size of the value";
    call.sent += "/" + std::to_string(*size_i);
    if (isOut_i) {
      value = value_i;
      EXPECT_TRUE(IsZero(static_cast<char*>(value_i), *size_i)) << call.sent << ": the value is not cleared";
    } else {
      call.sent += "=" + SpellValue(value_i);
    }
  }

  std::string SpellValue(void const* value_i) const {
    std::ostringstream text;
    if (type == kPLXValueType_Unsigned) text << *static_cast<PLXUInt32 const*>(value_i);
    if (type == kPLXValueType_Signed) text << *static_cast<PLXSInt32 const*>(value_i);
    if (type == kPLXValueType_Double) text << *static_cast<double const*>(value_i);
    return text.str();
  }

  void StoreValue(double value_i) const {
    if (type == kPLXValueType_Unsigned) *static_cast<PLXUInt32*>(value) = static_cast<PLXUInt32>(value_i);
    if (type == kPLXValueType_Signed) *static_cast<PLXSInt32*>(value) = static_cast<PLXSInt32>(value_i);
    if (type == kPLXValueType_Double) *static_cast<double*>(value) = value_i;
  }

  void TakeText(char kind_i, void* address_i, PLXUInt32* size_i) {
    char* const text = static_cast<char*>(address_i);
    ASSERT_NE(text, nullptr) << call.sent << ": no text";
    ASSERT_NE(size_i, nullptr) << call.sent << ": no size";
    ASSERT_GT(*size_i, 0u) << call.sent << ": a size of 0";
    if (kind_i == 'r') {
      AddText(std::string(text, *size_i));
    } else if (kind_i == 'i') {
      EXPECT_EQ(text[*size_i - 1], 0) << call.sent << ": no terminator where the size says";
      AddText(std::string(text, *size_i - 1));
    } else {
      TakeAnswer(kind_i == 'b', text, size_i);
    }
  }

  void AddText(std::string const& text_i) {
    call.texts.push_back(text_i);
    call.sent += "'" + text_i + "'";
  }

  void TakeAnswer(bool holdsText_i, char* text_i, PLXUInt32* size_i) {
    PLXUInt32 const capacity = *size_i;
    std::size_t const length = holdsText_i ? strnlen(text_i, capacity) : 0;
    if (holdsText_i) {
      AddText(std::string(text_i, length));
      EXPECT_LT(length, capacity) << call.sent << ": the text to be rewritten has no terminator";
    }
    EXPECT_TRUE(IsZero(text_i + length, capacity - length)) << call.sent << ": the buffer is not cleared";
    call.sent += ">" + std::to_string(capacity);
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
    auto const found = values_i.find(Text(0));
    return found != values_i.end() ? Store(0, found->second) : kPLXResult_GeneralError;
  }

  std::string Text(std::size_t index_i) const {
    return index_i < call.texts.size() ? call.texts[index_i] : "";
  }

  PLXUInt32 Word() const { return call.words.empty() ? 0 : call.words.back(); }

  Call call;
  std::vector<Answer> answers;
  PLXUInt32* number = nullptr;  // the word to be filled, where there is one
  void* value = nullptr;        // the number to be filled, where there is one
  PLXUInt32 type = 0;           // of the value
};

SimulatedHost::SimulatedHost() : myInfo{this, 0, Support, Database} {}

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
  void* const words[] = {a1, a2, a3, a4, a5};
  Slots slots(code_i, ourSupportShapes, words);
  return static_cast<SimulatedHost*>(connID_i)->Serve(slots);
}

PLXUInt32 SimulatedHost::Database(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1, void* a2, void* a3,
                                  void* a4, void* a5, void* a6) {
  void* const words[] = {a1, a2, a3, a4, a5, a6};
  Slots slots(code_i, ourDatabaseShapes, words);
  return static_cast<SimulatedHost*>(connID_i)->Serve(slots);
}

PLXUInt32 SimulatedHost::Serve(Slots& slots_io) {
  CheckRepeat(slots_io);
  calls.push_back(slots_io.call);
  PLXUInt32 const result = Answer(slots_io);
  calls.back().result = result;
  myNeeds.clear();
  if (result == kPLXResult_BufferTooSmall) {
    for (Slots::Answer const& answer : slots_io.answers) myNeeds.push_back(*answer.size);
  }
  return result;
}

void SimulatedHost::CheckRepeat(Slots const& slots_i) {
  Call const& call = slots_i.call;
  Call const* const previous = calls.empty() ? nullptr : &calls.back();
  bool const isRepeat = previous != nullptr && !myNeeds.empty() && previous->code == call.code;
  myTries = isRepeat ? myTries + 1 : 1;
  if (!isRepeat) return;
  EXPECT_LE(myTries, 2u) << call.sent << ": tried too often";
  EXPECT_EQ(call.texts, previous->texts) << call.sent << ": the second try brings other texts";
  EXPECT_EQ(call.words, previous->words) << call.sent << ": the second try brings other words";
  for (std::size_t index = 0; index < call.capacities.size(); ++index) {
    EXPECT_EQ(call.capacities[index], std::max(previous->capacities[index], myNeeds[index]))
        << call.sent << ": room of the second try";
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
  if (reply_i.answersToo) AnswerFromData(slots_io);
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
  PLXUInt32 index = slots_io.Word();
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
      log.emplace_back(SpellCode(slots_io.Word()), first);
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
  if (slots_io.value != nullptr) slots_io.StoreValue(fieldValue);
  // A text that is rewritten stays as it is unless the test holds another.
  auto const text = texts.find(code);
  if (!slots_io.answers.empty()) return slots_io.Store(0, text != texts.end() ? text->second : first);
  return kPLXResult_Success;
}
