#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "PLXFigures.h"
#include "PLXModuleAPI.h"

// Writes a module's line to the server's log, under its name. 'MICl' for a level that is none.
PLXUInt32 PLXWriteModuleLog(std::string_view module_i, std::string_view text_i, PLXUInt32 level_i);

// A module's way to the operator outside any event: a handle that is good on every thread, for lines of the
// log and for figures and for nothing else, from its making to its end. The number of a handle is never used
// twice, so one that was kept longer is refused without looking behind it.
class PLXModuleService {
 public:
  PLXModuleService(std::string module_i, std::shared_ptr<PLXFigures> figures_i, bool isTraced_i);
  // Calls that are being answered on other threads end in peace; none is answered afterwards.
  ~PLXModuleService();
  PLXModuleService(PLXModuleService const&) = delete;
  PLXModuleService& operator=(PLXModuleService const&) = delete;

  PLXConnectionID Handle() const;

  // Answers a support request with a handle that is no running event's. None for one that is no open service
  // handle, or for a request that none takes.
  static std::optional<PLXUInt32> Answer(PLXConnectionID handle_i, PLXUInt32 code_i,
                                         void* const (&words_i)[5]);

 private:
  struct State;
  struct Registry;
  static Registry& OurRegistry();

  std::uint64_t const myNumber;
};
