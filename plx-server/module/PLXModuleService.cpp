#include "PLXModuleService.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <shared_mutex>

#include "PLXCodeText.h"
#include "PLXLog.h"
#include "PLXModuleConnection.h"
#include "PLXModuleWords.h"

PLXUInt32 PLXWriteModuleLog(std::string_view module_i, std::string_view text_i, PLXUInt32 level_i) {
  std::string const line = std::string(module_i) + ": " + std::string(text_i);
  switch (level_i) {
    case kPLXLogLevel_Note:
      PLXLog::Note(line);
      return kPLXResult_Success;
    case kPLXLogLevel_Warning:
      PLXLog::Warning(line);
      return kPLXResult_Success;
    case kPLXLogLevel_Error:
      PLXLog::Error(line);
      return kPLXResult_Success;
    case kPLXLogLevel_Failure:
      PLXLog::Failure(line);
      return kPLXResult_Success;
    default:
      return kPLXResult_InvalidCall;
  }
}

// What a call works with; shared, so that it outlives a service that ends meanwhile.
struct PLXModuleService::State {
  std::string module;
  std::shared_ptr<PLXFigures> figures;
  bool isTraced;

  PLXUInt32 ChangeFigure(std::string_view text_i, void const* value_i, PLXUInt32 mode_i) const {
    PLXFigures::Answer answer = PLXFigures::Answer::kInvalid;
    double value = 0;
    if (value_i != nullptr) std::memcpy(&value, value_i, sizeof value);
    if (mode_i == kPLXFigure_Describe) {
      answer = figures->Describe(text_i);
    } else if (mode_i == kPLXFigure_Add && value_i != nullptr) {
      answer = figures->Add(text_i, value);
    } else if (mode_i == kPLXFigure_Set && value_i != nullptr) {
      answer = figures->Set(text_i, value);
    }
    if (answer == PLXFigures::Answer::kFull) return kPLXResult_NotAllowed;
    return answer == PLXFigures::Answer::kDone ? kPLXResult_Success : kPLXResult_InvalidCall;
  }

  void Trace(PLXUInt32 code_i, std::string_view text_i, PLXUInt32 word_i, PLXUInt32 result_i) const {
    if (!isTraced) return;
    std::string line = "service " + module + " " + PLXCodeText(code_i);
    AppendTraced(text_i, line);
    PLXLog::Trace(line + " " + PLXCodeText(word_i) + " -> " + PLXCodeText(result_i));
  }
};

struct PLXModuleService::Registry {
  std::shared_mutex mutex;
  std::map<std::uint64_t, std::shared_ptr<State const>> open;  // guarded by mutex
};

// Never destroyed: threads of modules may ask until the process is gone.
PLXModuleService::Registry& PLXModuleService::OurRegistry() {
  static auto* const registry = new Registry;
  return *registry;
}

PLXModuleService::PLXModuleService(std::string module_i, std::shared_ptr<PLXFigures> figures_i,
                                   bool isTraced_i)
    : myNumber(PLXNextHandle()) {
  auto state = std::make_shared<State const>(State{std::move(module_i), std::move(figures_i), isTraced_i});
  Registry& registry = OurRegistry();
  std::unique_lock const lock(registry.mutex);
  registry.open.emplace(myNumber, std::move(state));
}

PLXModuleService::~PLXModuleService() {
  Registry& registry = OurRegistry();
  std::unique_lock const lock(registry.mutex);
  registry.open.erase(myNumber);
}

PLXConnectionID PLXModuleService::Handle() const {
  return reinterpret_cast<PLXConnectionID>(static_cast<std::uintptr_t>(myNumber));
}

std::optional<PLXUInt32> PLXModuleService::Answer(PLXConnectionID handle_i, PLXUInt32 code_i,
                                                  void* const (&words_i)[5]) {
  if (code_i != kPLXSupport_WriteToLog && code_i != kPLXSupport_ChangeFigure) return std::nullopt;
  std::shared_ptr<State const> state;
  {
    Registry& registry = OurRegistry();
    std::shared_lock const lock(registry.mutex);
    auto const found = registry.open.find(reinterpret_cast<std::uintptr_t>(handle_i));
    if (found == registry.open.end()) return std::nullopt;
    state = found->second;
  }
  std::string_view text;
  if (words_i[1] == nullptr || words_i[4] == nullptr ||
      !ReadInText(static_cast<char const*>(words_i[0]), LoadWord(words_i[1]), true, text)) {
    return kPLXResult_InvalidCall;
  }
  PLXUInt32 const word = LoadWord(words_i[4]);
  PLXUInt32 const result = code_i == kPLXSupport_WriteToLog ? PLXWriteModuleLog(state->module, text, word)
                                                            : state->ChangeFigure(text, words_i[2], word);
  state->Trace(code_i, text, word, result);
  return result;
}
