#pragma once

#include "PLXRequest.h"
#include "PLXSite.h"

// Whose page made a browser send a request: another site's page can make it post here, and the browser adds
// the visitor's login and cookies. Sec-Fetch-Site (Fetch Metadata) tells it, or else Origin (RFC 6454), both
// of which browsers write themselves and no page can. Clients that are no browsers send neither.
enum class PLXRequestOrigin {
  kUntold,
  kOwn,     // a page of this site, or the visitor: an address that was typed, a bookmark
  kSister,  // another host or port below the same domain
  kForeign
};

PLXRequestOrigin OriginOf(PLXRequest const& request_i, PLXSite const& site_i);

// Whether a page of the region takes this post. What comes from another site's page must not act for the
// visitor: with a login or a cookie it is refused, and in a region with a login also without. A sister host
// counts as foreign to a region with a login alone.
bool MayPost(PLXRequest const& request_i, PLXRegion const& region_i);

// Whether a module's action may be called: by programs, such as the module itself, and never by a page that a
// browser of this machine shows.
bool MayCallAction(PLXRequest const& request_i, PLXSite const& site_i);

// Whether a post to the administration was made by one of its own pages. A browser always says where a post
// comes from, so one that says nothing is refused here, too.
bool IsFromOwnPage(PLXRequest const& request_i);
