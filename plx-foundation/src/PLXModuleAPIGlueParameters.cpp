#include "PLXHostCall.h"
#include "PLXModuleAPIGlue.h"
#include "PLXStringUtility.h"

// The tag, its parameters and body, and what came with the request.

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;

constexpr unsigned ourRadix = 10;

// What the server left in the buffer, asked for once or twice, whatever the result.
PLXString AskNameUnchecked(Info* info_i, PLXUInt32 code_i) {
  PLXHostCall call(info_i, code_i);
  call.Out().Send();
  return call.GetAnswer();
}

// The value of a name; the default when the server has none.
bool AskValue(PLXHostCall& call_io, PLXString const& name_i, PLXString& value_o, PLXString const& default_i) {
  bool const isFound = call_io.In(name_i).Out().Send();
  value_o = isFound ? call_io.GetAnswer(1) : default_i;
  return isFound;
}

bool AskOccurrence(Info* info_i, PLXUInt32 code_i, PLXString const& name_i, unsigned int index_i,
                   PLXString& value_o, PLXString const& default_i) {
  PLXHostCall call(info_i, code_i);
  return AskValue(call.Word(index_i), name_i, value_o, default_i);
}

PLXString AskValueOrEmpty(Info* info_i, PLXUInt32 code_i, PLXString const& name_i) {
  PLXString value;
  PLXHostCall call(info_i, code_i);
  AskValue(call, name_i, value, PLXString());
  return value;
}

bool AskPair(Info* info_i, PLXUInt32 code_i, unsigned int index_i, PLXString& name_o, PLXString& value_o) {
  PLXHostCall call(info_i, code_i);
  if (!call.Out().Out().Word(index_i).Send()) return false;
  name_o = call.GetAnswer(0);
  value_o = call.GetAnswer(1);
  return true;
}

bool AskTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, PLXString& value_o) {
  return AskOccurrence(info_i, kPLXSupport_GetTagParameter, name_i.GetString(), index_i, value_o,
                       PLXString());
}

// The parameter's value is converted when it is there; otherwise the value is the default.
template <typename T, typename Conversion>
bool GetConverted(Info* info_i, PLXStringID const& name_i, unsigned int index_i, T& value_o,
                  T const& default_i, Conversion const& convert_i) {
  PLXString text;
  if (AskTagParameter(info_i, name_i, index_i, text)) {
    value_o = convert_i(text);
    return true;
  }
  value_o = default_i;
  return false;
}

template <typename T>
bool GetRequired(Info* info_i, PLXStringID const& name_i, unsigned int index_i, T& value_o) {
  if (PLXGlueGetTagParameter(info_i, name_i, index_i, value_o, T())) return true;
  PLXGlueReportMissingTagParameter(info_i, name_i);
  return false;
}

}  // namespace

// ---- Tag and action ----

PLXTag PLXGlueGetTag(Info* info_i) { return PLXTag(AskNameUnchecked(info_i, kPLXSupport_GetTag)); }

PLXStringID PLXGlueGetActionName(Info* info_i) {
  return PLXStringID(AskNameUnchecked(info_i, kPLXSupport_GetActionName), PLXStringID::kIgnoreCase);
}

PLXString PLXGlueGetTagBody(Info* info_i) {
  PLXString body;
  PLXHostCall(info_i, kPLXSupport_GetTagBody).Out().Ask(body);
  return body;
}

// ---- Tag parameters ----

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, PLXString& value_o,
                            PLXString const& default_i) {
  return AskOccurrence(info_i, kPLXSupport_GetTagParameter, name_i.GetString(), index_i, value_o, default_i);
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                            PLXStringID& value_o, PLXStringID const& default_i) {
  return GetConverted(info_i, name_i, index_i, value_o, default_i,
                      [](PLXString const& text_i) { return PLXStringID(text_i, PLXStringID::kIgnoreCase); });
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                            unsigned int& value_o, unsigned int default_i) {
  return GetConverted(info_i, name_i, index_i, value_o, default_i, [](PLXString const& text_i) {
    return static_cast<unsigned int>(PLXStringUtility::GetNumericalRepresentation(text_i, ourRadix));
  });
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, int& value_o,
                            int default_i) {
  return GetConverted(info_i, name_i, index_i, value_o, default_i, [](PLXString const& text_i) {
    return static_cast<int>(PLXStringUtility::GetNumericalRepresentation(text_i, ourRadix));
  });
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, double& value_o,
                            double default_i) {
  return GetConverted(info_i, name_i, index_i, value_o, default_i, [](PLXString const& text_i) {
    return static_cast<double>(PLXStringUtility::GetNumericalRepresentation(text_i));
  });
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, PLXNumber& value_o,
                            PLXNumber const& default_i) {
  // Assigned as a text, so that the number keeps the length and scale it was given.
  return GetConverted(info_i, name_i, index_i, value_o, default_i,
                      [](PLXString const& text_i) -> PLXString const& { return text_i; });
}

bool PLXGlueGetTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i, bool& value_o,
                            bool default_i) {
  return GetConverted(info_i, name_i, index_i, value_o, default_i,
                      [](PLXString const& text_i) { return static_cast<bool>(text_i); });
}

// The article is "An" for every tag; pages' authors know the sentence so.
void PLXGlueReportMissingTagParameter(Info* info_i, PLXStringID const& name_i) {
  PLXString const tag = PLXGlueGetTag(info_i).GetName();
  PLXString const& parameter = name_i.GetString();
  PLXString const problem =
      "An &lt;" + tag + "&gt; tag was found but it is missing its &quot;" + parameter + "&quot; parameter.";
  PLXString const remedy = "Check the &lt;" + tag + "&gt; tag to see if the &quot;" + parameter +
                           "&quot; parameter is missing or misspelled.";
  PLXGlueSetErrorInformation(info_i, problem, remedy);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    PLXString& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    PLXStringID& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    unsigned int& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    int& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    double& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    PLXNumber& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetRequiredTagParameter(Info* info_i, PLXStringID const& name_i, unsigned int index_i,
                                    bool& value_o) {
  return GetRequired(info_i, name_i, index_i, value_o);
}

bool PLXGlueGetTagParameterByIndex(Info* info_i, unsigned int index_i, PLXStringID& name_o,
                                   PLXStringID& value_o) {
  PLXString value;
  if (!PLXGlueGetTagParameterByIndex(info_i, index_i, name_o, value)) return false;
  value_o = PLXStringID(value, PLXStringID::kIgnoreCase);
  return true;
}

bool PLXGlueGetTagParameterByIndex(Info* info_i, unsigned int index_i, PLXStringID& name_o,
                                   PLXString& value_o) {
  PLXString name;
  if (!AskPair(info_i, kPLXSupport_GetTagParameterByIndex, index_i, name, value_o)) return false;
  name_o = PLXStringID(name, PLXStringID::kIgnoreCase);
  return true;
}

PLXUInt32 PLXGlueGetTagParameterCount(Info* info_i) {
  return PLXHostCall(info_i, kPLXSupport_GetTagParameterCount).AskNumber();
}

// ---- Arguments, variables and cookies of the page ----

bool PLXGlueGetPathArgument(Info* info_i, PLXString const& name_i, unsigned int index_i, PLXString& value_o,
                            PLXString const& default_i) {
  return AskOccurrence(info_i, kPLXSupport_GetPathArgument, name_i, index_i, value_o, default_i);
}

bool PLXGlueGetPathArgumentByIndex(Info* info_i, unsigned int index_i, PLXString& name_o,
                                   PLXString& value_o) {
  return AskPair(info_i, kPLXSupport_GetPathArgumentByIndex, index_i, name_o, value_o);
}

PLXUInt32 PLXGlueGetPathArgumentCount(Info* info_i) {
  return PLXHostCall(info_i, kPLXSupport_GetPathArgumentCount).AskNumber();
}

bool PLXGlueGetPostArgument(Info* info_i, PLXString const& name_i, unsigned int index_i, PLXString& value_o,
                            PLXString const& default_i) {
  return AskOccurrence(info_i, kPLXSupport_GetPostArgument, name_i, index_i, value_o, default_i);
}

bool PLXGlueGetPostArgumentByIndex(Info* info_i, unsigned int index_i, PLXString& name_o,
                                   PLXString& value_o) {
  return AskPair(info_i, kPLXSupport_GetPostArgumentByIndex, index_i, name_o, value_o);
}

PLXUInt32 PLXGlueGetPostArgumentCount(Info* info_i) {
  return PLXHostCall(info_i, kPLXSupport_GetPostArgumentCount).AskNumber();
}

PLXString PLXGlueGetCGIEnvironmentVariable(Info* info_i, PLXString const& name_i) {
  return AskValueOrEmpty(info_i, kPLXSupport_GetCGIEnvironmentVariable, name_i);
}

bool PLXGlueSetPageVariable(Info* info_i, PLXString const& name_i, PLXString const& value_i) {
  return PLXHostCall(info_i, kPLXSupport_SetPageVariable).In(name_i).In(value_i).Send();
}

bool PLXGlueGetPageVariable(Info* info_i, PLXString const& name_i, PLXString& value_o,
                            PLXString const& default_i) {
  PLXHostCall call(info_i, kPLXSupport_GetPageVariable);
  return AskValue(call, name_i, value_o, default_i);
}

bool PLXGlueGetPageVariableByIndex(Info* info_i, unsigned int index_i, PLXString& name_o,
                                   PLXString& value_o) {
  return AskPair(info_i, kPLXSupport_GetPageVariableByIndex, index_i, name_o, value_o);
}

PLXUInt32 PLXGlueGetPageVariableCount(Info* info_i) {
  return PLXHostCall(info_i, kPLXSupport_GetPageVariableCount).AskNumber();
}

PLXString PLXGlueGetCookie(Info* info_i, PLXString const& name_i) {
  return AskValueOrEmpty(info_i, kPLXSupport_GetCookie, name_i);
}
