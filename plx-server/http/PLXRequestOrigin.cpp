#include "PLXRequestOrigin.h"

#include <algorithm>

#include "PLXASCII.h"

namespace {

// "host:port" of "http://host:port/path", in lower case, without a port that the scheme implies.
std::string AuthorityOf(std::string_view address_i) {
  auto const slashes = address_i.find("://");
  std::string_view rest = slashes == std::string_view::npos ? address_i : address_i.substr(slashes + 3);
  rest = rest.substr(0, rest.find_first_of("/?#"));
  std::string authority(rest);
  std::ranges::transform(authority, authority.begin(), LowerASCII);
  for (std::string_view const port : {":80", ":443"}) {
    if (authority.ends_with(port)) authority.resize(authority.size() - port.size());
  }
  return authority;
}

bool IsAskedHost(std::string const& authority_i, PLXRequest const& request_i) {
  return !authority_i.empty() &&
         (authority_i == AuthorityOf(request_i.Header("Host")) || authority_i == AuthorityOf(request_i.host));
}

// Behind a proxy that passes on a Host of its own, visitors still come by one of the site's names.
bool IsOwnOrigin(std::string_view origin_i, PLXRequest const& request_i, PLXSite const& site_i) {
  if (origin_i.find("://") == std::string_view::npos) return false;  // "null"
  std::string const authority = AuthorityOf(origin_i);
  auto const& hosts = site_i.Configuration().hosts;
  return IsAskedHost(authority, request_i) || std::ranges::find(hosts, authority) != hosts.end();
}

}  // namespace

PLXRequestOrigin OriginOf(PLXRequest const& request_i, PLXSite const& site_i) {
  std::string_view const fetchSite = request_i.Header("Sec-Fetch-Site");
  if (fetchSite == "same-origin" || fetchSite == "none") return PLXRequestOrigin::kOwn;
  if (fetchSite == "same-site") return PLXRequestOrigin::kSister;
  if (!fetchSite.empty()) return PLXRequestOrigin::kForeign;
  std::string_view const origin = request_i.Header("Origin");
  if (origin.empty()) return PLXRequestOrigin::kUntold;
  return IsOwnOrigin(origin, request_i, site_i) ? PLXRequestOrigin::kOwn : PLXRequestOrigin::kForeign;
}

bool MayPost(PLXRequest const& request_i, PLXRegion const& region_i) {
  PLXRequestOrigin const origin = OriginOf(request_i, region_i.Site());
  bool const isOurs = origin == PLXRequestOrigin::kUntold || origin == PLXRequestOrigin::kOwn;
  if (isOurs || region_i.TakesForeignPosts()) return true;
  if (region_i.RequiresLogin()) return false;
  bool const actsForVisitor =
      !request_i.Header("Authorization").empty() || !request_i.Header("Cookie").empty();
  return !actsForVisitor || origin == PLXRequestOrigin::kSister;
}

bool MayCallAction(PLXRequest const& request_i, PLXSite const& site_i) {
  std::string_view const origin = request_i.Header("Origin");
  return request_i.Header("Sec-Fetch-Site").empty() &&
         (origin.empty() || IsOwnOrigin(origin, request_i, site_i));
}

bool IsFromOwnPage(PLXRequest const& request_i) {
  std::string_view const fetchSite = request_i.Header("Sec-Fetch-Site");
  if (!fetchSite.empty() && fetchSite != "same-origin" && fetchSite != "none") return false;
  std::string_view const origin = request_i.Header("Origin");
  std::string_view const source = origin.empty() ? request_i.Header("Referer") : origin;
  return source.find("://") != std::string_view::npos && IsAskedHost(AuthorityOf(source), request_i);
}
