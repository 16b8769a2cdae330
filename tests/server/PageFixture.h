#pragma once

#include <string>

#include "PLXRecordStore.h"
#include "PLXTagProcessor.h"
#include "TemporaryFolder.h"

// One site "demo" with the regions "mail" and "main", and a request for its page /folder/page.html.
struct PageFixture {
  TemporaryFolder folder;
  PLXSite site;
  PLXRequest request;
  PLXResponse response;
  PLXRecordEngine records;

  PageFixture() : site(Configuration(folder), folder.Path() / "state"), records({folder.Path(), {}, {}, {}}) {
    request.method = "GET";
    request.path = "/folder/page.html";
    request.target = "/folder/page.html?a=1";
    request.query = "a=1";
    request.host = "demo.test:8080";
    request.serverPort = 8080;
    request.remoteAddress = "192.0.2.7";
    request.remotePort = 4711;
  }

  PLXPageContext Context() {
    return {site,
            site.RegionOf(request.path),
            request,
            response,
            site.Root() / "folder/page.html",
            request.path,
            {},
            false,
            &records};
  }

 private:
  static PLXSiteConfiguration Configuration(TemporaryFolder const& folder_i) {
    folder_i.Write("root/folder/page.html", "page");
    folder_i.Write("root/mail/inbox.html", "inbox");
    PLXSiteConfiguration configuration;
    configuration.name = "demo";
    configuration.hosts = {"demo.test"};
    configuration.root = folder_i.Path() / "root";
    configuration.regions = {{"mail", "/mail/", false, 0}, {"main", "/", false, 0}};
    return configuration;
  }
};
