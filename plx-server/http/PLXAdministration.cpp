#include "PLXAdministration.h"

#include "PLXAdministrationHTML.h"
#include "PLXLog.h"
#include "PLXLogAdministration.h"
#include "PLXRequestOrigin.h"
#include "PLXServerPages.h"

namespace {

constexpr std::string_view kRoot = "/plx-admin/";
constexpr std::string_view kPreferencesPath = "/plx-admin/preferences";

std::string_view StageName(PLXActiveRequests::Stage stage_i) {
  switch (stage_i) {
    case PLXActiveRequests::Stage::kWaiting:
      return "waiting";
    case PLXActiveRequests::Stage::kRunning:
      return "running";
    case PLXActiveRequests::Stage::kSending:
      return "sending";
    case PLXActiveRequests::Stage::kGivenUp:
      return "given up";
  }
  return "";
}

std::string PreferencesAddress(std::string_view region_i, std::string_view module_i) {
  return std::string(kPreferencesPath) + "?region=" + EncodeArgument(region_i) +
         "&module=" + EncodeArgument(module_i);
}

bool Contains(std::string_view text_i, std::string_view word_i) {
  return text_i.find(word_i) != std::string_view::npos;
}

// The value of an attribute of a tag that is written as most are.
std::string_view AttributeOf(std::string_view tag_i, std::string_view name_i) {
  std::size_t const at = tag_i.find(" " + std::string(name_i) + "=\"");
  if (at == std::string_view::npos) return {};
  std::string_view const value = tag_i.substr(at + name_i.size() + 3);
  return value.substr(0, value.find('"'));
}

// A module's form with the names of its own for those boxes that have no label: whoever cannot see what
// stands beside a box is told its name, and hears it.
std::string WithNames(std::string const& html_i) {
  std::string html;
  std::size_t from = 0;
  std::size_t label = html_i.find("<label");
  std::size_t labelEnd = 0;  // of the last label that begins before the box
  for (std::size_t at = 0; (at = html_i.find("<input ", at)) != std::string::npos;) {
    std::size_t const end = html_i.find('>', at);
    if (end == std::string::npos) break;
    std::string_view const tag(html_i.data() + at, end - at);
    for (; label < at && labelEnd < at; label = html_i.find("<label", labelEnd)) {
      labelEnd = html_i.find("</label", label);
      if (labelEnd == std::string::npos) break;
    }
    bool const isLabelled = labelEnd > at;
    std::string_view const type = AttributeOf(tag, "type");
    std::string_view const name = AttributeOf(tag, "name");
    bool const isBox = type == "checkbox" || type == "radio";
    if (isBox && !isLabelled && !name.empty() && !tag.ends_with('/') && !Contains(tag, " aria-label") &&
        !Contains(tag, " id=")) {
      html.append(html_i, from, end - from).append(" aria-label=\"").append(name).append("\"");
      from = end;
    }
    at = end;
  }
  return html.append(html_i, from);
}

PLXResponse Unauthorized() {
  PLXResponse response = ErrorPage(401, "The administration asks for a login of the server.");
  response.SetHeader("WWW-Authenticate", "Basic realm=\"PLX Server administration\", charset=\"UTF-8\"");
  return response;
}

PLXResponse Closed() {
  PLXResponse response;
  response.status = 403;
  response.SetHeader("Content-Type", "text/html; charset=utf-8");
  response.body =
      ServerPage("The administration is closed",
                 "<main>\n<h1>The administration is closed</h1>\n"
                 "<p>There is no login yet that could open it. Make one on the server's own machine:</p>\n"
                 "<pre>plxserver user set NAME</pre>\n"
                 "<p>The command asks for a password; no restart is needed.</p>\n</main>\n");
  return response;
}

void SetAdministrationHeaders(PLXResponse& response_io) {
  response_io.SetHeader("Cache-Control", "no-store");
  // Modules bring markup of their own, also with style attributes, but no scripts and nothing from elsewhere.
  response_io.SetHeader("Content-Security-Policy",
                        "default-src 'none'; style-src 'unsafe-inline'; img-src 'self'; form-action 'self'; "
                        "frame-ancestors 'none'; base-uri 'none'");
  response_io.SetHeader("X-Frame-Options", "DENY");
  response_io.SetHeader("X-Content-Type-Options", "nosniff");
  response_io.SetHeader("Cross-Origin-Opener-Policy", "same-origin");
  response_io.SetHeader("Cross-Origin-Resource-Policy", "same-origin");
  // Not "no-referrer": browsers then say "null" for the origin of the administration's own posts.
  response_io.SetHeader("Referrer-Policy", "same-origin");
}

}  // namespace

struct PLXAdministration::Route {
  std::string_view name;  // after "/plx-admin/"
  std::string_view label;
  Page (PLXAdministration::*page)(PLXRequest const&, PLXSites const&);
};

PLXAdministration::Route const PLXAdministration::kRoutes[] = {
    {"", "Status", &PLXAdministration::Status},
    {"requests", "Requests", &PLXAdministration::Requests},
    {"modules", "Modules", &PLXAdministration::Modules},
    {"sites", "Sites", &PLXAdministration::Sites},
    {"databases", "Databases", nullptr},
    {"log", "Log", &PLXAdministration::Log}};

PLXAdministration::PLXAdministration(PLXModuleHost& modules_i, PLXLoginStore& logins_i,
                                     PLXActiveRequests const& active_i, PLXRecordEngine& records_i,
                                     PLXRequestCounts const& counts_i,
                                     std::function<PLXListenerStatus()> listener_i)
    : myModules(modules_i),
      myLogins(logins_i),
      myActive(active_i),
      myRecords(records_i),
      myStatus(modules_i, records_i, counts_i, std::move(listener_i)) {}

PLXResponse PLXAdministration::Answer(PLXRequest const& request_i, PLXSites const& sites_i) {
  PLXResponse response;
  if (MayEnter(request_i, response)) {
    std::string_view const name = std::string_view(request_i.path).substr(kRoot.size());
    Route const* route = nullptr;
    for (Route const& candidate : kRoutes) {
      if (candidate.name == name) route = &candidate;
    }
    if (request_i.path == kPreferencesPath) {
      response = Preferences(request_i, sites_i);
    } else if (request_i.path == PLXRecordsAdministration::kPath) {
      response = Databases(request_i);
    } else if (request_i.method == "POST") {
      response = ErrorPage(405, "This page of the administration takes no changes.");
      response.SetHeader("Allow", "GET, HEAD");
    } else if (name == "metrics") {
      response = Metrics(sites_i);
    } else if (route) {
      response = Framed(request_i, (this->*route->page)(request_i, sites_i));
    } else {
      response = ErrorPage(404, "The administration has no such page.");
    }
  }
  SetAdministrationHeaders(response);
  return response;
}

// Who is slowed down is told so before the password is looked at: a guess costs nothing but the answer.
bool PLXAdministration::MayEnter(PLXRequest const& request_i, PLXResponse& refusal_o) {
  if (myLogins.IsEmpty()) {
    refusal_o = Closed();
    return false;
  }
  if (!request_i.hasCredentials) {
    refusal_o = Unauthorized();
    return false;
  }
  PLXLoginThrottle::Attempt const attempt{request_i.remoteAddress, "", request_i.user};
  if (auto const wait = myThrottle.Wait(attempt); wait.count() > 0) {
    refusal_o = TooManyLogins(wait);
    return false;
  }
  if (!myLogins.Verify(request_i.user, request_i.password)) {
    myThrottle.Failed(attempt);
    PLXLog::Warning("login to the administration failed from " + request_i.remoteAddress + ", user \"" +
                    request_i.user.substr(0, 255) + "\"");
    refusal_o = Unauthorized();
    return false;
  }
  myThrottle.Succeeded(attempt);
  if (request_i.method == "POST" && !IsFromOwnPage(request_i)) {
    PLXLog::Warning("a change to the administration was refused: it came from another site's page, client " +
                    request_i.remoteAddress);
    refusal_o =
        ErrorPage(403,
                  "Changes are taken from the administration's own pages only, and this request does not "
                  "say that it comes from one. A program that posts here sends the header Origin with "
                  "this server's address.");
    return false;
  }
  return true;
}

PLXResponse PLXAdministration::Framed(PLXRequest const& request_i, Page const& page_i) const {
  std::string body =
      "<a class=\"skip\" href=\"#content\">To the content</a>\n<nav aria-label=\"Administration\">\n";
  for (Route const& route : kRoutes) {
    std::string const address = std::string(kRoot) + std::string(route.name);
    body += "<a href=\"" + address + "\"" + (request_i.path == address ? " aria-current=\"page\"" : "") +
            ">" + std::string(route.label) + "</a>\n";
  }
  body += "</nav>\n<main id=\"content\">\n<h1>" + EncodeHTML(page_i.title) + "</h1>\n" + page_i.body +
          "</main>\n";
  PLXResponse response;
  response.SetHeader("Content-Type", "text/html; charset=utf-8");
  response.body = ServerPage(page_i.title + " - PLX Server", body, page_i.head);
  return response;
}

// ---- Pages
// ---------------------------------------------------------------------------------------------------

PLXAdministration::Page PLXAdministration::Status(PLXRequest const&, PLXSites const& sites_i) {
  return {"Status", myStatus.Page(sites_i), std::string(kRefresh)};
}

PLXAdministration::Page PLXAdministration::Requests(PLXRequest const& request_i, PLXSites const&) {
  bool const isStill = !ArgumentOf(request_i, "still").empty();
  Page page{"Requests that run now", "", isStill ? "" : std::string(kRefresh)};
  std::string const pace = isStill
                               ? "<p>" + Link("/plx-admin/requests", "Ask again every 5 seconds") + "</p>\n"
                               : "<p>This page is asked for again every 5 seconds. " +
                                     Link("/plx-admin/requests?still=1", "Hold it still") + "</p>\n";
  auto const now = std::chrono::steady_clock::now();
  for (PLXActiveRequests::Entry const& entry : myActive.List()) {
    if (entry.id == request_i.id) continue;
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(now - entry.since).count();
    page.body += "<tr>" + NumberCell(std::to_string(entry.id)) + Cell(entry.method + " " + entry.url) +
                 Cell(entry.what) + Cell(StageName(entry.stage)) + NumberCell(std::to_string(seconds)) +
                 NumberCell(std::to_string(entry.includeDepth)) + Cell(entry.address) + "</tr>\n";
  }
  if (page.body.empty()) {
    page.body = pace + "<p>Nothing runs right now but this page.</p>\n";
    return page;
  }
  page.body = pace +
              TableHead("Requests", {"Number", "Request", "What", "State", "Seconds", "Included", "Client"}) +
              page.body;
  page.body += kTableEnd;
  page.body +=
      "<p class=\"quiet\">\"Included\" tells how many pages of this server wait for the request.</p>\n";
  return page;
}

PLXAdministration::Page PLXAdministration::Modules(PLXRequest const&, PLXSites const&) {
  Page page{"Modules", "", ""};
  for (PLXModuleDescription const& module : myModules.Describe()) {
    page.body += "<h2>" + EncodeHTML(module.name) + "</h2>\n<dl>\n" + Pair("Version", module.version) +
                 Pair("Maker", module.author) + Pair("File", module.file.string());
    if (!module.versionTracker.empty()) page.body += Pair("New versions", module.versionTracker);
    std::string actions;
    for (std::string const& action : module.actions) actions += (actions.empty() ? "" : ", ") + action;
    page.body += Pair("Actions", actions.empty() ? "none" : actions) + "</dl>\n" +
                 TableHead("Tags of " + module.name, {"Tag", "Form"});
    for (PLXTagProcessor::Tag const& tag : module.tags) {
      bool const encloses = (tag.flags & kPLXTagFlag_EnclosesBody) != 0;
      page.body += "<tr>" + Cell(tag.name) + Cell(encloses ? "encloses a body" : "stands alone") + "</tr>\n";
    }
    page.body += kTableEnd;
  }
  if (page.body.empty())
    page.body = "<p>No module is loaded. The key \"modules\" of the configuration names them.</p>\n";
  return page;
}

PLXAdministration::Page PLXAdministration::Sites(PLXRequest const&, PLXSites const& sites_i) {
  Page page{"Sites and regions", "", ""};
  auto const modules = myModules.Describe();
  for (auto const& site : sites_i.All()) {
    std::string hosts;
    for (std::string const& host : site->Configuration().hosts) hosts += (hosts.empty() ? "" : ", ") + host;
    page.body += "<h2>" + EncodeHTML(site->Name()) + "</h2>\n<dl>\n" + Pair("Hosts", hosts) +
                 Pair("Folder", site->Root().string()) + "</dl>\n" +
                 TableHead("Regions of " + site->Name(), {"Region", "Path", "Login", "Preferences"});
    for (auto const& region : site->Regions()) {
      page.body += "<tr>" + Cell(region->Name()) + Cell(region->Path()) +
                   Cell(region->RequiresLogin() ? "asked for" : "open") + "<td>";
      for (PLXModuleDescription const& module : modules) {
        page.body += "<a href=\"" + EncodeHTML(PreferencesAddress(region->Key(), module.name)) + "\">" +
                     EncodeHTML(module.name) + "<span class=\"hidden\"> in region " +
                     EncodeHTML(region->Key()) + "</span></a> ";
      }
      page.body += "</td></tr>\n";
    }
    page.body += kTableEnd;
  }
  return page;
}

PLXAdministration::Page PLXAdministration::Log(PLXRequest const& request_i, PLXSites const& sites_i) {
  PLXLogPage const page(request_i, sites_i.Configuration().state / "logs");
  return {"Log", page.body, page.head};
}

PLXResponse PLXAdministration::Metrics(PLXSites const& sites_i) {
  PLXResponse response;
  response.SetHeader("Content-Type", "text/plain; version=0.0.4; charset=utf-8");
  response.body = myStatus.Metrics(sites_i);
  return response;
}

PLXResponse PLXAdministration::Databases(PLXRequest const& request_i) {
  PLXRecordsAdministration::Page const page = myRecords.Answer(request_i);
  if (page.redirect.empty()) return Framed(request_i, {page.title, page.body, ""});
  PLXResponse response;
  response.status = 303;
  response.SetHeader("Location", page.redirect);
  return response;
}

// ---- Preferences
// -----------------------------------------------------------------------------------------------

PLXResponse PLXAdministration::Preferences(PLXRequest const& request_i, PLXSites const& sites_i) {
  PLXRegion const* const region = sites_i.FindRegion(ArgumentOf(request_i, "region"));
  std::string const name = ArgumentOf(request_i, "module");
  auto const modules = myModules.Describe();
  std::size_t index = 0;
  while (index < modules.size() && modules[index].name != name) ++index;
  if (!region || index == modules.size()) return ErrorPage(404, "There is no such region or module.");

  std::string const address = PreferencesAddress(region->Key(), name);
  PLXResponse
      scratch;  // an administration page's status and headers are the server's, whatever a module sets
  PLXPageContext context{
      region->Site(), *region, request_i, scratch, region->Folder(), std::string(kPreferencesPath), {},
      false};
  Page page{name + ", region " + region->Key(), "", ""};
  if (request_i.method == "POST") {
    PLXTagOutcome const outcome = myModules.SetPreferences(index, context);
    if (!outcome.hasProblem) {
      PLXLog::Note("preferences of " + name + " for region " + region->Key() + " changed by " +
                   request_i.user + " from " + request_i.remoteAddress);
      PLXResponse response;
      response.status = 303;
      response.SetHeader("Location", address + "&saved=1");
      return response;
    }
    page.body += ProblemBox(outcome.problem, outcome.remedy);
  } else if (!ArgumentOf(request_i, "saved").empty()) {
    page.body += "<p class=\"note\" role=\"status\">The preferences were saved.</p>\n";
  }
  PLXTagOutcome const outcome = myModules.GetPreferencesPage(index, context);
  if (outcome.hasProblem) {
    page.body += ProblemBox(outcome.problem, outcome.remedy);
  } else if (outcome.html.empty()) {
    page.body += "<p>This module has no preferences.</p>\n";
  } else {
    page.body += "<form method=\"post\" action=\"" + EncodeHTML(address) + "\">\n<div class=\"scroll\">" +
                 WithNames(outcome.html) + "</div>\n<p><button type=\"submit\">Save</button></p>\n</form>\n";
  }
  return Framed(request_i, page);
}
