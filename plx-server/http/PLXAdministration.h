#pragma once

#include <functional>
#include <string>

#include "PLXActiveRequests.h"
#include "PLXListener.h"
#include "PLXLoginStore.h"
#include "PLXLoginThrottle.h"
#include "PLXModuleHost.h"
#include "PLXRecordsAdministration.h"
#include "PLXSite.h"
#include "PLXStatus.h"

// The pages under /plx-admin/: what the server is doing, its modules, sites and regions, the preferences that
// modules keep for a region, the record databases, and the log. Works without scripts.
//
// Nobody enters without a login of the server, and while there is none the administration is closed. What
// changes something is a POST, and a POST counts only when it comes from a page of this administration. Any
// thread.
class PLXAdministration {
 public:
  // All must outlive the administration. `listener_i` is asked on whatever thread a page is made.
  PLXAdministration(PLXModuleHost& modules_i, PLXLoginStore& logins_i, PLXActiveRequests const& active_i,
                    PLXRecordEngine& records_i, PLXRequestCounts const& counts_i,
                    std::function<PLXListenerStatus()> listener_i);

  // Answers a request whose path begins with "/plx-admin/". Blocks for a password check.
  PLXResponse Answer(PLXRequest const& request_i, PLXSites const& sites_i);

 private:
  struct Page {
    std::string title;
    std::string body;  // HTML
    std::string head;  // HTML
  };
  struct Route;
  static Route const kRoutes[];

  bool MayEnter(PLXRequest const& request_i, PLXResponse& refusal_o);
  Page Status(PLXRequest const& request_i, PLXSites const& sites_i);
  Page Requests(PLXRequest const& request_i, PLXSites const& sites_i);
  Page Modules(PLXRequest const& request_i, PLXSites const& sites_i);
  Page Sites(PLXRequest const& request_i, PLXSites const& sites_i);
  Page Log(PLXRequest const& request_i, PLXSites const& sites_i);
  PLXResponse Preferences(PLXRequest const& request_i, PLXSites const& sites_i);
  PLXResponse Databases(PLXRequest const& request_i);
  PLXResponse Metrics(PLXSites const& sites_i);
  PLXResponse Framed(PLXRequest const& request_i, Page const& page_i) const;

  PLXModuleHost& myModules;
  PLXLoginStore& myLogins;
  PLXActiveRequests const& myActive;
  PLXRecordsAdministration myRecords;
  PLXStatus myStatus;
  PLXLoginThrottle myThrottle;
};
