#include <algorithm>
#include <ctime>
#include <system_error>

#include "PLXAdministration.h"
#include "PLXLog.h"
#include "PLXRequestOrigin.h"
#include "PLXServer.h"
#include "PLXServerPlan.h"
#include "PLXStaticFile.h"

// The way of a request: Dispose makes a plan on the I/O thread, with a look at the disk and nothing slower.
// What can be answered from there is; the rest is carried out by Answer on a thread that may block.

namespace fs = std::filesystem;

namespace {

// Never looked for on the disk, so that no file of a site can stand in for it.
constexpr std::string_view kAdministrationPath = "/plx-admin";
constexpr std::string_view kStatusPath = "/plx-status";  // leads to the administration's first page

// A module may put a user's name into a search, where an apostrophe makes a condition of it: one user then
// has as many names as a guesser likes. They count as one name, of which no success clears the failures.
constexpr std::string_view kNamesWithApostrophes = "'";

std::string_view CountedUser(std::string_view user_i) {
  return user_i.find('\'') == std::string_view::npos ? user_i : kNamesWithApostrophes;
}

bool IsKnownMethod(std::string_view method_i) {
  for (char const* name : {"GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT"}) {
    if (method_i == name) return true;
  }
  return false;
}

bool IsReading(std::string_view method_i) { return method_i == "GET" || method_i == "HEAD"; }

bool IsAdministration(std::string_view path_i) {
  return path_i == kAdministrationPath || path_i == kStatusPath ||
         path_i.starts_with(std::string(kAdministrationPath) + "/");
}

// The host that the client means: of the target when that is a whole address (RFC 9112, section 3.2.2), else
// of Host.
std::string_view AskedAuthority(PLXRequest const& request_i) {
  std::string_view const target = request_i.target;
  auto const slashes = target.find("://");
  if (target.starts_with('/') || slashes == std::string_view::npos) return request_i.Header("Host");
  std::string_view authority = target.substr(slashes + 3);
  authority = authority.substr(0, authority.find_first_of("/?#"));
  return authority.substr(authority.rfind('@') + 1);
}

// The name of "name:port" or "[address]:port", in lower case, without a root dot.
std::string HostName(std::string_view authority_i) {
  auto const end = authority_i.starts_with('[') ? authority_i.find(']') + 1 : authority_i.find(':');
  std::string name(authority_i.substr(0, end));
  for (char& character : name) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  if (name.size() > 1 && name.ends_with('.')) name.pop_back();
  return name;
}

// Whether the file is a download by the path that was asked for, or by the path where it really lies: a link
// into a folder that visitors can fill makes no page of what they put there.
bool IsDownload(PLXSite const& site_i, std::string_view path_i, fs::path const& file_i) {
  if (site_i.IsDownload(path_i)) return true;
  std::string const& root = site_i.Root().native();
  std::string_view const file = file_i.native();
  return file.starts_with(root) && site_i.IsDownload(file.substr(root.size() - 1));
}

// For a field of the access log that stands in quotes.
std::string Quoted(std::string_view text_i) {
  constexpr char kDigits[] = "0123456789abcdef";
  if (text_i.empty()) return "\"-\"";
  std::string out = "\"";
  for (char const character : text_i) {
    auto const byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      out += "\\x";
      out += kDigits[byte >> 4];
      out += kDigits[byte & 15];
    } else {
      if (character == '"' || character == '\\') out += '\\';
      out += character;
    }
  }
  return out += '"';
}

// An address without the "user:password@" that it may carry.
std::string WithoutUser(std::string_view address_i) {
  auto const slashes = address_i.find("://");
  if (slashes == std::string_view::npos) return std::string(address_i);
  auto const begin = slashes + 3;
  auto const authority = address_i.substr(begin, address_i.find_first_of("/?#", begin) - begin);
  auto const at = authority.rfind('@');
  if (at == std::string_view::npos) return std::string(address_i);
  return std::string(address_i.substr(0, begin)) + std::string(address_i.substr(begin + at + 1));
}

// The user is a bare word of the line, so a blank in it is escaped as well.
std::string LoggedUser(PLXRequest const& request_i) {
  if (!request_i.hasCredentials || request_i.user.empty()) return "-";
  std::string const quoted = Quoted(request_i.user);
  std::string user;
  for (char const character : quoted.substr(1, quoted.size() - 2)) {
    if (character == ' ') {
      user += "\\x20";
    } else {
      user += character;
    }
  }
  return user;
}

std::string LogTime() {
  std::time_t const now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[40];
  std::strftime(text, sizeof text, "[%d/%b/%Y:%H:%M:%S +0000]", &parts);
  return text;
}

PLXResponse Unauthorized(PLXRegion const& region_i) {
  PLXResponse response = ErrorPage(401, "This part of the site asks for a login.");
  // Region keys hold letters, digits and hyphens around a slash, nothing that would end the quotes.
  response.SetHeader("WWW-Authenticate", "Basic realm=\"" + region_i.Key() + "\", charset=\"UTF-8\"");
  return response;
}

// The page is off the list of those that wait for an include, however its rendering ends.
class RunningPage {
 public:
  RunningPage(PLXActiveRequests& active_i, std::uint64_t id_i) : myActive(active_i), myID(id_i) {
    myActive.Begin(myID);
  }
  ~RunningPage() { myActive.End(myID); }

 private:
  PLXActiveRequests& myActive;
  std::uint64_t const myID;
};

}  // namespace

// ---- Dispose
// -------------------------------------------------------------------------------------------------

PLXDisposition PLXServer::Dispose(PLXRequest& request_io) {
  auto plan = std::make_shared<Plan>();
  plan->generation = Current();
  FindSite(request_io, *plan);
  plan->scriptName = EncodePath(request_io.path);
  if (!IsKnownMethod(request_io.method)) {
    plan->Refuse(501, "This server does not know the method of the request.");
  } else if (IsAdministration(request_io.path)) {
    PlanAdministration(request_io, *plan);
  } else {
    plan->region = &plan->site->RegionOf(request_io.path);
    if (FindDepth(request_io, *plan)) PlanPath(request_io, *plan);
  }
  return DisposePlan(request_io, plan);
}

// A name that is not configured must not come back in links and callbacks, nor must a port that a client made
// up: the site's own name and the port that is really listened on stand for it.
void PLXServer::FindSite(PLXRequest& request_io, Plan& plan_io) const {
  std::string name = HostName(AskedAuthority(request_io));
  plan_io.site = name.empty() ? nullptr : plan_io.generation->sites.FindHost(name);
  if (!plan_io.site) {
    plan_io.site = &plan_io.generation->sites.First();
    name = plan_io.site->Configuration().hosts.front();
    if (name.find(':') != std::string::npos && !name.starts_with('[')) name = "[" + name + "]";
  }
  request_io.host = name;
  if (request_io.serverPort != 80) request_io.host += ":" + std::to_string(request_io.serverPort);
}

// A request from this machine whose referer is a page that runs right now was made by a tag of that page.
bool PLXServer::FindDepth(PLXRequest& request_io, Plan& plan_io) const {
  if (!request_io.isFromThisMachine) return true;
  std::string_view referer = request_io.Header("Referer");
  referer = referer.substr(0, referer.find_first_of("?#"));
  unsigned depth = 0;
  if (referer.empty() || !myActive.DepthOf(std::string(referer), depth)) return true;
  plan_io.isIncluded = true;
  request_io.includeDepth = depth + 1;
  unsigned const limit = plan_io.generation->Configuration().limits.includeDepth;
  if (request_io.includeDepth <= limit) return true;
  plan_io.Refuse(508,
                 "Pages of this server include each other more than " + std::to_string(limit) +
                     " deep, probably in a ring. Take the tag out of one of them that includes another.");
  PLXLog::Warning(request_io.host + plan_io.scriptName + ", included by " + std::string(referer) +
                  ": refused, pages include each other more than " + std::to_string(limit) + " deep");
  return false;
}

void PLXServer::PlanAdministration(PLXRequest const& request_i, Plan& plan_io) const {
  if (!IsReading(request_i.method) && request_i.method != "POST") {
    plan_io.Refuse(405, "The administration answers GET, HEAD and POST.");
    plan_io.answer.SetHeader("Allow", "GET, HEAD, POST");
  } else if (request_i.path == kAdministrationPath) {
    plan_io.Refuse(301, "The administration is at /plx-admin/.");
    plan_io.answer.SetHeader("Location", "/plx-admin/");
  } else if (request_i.path == kStatusPath) {
    plan_io.Refuse(303, "The status of this server is at /plx-admin/.");
    plan_io.answer.SetHeader("Location", "/plx-admin/");
  } else {
    plan_io.what = Plan::What::kAdministration;
  }
}

void PLXServer::PlanPath(PLXRequest const& request_i, Plan& plan_io) const {
  auto const file = plan_io.site->MapPath(request_i.path);
  if (!file) return PlanMissing(request_i, plan_io);
  plan_io.file = *file;
  bool const isThere = ::stat(file->c_str(), &plan_io.state) == 0;
  if (isThere && S_ISDIR(plan_io.state.st_mode)) return PlanFolder(request_i, plan_io);
  bool const isFile = isThere && S_ISREG(plan_io.state.st_mode);
  if (!isFile || request_i.path.ends_with('/')) return PlanMissing(request_i, plan_io);
  plan_io.isDownload = IsDownload(*plan_io.site, request_i.path, *file);
  PlanFile(request_i, plan_io);
}

void PLXServer::PlanFolder(PLXRequest const& request_i, Plan& plan_io) const {
  if (!request_i.path.ends_with('/')) {
    plan_io.Refuse(301, "The address of this folder ends in a slash.");
    std::string location = EncodePath(request_i.path) + "/";
    if (!request_i.query.empty()) location += "?" + request_i.query;
    plan_io.answer.SetHeader("Location", location);
    return;
  }
  for (std::string const& index : plan_io.site->Configuration().indexes) {
    auto const file = plan_io.site->MapPath(request_i.path + index);
    if (!file || ::stat(file->c_str(), &plan_io.state) != 0 || !S_ISREG(plan_io.state.st_mode)) continue;
    plan_io.file = *file;
    plan_io.isDownload = IsDownload(*plan_io.site, request_i.path + index, *file);
    return PlanFile(request_i, plan_io);
  }
  PlanMissing(request_i, plan_io);
}

void PLXServer::PlanFile(PLXRequest const& request_i, Plan& plan_io) const {
  bool const isPage = !plan_io.isDownload && plan_io.site->IsPage(plan_io.file);
  if (!plan_io.isDownload && plan_io.site->IsCopyOfPage(plan_io.file)) return PlanMissing(request_i, plan_io);
  plan_io.what = isPage ? Plan::What::kPage : Plan::What::kFile;
  if (isPage && request_i.method == "POST") return PlanPost(request_i, plan_io);
  if (IsReading(request_i.method)) return;
  plan_io.Refuse(405, isPage ? "A page answers GET, HEAD and POST." : "A file answers GET and HEAD.");
  plan_io.answer.SetHeader("Allow", isPage ? "GET, HEAD, POST" : "GET, HEAD");
}

void PLXServer::PlanPost(PLXRequest const& request_i, Plan& plan_io) const {
  if (MayPost(request_i, *plan_io.region)) return;
  plan_io.Refuse(
      403,
      "This form was sent by a page of another site, and could do something with the login or the "
      "cookies that your browser keeps for this one. It was not taken. Open the page here and send it "
      "from there.");
  PLXLog::Warning("a post to " + plan_io.scriptName + " of region " + plan_io.region->Key() +
                  " was refused: it came from another site's page (" + Quoted(request_i.Header("Origin")) +
                  "), client " + request_i.remoteAddress + ". The region's key \"foreign-posts\" allows it.");
}

void PLXServer::PlanMissing(PLXRequest const& request_i, Plan& plan_io) const {
  std::string_view const path = request_i.path;
  std::string_view const name = path.substr(path.rfind('/') + 1);
  if (name.empty() || !myModules->HasAction(name))
    return plan_io.Refuse(404, "There is no such page or file here.");
  if (!request_i.isFromThisMachine) {
    return plan_io.Refuse(403,
                          "Actions are for this server itself: they are accepted from its own machine only.");
  }
  if (!MayCallAction(request_i, *plan_io.site)) {
    return plan_io.Refuse(403, "Actions are for this server itself: no page in a browser may call one.");
  }
  if (!IsReading(request_i.method) && request_i.method != "POST") {
    plan_io.Refuse(405, "An action answers GET, HEAD and POST.");
    plan_io.answer.SetHeader("Allow", "GET, HEAD, POST");
    return;
  }
  plan_io.what = Plan::What::kAction;
  plan_io.action = name;
}

PLXDisposition PLXServer::DisposePlan(PLXRequest& request_io, std::shared_ptr<Plan> const& plan_i) {
  Plan& plan = *plan_i;
  PLXDisposition disposition;
  // An action carries no login of a visitor: it comes from a module of this server, which nobody can log in.
  bool const guarded = plan.region && plan.region->RequiresLogin() && plan.what != Plan::What::kAction;
  if (guarded && !request_io.hasCredentials) {
    plan.what = Plan::What::kAnswer;
    plan.answer = Unauthorized(*plan.region);
  } else if (guarded) {
    disposition.kind =
        PLXDisposition::Kind::kPage;  // checking a password takes a thread that may be busy for long
  } else if (plan.what == Plan::What::kFile) {
    disposition = AnswerFile(request_io, plan.file, plan.isDownload, &plan.state);
  } else if (plan.what == Plan::What::kAdministration) {
    disposition.kind = PLXDisposition::Kind::kAdministration;
  } else if (IsShownAtOnce(request_io, plan)) {
    disposition.answer = Answer(request_io, plan_i);
    return disposition;
  } else if (plan.what != Plan::What::kAnswer) {
    disposition.kind = PLXDisposition::Kind::kPage;
  }
  if (disposition.kind == PLXDisposition::Kind::kAnswer) {
    if (plan.what == Plan::What::kAnswer) disposition.answer = std::move(plan.answer);
    plan.generation->AddHeaders(disposition.answer, plan.region);
    return disposition;
  }
  if (disposition.kind == PLXDisposition::Kind::kFile)
    plan.generation->AddHeaders(disposition.fileAnswer.response, plan.region);
  disposition.neverQueued = plan.isIncluded;
  disposition.isForModules = plan.what == Plan::What::kAction;
  disposition.state = plan_i;
  AddActive(request_io, plan);
  return disposition;
}

// A page without tags waits for nothing, so there is no need of a thread for it: a visit costs half as much.
// Where there may be a body or a password to look at, it takes the usual way.
bool PLXServer::IsShownAtOnce(PLXRequest const& request_i, Plan& plan_io) {
  bool const isPlain = plan_io.what == Plan::What::kPage && IsReading(request_i.method) &&
                       !request_i.hasCredentials && request_i.Header("Content-Length").empty() &&
                       request_i.Header("Transfer-Encoding").empty();
  if (!isPlain) return false;
  plan_io.page = myPages->GetKept(plan_io.file, plan_io.state);
  return plan_io.page && plan_io.page->IsQuick();
}

void PLXServer::AddActive(PLXRequest const& request_i, Plan const& plan_i) {
  static constexpr char const* kNames[] = {"answer", "file", "page", "action", "administration"};
  PLXActiveRequests::Entry entry;
  entry.id = request_i.id;
  entry.method = request_i.method;
  entry.address = request_i.remoteAddress;
  entry.url = "http://" + request_i.host + plan_i.scriptName;
  entry.what = kNames[static_cast<int>(plan_i.what)];
  entry.includeDepth = request_i.includeDepth;
  entry.since = std::chrono::steady_clock::now();
  entry.stage = plan_i.what == Plan::What::kFile ? PLXActiveRequests::Stage::kSending
                                                 : PLXActiveRequests::Stage::kWaiting;
  myActive.Add(std::move(entry));
}

// ---- Answer
// --------------------------------------------------------------------------------------------------

PLXResponse PLXServer::Answer(PLXRequest& request_io, std::shared_ptr<void> const& state_i) {
  Plan const& plan = *static_cast<Plan const*>(state_i.get());
  PLXResponse response;
  Privacy privacy = Privacy::kOpen;
  try {
    RunningPage const running(myActive, request_io.id);
    response = AnswerPlan(request_io, plan, privacy);
  } catch (std::exception const& error) {
    PLXLog::Error("request " + std::to_string(request_io.id) + " (" + request_io.method + " " +
                  plan.scriptName + "): " + error.what());
    response = ErrorPage(500, "Something went wrong on the server while it made this page.", request_io.id);
  }
  if (response.HasHeader("Set-Cookie")) privacy = std::max(privacy, Privacy::kPersonal);
  plan.generation->AddHeaders(response, plan.region, privacy);
  return response;
}

PLXResponse PLXServer::AnswerPlan(PLXRequest& request_io, Plan const& plan_i, Privacy& privacy_io) {
  PLXResponse response;
  if (plan_i.what == Plan::What::kAdministration) {
    return myAdministration->Answer(request_io, plan_i.generation->sites);
  }
  if (plan_i.what == Plan::What::kAction) return AnswerAction(request_io, plan_i);
  if (!MayEnter(request_io, plan_i, response)) return response;
  if (plan_i.region->RequiresLogin()) privacy_io = Privacy::kPersonal;
  switch (plan_i.what) {
    case Plan::What::kPage:
      return AnswerPage(request_io, plan_i, privacy_io);
    case Plan::What::kFile: {
      PLXDisposition const disposition = AnswerFile(request_io, plan_i.file, plan_i.isDownload);
      if (disposition.kind == PLXDisposition::Kind::kAnswer) return disposition.answer;
      response = disposition.fileAnswer.response;
      response.file = disposition.fileAnswer.file;
      response.fileOffset = disposition.fileAnswer.offset;
      response.fileLength = disposition.fileAnswer.length;
      response.RemoveHeader("Cache-Control");  // an open file's
      return response;
    }
    default:
      return plan_i.answer;
  }
}

bool PLXServer::MayEnter(PLXRequest const& request_i, Plan const& plan_i, PLXResponse& refusal_o) {
  if (!plan_i.region->RequiresLogin()) return true;
  std::string const realm = plan_i.region->Key();
  PLXLoginThrottle::Attempt const attempt{request_i.remoteAddress, realm, request_i.user};
  if (auto const wait = myThrottle.Wait(attempt); wait.count() > 0) {
    refusal_o = TooManyLogins(wait);
    return false;
  }
  if (request_i.hasCredentials && LoginsOf(*plan_i.region).Verify(request_i.user, request_i.password)) {
    myThrottle.Succeeded(attempt);
    return true;
  }
  myThrottle.Failed(attempt);
  PLXLog::Warning("login to region " + plan_i.region->Key() + " failed from " + request_i.remoteAddress +
                  ", user " + Quoted(request_i.user));
  refusal_o = Unauthorized(*plan_i.region);
  return false;
}

PLXLoginStore& PLXServer::LoginsOf(PLXRegion const& region_i) {
  std::lock_guard const lock(myMutex);
  auto& store = myRegionLogins[region_i.LoginsFile()];
  if (!store) store = std::make_unique<PLXLoginStore>(region_i.LoginsFile());
  return *store;
}

PLXResponse PLXServer::AnswerPage(PLXRequest const& request_i, Plan const& plan_i, Privacy& privacy_io) {
  // Users of modules are others than those of the region's logins, even where the names are equal.
  std::string const realm = plan_i.region->Key() + " pages";
  PLXLoginThrottle::Attempt const attempt{request_i.remoteAddress, realm, CountedUser(request_i.user)};
  if (request_i.hasCredentials) {
    if (auto const wait = myThrottle.Wait(attempt); wait.count() > 0) return TooManyLogins(wait);
  }
  auto const page = plan_i.page ? plan_i.page : myPages->Get(plan_i.file);
  if (!page) {
    std::error_code error;
    if (!fs::exists(plan_i.file, error)) return ErrorPage(404, "There is no such page or file here.");
    PLXLog::Error(plan_i.file.string() + ": the page cannot be read (request " +
                  std::to_string(request_i.id) + ")");
    return ErrorPage(500, "The server cannot read this page.", request_i.id);
  }
  PLXResponse response;
  bool const trace = plan_i.generation->Configuration().trace ||
                     (request_i.isFromThisMachine && request_i.Header("X-PLX-Trace") == "1");
  PLXPageContext context{*plan_i.site, *plan_i.region, request_i,
                         response,     plan_i.file,    plan_i.scriptName,
                         {},           trace,          myRecords.get()};
  response.body = RenderPage(*page, *myModules, context);
  if (request_i.hasCredentials) CountPageLogin(attempt, context);
  if (context.isPersonal) privacy_io = std::max(privacy_io, Privacy::kPersonal);
  if (context.passwordWasRead) privacy_io = Privacy::kPassword;
  if (!response.HasHeader("Content-Type")) response.SetHeader("Content-Type", "text/html");
  return response;
}

// A module may keep users of its own and answers 401 to who is none of them: of its check only the answer is
// seen. A page on which nobody looked at the password proves no user, or it would clear a guesser's failures.
void PLXServer::CountPageLogin(PLXLoginThrottle::Attempt const& attempt_i, PLXPageContext const& context_i) {
  if (context_i.response.status != 401) {
    if (context_i.passwordWasRead && attempt_i.user != kNamesWithApostrophes) myThrottle.Succeeded(attempt_i);
    return;
  }
  myThrottle.Failed(attempt_i);
  PLXLog::Warning("login to " + context_i.scriptName + " of region " + context_i.region.Key() +
                  " failed from " + context_i.request.remoteAddress + ", user " +
                  Quoted(context_i.request.user));
}

PLXResponse PLXServer::AnswerAction(PLXRequest const& request_i, Plan const& plan_i) {
  PLXResponse response;
  bool const trace = plan_i.generation->Configuration().trace || request_i.Header("X-PLX-Trace") == "1";
  PLXPageContext context{*plan_i.site, *plan_i.region,    request_i, response,
                         plan_i.file,  plan_i.scriptName, {},        trace};
  PLXTagOutcome const outcome = myModules->RunAction(plan_i.action, context);
  response.body = outcome.hasProblem ? ProblemBox(outcome.problem, outcome.remedy) : outcome.html;
  if (!response.HasHeader("Content-Type")) response.SetHeader("Content-Type", "text/html");
  // Whoever sent it is to try again, unless the module has said otherwise.
  if (outcome.result != 0 && response.status == 200) response.status = 503;
  return response;
}

PLXResponse PLXServer::ErrorAnswer(int status_i, std::string const& sentence_i) {
  PLXResponse response = ErrorPage(status_i, sentence_i);
  if (status_i == 503) response.SetHeader("Retry-After", "2");
  Current()->AddHeaders(response, nullptr);
  return response;
}

// ---- Finished
// ------------------------------------------------------------------------------------------------

void PLXServer::GivenUp(PLXRequest const& request_i) {
  myActive.GiveUp(request_i.id);
  ++myCounts.givenUp;
  PLXLog::Warning("request " + std::to_string(request_i.id) + " (" + request_i.method + " " + request_i.path +
                  "): the page did not end in time and was given up; it holds its thread");
}

// The combined format, which every log reader knows, then microseconds and the request's id. 499 is what log
// readers know for a client that left before its answer.
void PLXServer::Finished(PLXRequest const& request_i, PLXResponse const& response_i,
                         std::uint64_t bytesSent_i, std::chrono::microseconds took_i) {
  myActive.Remove(request_i.id);
  int const status = response_i.status == 0 ? 499 : response_i.status;
  myCounts.CountAnswer(status);
  std::string const request =
      request_i.method + " " + WithoutUser(request_i.target) + " " + request_i.version;
  std::string line = request_i.remoteAddress.empty() ? "-" : request_i.remoteAddress;
  line += " - " + LoggedUser(request_i) + " " + LogTime() + " " + Quoted(request) + " ";
  line += std::to_string(status) + " " + std::to_string(bytesSent_i) + " ";
  line +=
      Quoted(WithoutUser(request_i.Header("Referer"))) + " " + Quoted(request_i.Header("User-Agent")) + " ";
  line += std::to_string(took_i.count()) + " " + std::to_string(request_i.id);
  PLXLog::Access(line);
}
