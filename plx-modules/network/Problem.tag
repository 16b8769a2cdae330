#pragma once

#include "PLXModuleAPIGlue.h"

// Tells the page's author what is wrong and how to mend it, both in HTML, and gives the tag its result.
static PLXUInt32 ReportProblem(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 result_i,
                               PLXString const& problem_i, PLXString const& remedy_i) {
  PLXGlueSetErrorInformation(info_i, problem_i, remedy_i);
  return result_i;
}
