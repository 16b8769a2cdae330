#include <algorithm>
#include <cstddef>
#include <optional>

#include "PLXASCII.h"
#include "PLXCGIVariables.h"
#include "PLXLog.h"
#include "PLXModuleConnection.h"
#include "PLXPagePieces.h"
#include "PLXTagText.h"

// What each request of a module is answered. The texts are checked already and the event is the right one;
// the context is there wherever the request's row asks for it.

namespace {

constexpr std::size_t kAnnouncedText_MaximumBytes = 255;

using NameValues = std::vector<PLXNameValue>;

bool IsAnnounceable(std::string_view text_i) {
  return text_i.size() <= kAnnouncedText_MaximumBytes &&
         std::none_of(text_i.begin(), text_i.end(),
                      [](char byte) { return (byte >= 0 && byte < ' ') || byte == 0x7F; });
}

// Resolves ".", ".." and empty steps. An absolute path stays below "/"; a relative one keeps the ".." it
// begins with. A path to a folder ("/" at its end, or a last step of "." or "..") keeps one "/" at its end.
// Never longer than the input, except that what comes to nothing is ".".
std::string NormalizedPath(std::string_view path_i) {
  bool const isAbsolute = path_i.starts_with('/');
  std::vector<std::string_view> steps;
  bool endsInFolder = false;
  for (std::size_t begin = 0; begin <= path_i.size();) {
    std::size_t const end = std::min(path_i.find('/', begin), path_i.size());
    std::string_view const step = path_i.substr(begin, end - begin);
    begin = end + 1;
    endsInFolder = step.empty() || step == "." || step == "..";
    if (step.empty() || step == ".") continue;
    if (step != ".." || (!isAbsolute && (steps.empty() || steps.back() == ".."))) {
      steps.push_back(step);
      endsInFolder = endsInFolder && step != "..";
    } else if (!steps.empty()) {
      steps.pop_back();
    }
  }
  std::string path = isAbsolute ? "/" : "";
  for (std::size_t index = 0; index < steps.size(); ++index) {
    if (index > 0) path += '/';
    path += steps[index];
  }
  if (steps.empty() && !isAbsolute) return path_i.empty() ? "" : ".";
  if (endsInFolder && !steps.empty()) path += '/';
  return path;
}

int HexDigit(char byte_i) {
  char const lower = LowerASCII(byte_i);
  if (lower >= '0' && lower <= '9') return lower - '0';
  if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
  return -1;
}

// A broken escape stays as it is, as it does in a query.
std::string WithoutEscapes(std::string_view text_i) {
  std::string text;
  text.reserve(text_i.size());
  for (std::size_t index = 0; index < text_i.size(); ++index) {
    bool const isEscape = text_i[index] == '%' && index + 2 < text_i.size() &&
                          HexDigit(text_i[index + 1]) >= 0 && HexDigit(text_i[index + 2]) >= 0;
    if (isEscape) {
      text += static_cast<char>(HexDigit(text_i[index + 1]) * 16 + HexDigit(text_i[index + 2]));
      index += 2;
    } else {
      text += text_i[index];
    }
  }
  return text;
}

std::string AsFolder(std::string path_i) {
  if (!path_i.ends_with('/')) path_i += '/';
  return path_i;
}

// Headers that say how the answer travels: the server alone knows.
bool IsServerHeader(std::string_view name_i) {
  static constexpr std::string_view ourNames[] = {
      "Connection", "Content-Length", "Keep-Alive", "Proxy-Connection",
      "TE",         "Trailer",        "Upgrade",    "Transfer-Encoding"};
  return std::any_of(std::begin(ourNames), std::end(ourNames),
                     [&](std::string_view name) { return EqualIgnoringCase(name, name_i); });
}

}  // namespace

// ---- Server, module and log ------------------------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::GetModulePath(Call& call_io) {
  call_io.out[0] = myModule.description.file.native();
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetModuleParentFolderPath(Call& call_io) {
  return call_io.Answer(AsFolder(myModule.description.file.parent_path().native()));
}

PLXUInt32 PLXModuleHost::Connection::WriteToServer(Call& call_io) {
  myOutcome.html.append(call_io.in[0]);
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::WriteToLog(Call& call_io) {
  return PLXWriteModuleLog(myModule.description.name, call_io.in[0], call_io.number);
}

PLXUInt32 PLXModuleHost::Connection::SetErrorInformation(Call& call_io) {
  myOutcome.problem = call_io.in[0];
  myOutcome.remedy = call_io.in[1];
  myOutcome.hasProblem = true;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::NormalizeString(Call& call_io) {
  return call_io.Answer(NormalizedPath(call_io.in[0]));
}

PLXUInt32 PLXModuleHost::Connection::GetDefaultLanguage(Call& call_io) {
  call_io.number = 0;
  return kPLXResult_Success;
}

// The same number for the same file, in every process and after every start (FNV-1a). Never 0.
PLXUInt32 PLXModuleHost::Connection::GetPageID(Call& call_io) {
  PLXUInt32 number = 2166136261u;
  for (char const byte : myEvent.context->file.native()) {
    number = (number ^ static_cast<unsigned char>(byte)) * 16777619u;
  }
  call_io.number = number == 0 ? 1 : number;
  return kPLXResult_Success;
}

// ---- Announcement ----------------------------------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::RefuseAnnouncement(std::string const& sentence_i) {
  PLXLog::Warning(myModule.description.name + " (" + myModule.description.file.native() + "): " + sentence_i);
  myModule.refusals += sentence_i + " ";
  return kPLXResult_NotAllowed;
}

PLXUInt32 PLXModuleHost::Connection::RegisterName(Call& call_io) {
  if (call_io.in[0].empty() || !IsAnnounceable(call_io.in[0])) {
    return RefuseAnnouncement("Its name is empty, over 255 bytes or holds control characters.");
  }
  myModule.description.name = call_io.in[0];
  myModule.isNamed = true;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::RegisterVersion(Call& call_io) {
  myModule.description.version = call_io.in[0];
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::RegisterAuthor(Call& call_io) {
  myModule.description.author = call_io.in[0];
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::RegisterDeveloperID(Call&) {
  return kPLXResult_Success;  // nothing here tells makers apart by a number
}

PLXUInt32 PLXModuleHost::Connection::RegisterVersionTracker(Call& call_io) {
  myModule.description.versionTracker = call_io.in[0];
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::RegisterForTag(Call& call_io) {
  std::string const name(call_io.in[0]);
  if (name.size() > kAnnouncedText_MaximumBytes || name.size() <= 3 || ReadTagName(name, 0) != name.size()) {
    return RefuseAnnouncement("No page can name the tag \"" + name +
                              "\": a tag's name is \"plx\" with letters, digits, \"_\" or \"-\".");
  }
  if (IsServerTag(name)) return RefuseAnnouncement("The tag <" + name + "> is the server's own.");
  auto const [entry, isNew] = myHost.myTags.try_emplace(name, &myModule, Tag{name, call_io.number});
  if (!isNew && entry->second.first != &myModule) {
    return RefuseAnnouncement("The tag <" + name + "> belongs to " + entry->second.first->description.name +
                              " already, which keeps it.");
  }
  entry->second.second.flags = call_io.number;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::UnregisterForTag(Call& call_io) {
  auto const found = myHost.myTags.find(call_io.in[0]);
  if (found == myHost.myTags.end() || found->second.first != &myModule) return kPLXResult_NotFound;
  myHost.myTags.erase(found);
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::RegisterForAction(Call& call_io) {
  std::string const name(call_io.in[0]);
  if (name.empty() || !IsAnnounceable(name) || name.find('/') != std::string::npos) {
    return RefuseAnnouncement("The action \"" + name + "\" cannot be the last step of a path.");
  }
  auto const [entry, isNew] = myHost.myActions.try_emplace(name, &myModule);
  if (!isNew && entry->second != &myModule) {
    return RefuseAnnouncement("The action \"" + name + "\" belongs to " + entry->second->description.name +
                              " already, which keeps it.");
  }
  call_io.out[0] = entry->first;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::UnregisterForAction(Call& call_io) {
  auto const found = myHost.myActions.find(call_io.in[0]);
  if (found == myHost.myActions.end() || found->second != &myModule) return kPLXResult_NotFound;
  myHost.myActions.erase(found);
  return kPLXResult_Success;
}

// ---- Tag, arguments, variables and cookies ---------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::AnswerByName(NameValues const& list_i, bool ignoreCase_i,
                                                  Call& call_io) {
  PLXNameValue const* const found = FindNameValue(list_i, call_io.in[0], call_io.number, ignoreCase_i);
  if (found == nullptr) return kPLXResult_NotFound;
  call_io.out[0] = found->value;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::AnswerByIndex(NameValues const& list_i, Call& call_io) {
  if (call_io.number >= list_i.size()) return kPLXResult_NotFound;
  call_io.out[0] = list_i[call_io.number].name;
  call_io.out[1] = list_i[call_io.number].value;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::AnswerCount(NameValues const& list_i, Call& call_io) {
  call_io.number = static_cast<PLXUInt32>(list_i.size());
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetTag(Call& call_io) {
  call_io.out[0] = myEvent.tag->name;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetTagParameter(Call& call_io) {
  return AnswerByName(myEvent.tag->parameters, true, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetTagParameterByIndex(Call& call_io) {
  return AnswerByIndex(myEvent.tag->parameters, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetTagParameterCount(Call& call_io) {
  return AnswerCount(myEvent.tag->parameters, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetTagBody(Call& call_io) {
  call_io.out[0] = myEvent.tag->body;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetActionName(Call& call_io) {
  call_io.out[0] = myEvent.action;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetPathArgument(Call& call_io) {
  return AnswerByName(myEvent.context->request.pathArguments, false, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPathArgumentByIndex(Call& call_io) {
  return AnswerByIndex(myEvent.context->request.pathArguments, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPathArgumentCount(Call& call_io) {
  return AnswerCount(myEvent.context->request.pathArguments, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPostArgument(Call& call_io) {
  return AnswerByName(myEvent.context->request.postArguments, false, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPostArgumentByIndex(Call& call_io) {
  return AnswerByIndex(myEvent.context->request.postArguments, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPostArgumentCount(Call& call_io) {
  return AnswerCount(myEvent.context->request.postArguments, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetCGIVariable(Call& call_io) {
  // A module finds the password of Basic credentials here and checks it with 'MVDL'; a page never sees it.
  if (EqualIgnoringCase(call_io.in[0], "AUTH_TYPE")) {
    myEvent.context->passwordWasRead = true;
    if (!myEvent.context->request.hasCredentials) return kPLXResult_NotFound;
    call_io.out[0] = myEvent.context->request.password;
    return kPLXResult_Success;
  }
  std::optional<std::string> value = CGIVariable(call_io.in[0], *myEvent.context);
  return value ? call_io.Answer(std::move(*value)) : kPLXResult_NotFound;
}

PLXUInt32 PLXModuleHost::Connection::SetPageVariable(Call& call_io) {
  if (call_io.in[0].empty()) return kPLXResult_InvalidCall;
  for (PLXNameValue& variable : myEvent.context->variables) {
    if (!EqualIgnoringCase(variable.name, call_io.in[0])) continue;
    variable.value = call_io.in[1];
    return kPLXResult_Success;
  }
  myEvent.context->variables.push_back({std::string(call_io.in[0]), std::string(call_io.in[1])});
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetPageVariable(Call& call_io) {
  return AnswerByName(myEvent.context->variables, true, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPageVariableByIndex(Call& call_io) {
  return AnswerByIndex(myEvent.context->variables, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetPageVariableCount(Call& call_io) {
  return AnswerCount(myEvent.context->variables, call_io);
}

PLXUInt32 PLXModuleHost::Connection::GetCookie(Call& call_io) {
  myEvent.context->isPersonal = true;
  return AnswerByName(myEvent.context->request.cookies, false, call_io);
}

// ---- HTTP response ---------------------------------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::SetResponseStatus(Call& call_io) {
  std::string_view const status = call_io.in[0];
  std::string_view const reason = call_io.in[1];
  bool const isNumber = status.size() == 3 && std::all_of(status.begin(), status.end(), [](char byte) {
                          return byte >= '0' && byte <= '9';
                        });
  // What is below 200 announces an answer that is still to come.
  if (!isNumber || status[0] < '2' || status[0] > '5' || !IsAnnounceable(reason))
    return kPLXResult_InvalidCall;
  myEvent.context->response.status = (status[0] - '0') * 100 + (status[1] - '0') * 10 + (status[2] - '0');
  myEvent.context->response.reason = reason;
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::SetResponseHeader(Call& call_io) {
  if (IsServerHeader(call_io.in[0])) return kPLXResult_NotAllowed;
  return myEvent.context->response.SetHeader(call_io.in[0], call_io.in[1]) ? kPLXResult_Success
                                                                           : kPLXResult_NotAllowed;
}

PLXUInt32 PLXModuleHost::Connection::SetResponseURI(Call& call_io) {
  PLXResponse& response = myEvent.context->response;
  if (call_io.in[0].empty() || !response.SetHeader("Location", call_io.in[0])) return kPLXResult_NotAllowed;
  if (response.status == 200) {
    response.status = 302;
    response.reason.clear();
  }
  return kPLXResult_Success;
}

// ---- Administration, region and paths --------------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::GetAdminDomainName(Call& call_io) {
  call_io.out[0] = myEvent.context->site.Name();
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetAdminRegionPath(Call& call_io) {
  call_io.out[0] = myEvent.context->region.Path();
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetVirtualHost(Call& call_io) {
  PLXPageContext const& context = *myEvent.context;
  std::vector<std::string> const& hosts = context.site.Configuration().hosts;
  if (!context.request.host.empty()) {
    call_io.out[0] = context.request.host;
  } else if (!hosts.empty()) {
    call_io.out[0] = hosts.front();
  } else {
    return kPLXResult_NotFound;
  }
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetVirtualRootPath(Call& call_io) {
  return call_io.Answer(AsFolder(myEvent.context->site.Root().native()));
}

PLXUInt32 PLXModuleHost::Connection::GetURLPath(Call& call_io) {
  if (myEvent.context->file.empty()) return kPLXResult_NotFound;
  call_io.out[0] = myEvent.context->file.native();
  return kPLXResult_Success;
}

PLXUInt32 PLXModuleHost::Connection::GetURLParentFolderPath(Call& call_io) {
  if (myEvent.context->file.empty()) return kPLXResult_NotFound;
  return call_io.Answer(AsFolder(myEvent.context->file.parent_path().native()));
}

PLXUInt32 PLXModuleHost::Connection::GetRegionDataFolderPath(Call& call_io) {
  auto const folder = myEvent.context->region.DataFolder(call_io.in[0]);
  return folder ? call_io.Answer(AsFolder(folder->native())) : kPLXResult_NotFound;
}

// A relative URL starts at the page's own, as a link in the page would.
PLXUInt32 PLXModuleHost::Connection::MapURLToPhysicalPath(Call& call_io) {
  std::string url(call_io.in[0].substr(0, call_io.in[0].find_first_of("?#")));
  if (!url.starts_with('/')) {
    std::string const& page = myEvent.context->scriptName;
    url.insert(0, page.empty() ? "/" : page.substr(0, page.rfind('/') + 1));
  }
  auto const path = myEvent.context->site.MapPath(NormalizedPath(WithoutEscapes(url)));
  if (!path) return kPLXResult_NotFound;
  std::error_code error;
  bool const isFolder = url.ends_with('/') || std::filesystem::is_directory(*path, error);
  return call_io.Answer(isFolder ? AsFolder(path->native()) : path->native());
}

PLXUInt32 PLXModuleHost::Connection::VerifyRegionContainsFile(Call& call_io) {
  auto const path = myEvent.context->region.Contain(call_io.in[0]);
  return path ? call_io.Answer(path->native()) : kPLXResult_NotFound;
}

// ---- Logins and preferences ------------------------------------------------------------------------------

PLXUInt32 PLXModuleHost::Connection::ValidateServerLogin(Call& call_io) {
  return IsAccepted(myHost.myServerLogins, call_io);
}

PLXUInt32 PLXModuleHost::Connection::ValidateDomainLogin(Call& call_io) {
  return IsAccepted(myHost.DomainLogins(myEvent.context->region.LoginsFile()), call_io);
}

PLXUInt32 PLXModuleHost::Connection::IsAccepted(PLXLoginStore& logins_io, Call const& call_i) {
  if (call_i.in[0].empty() || call_i.in[1].empty()) return kPLXResult_NotAuthorized;
  return logins_io.Verify(call_i.in[0], call_i.in[1]) ? kPLXResult_Success : kPLXResult_NotAuthorized;
}

PLXUInt32 PLXModuleHost::Connection::SetPreference(Call& call_io) {
  if (call_io.in[0].empty()) return kPLXResult_InvalidCall;
  bool const isSet = myHost.myPreferences.Set(myEvent.context->region.Key(), myModule.description.name,
                                              call_io.in[0], call_io.in[1]);
  if (!isSet) ReportPreferences();
  return isSet ? kPLXResult_Success : kPLXResult_GeneralError;
}

PLXUInt32 PLXModuleHost::Connection::GetPreference(Call& call_io) {
  auto value =
      myHost.myPreferences.Get(myEvent.context->region.Key(), myModule.description.name, call_io.in[0]);
  return value ? call_io.Answer(std::move(*value)) : kPLXResult_NotFound;
}

PLXUInt32 PLXModuleHost::Connection::RemovePreference(Call& call_io) {
  bool const isGone =
      myHost.myPreferences.Remove(myEvent.context->region.Key(), myModule.description.name, call_io.in[0]);
  if (!isGone) ReportPreferences();
  return isGone ? kPLXResult_Success : kPLXResult_GeneralError;
}

// Whoever saves preferences is told that they were not kept, whether or not the module looks at the answer.
void PLXModuleHost::Connection::ReportPreferences() {
  if (myEvent.code != kPLXEvent_SetPreferences || myOutcome.hasProblem) return;
  myOutcome.hasProblem = true;
  myOutcome.problem = "Not every preference could be kept.";
  myOutcome.remedy = "Look into the server's log for the reason, and save them again.";
}
