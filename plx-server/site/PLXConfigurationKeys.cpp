#include "PLXConfigurationKeys.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <type_traits>

namespace {

using Key = PLXConfigurationKey;
using Form = Key::Form;
using Value = Key::Value;
using Complaint = Key::Complaint;
using Target = PLXConfigurationTarget;

constexpr std::uint64_t kKibi = 1u << 10;
constexpr std::uint64_t kMebi = 1u << 20;
constexpr std::uint64_t kGibi = 1u << 30;

bool IsControl(char character_i) {
  auto const byte = static_cast<unsigned char>(character_i);
  return byte < 0x20 || byte == 0x7F;
}

bool IsLetterOrDigit(char character_i) {
  return (character_i >= 'a' && character_i <= 'z') || (character_i >= 'A' && character_i <= 'Z') ||
         (character_i >= '0' && character_i <= '9');
}

std::string Lower(std::string text_i) {
  for (char& character : text_i) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character + ('a' - 'A'));
  }
  return text_i;
}

// The address in its usual spelling, empty when it is none. A name is not looked up: what it says today is no
// ground to trust or bind tomorrow.
std::string CanonicalAddress(std::string const& text_i) {
  std::array<unsigned char, sizeof(in6_addr)> bytes;
  char text[INET6_ADDRSTRLEN];
  for (int const family : {AF_INET, AF_INET6}) {
    if (::inet_pton(family, text_i.c_str(), bytes.data()) == 1) {
      return ::inet_ntop(family, bytes.data(), text, sizeof text) != nullptr ? text : "";
    }
  }
  return {};
}

// A path on the site: "/" at both ends, steps that MapPath would take.
bool IsFolderPath(std::string_view path_i) {
  if (!path_i.starts_with('/') || !path_i.ends_with('/')) return false;
  if (path_i.size() > 1024 || std::any_of(path_i.begin(), path_i.end(), IsControl)) return false;
  for (std::size_t start = 1; start < path_i.size();) {
    std::size_t const slash = path_i.find('/', start);
    std::string_view const step = path_i.substr(start, slash - start);
    if (step.empty() || step.size() > 255 || (step.front() == '.' && step != ".well-known")) return false;
    start = slash + 1;
  }
  return true;
}

Complaint NoFolderPath(std::string const& path_i) {
  std::string proposal = path_i.starts_with('/') ? path_i : "/" + path_i;
  if (!proposal.ends_with('/')) proposal.push_back('/');
  return PLXConfigurationComplaint{QuotedForPeople(path_i) + " is no path of a folder on the site",
                                   IsFolderPath(proposal) ? "Write " + QuotedForPeople(proposal) + "."
                                                          : "Write a path such as \"/mail/\"."};
}

std::filesystem::path Resolved(std::string const& text_i, Target const& target_i) {
  return (target_i.folder / text_i).lexically_normal();
}

// ---- Stores, one for each kind of member
// -------------------------------------------------------------------

template <auto kMember>
Complaint StoreLimit(Value const& value_i, Target& target_io) {
  auto& member = target_io.configuration.limits.*kMember;
  member = static_cast<std::remove_reference_t<decltype(member)>>(value_i.number);
  return {};
}

template <auto kMember>
Complaint StoreText(Value const& value_i, Target& target_io) {
  target_io.configuration.*kMember = value_i.Text();
  return {};
}

template <auto kMember>
Complaint StoreNumber(Value const& value_i, Target& target_io) {
  auto& member = target_io.configuration.*kMember;
  member = static_cast<std::remove_reference_t<decltype(member)>>(value_i.number);
  return {};
}

Complaint StoreListen(Value const& value_i, Target& target_io) {
  std::string const& text = value_i.Text();
  std::size_t const colon = text.rfind(':');
  std::string host = text.substr(0, colon);
  std::string const port = colon == std::string::npos ? "" : text.substr(colon + 1);
  unsigned number = 0;
  auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
  if (port.empty() || error != std::errc() || end != port.data() + port.size() || number > 65535) {
    return PLXConfigurationComplaint{QuotedForPeople(text) + " names no port from 0 to 65535",
                                     "Write address and port: \"127.0.0.1:8080\"."};
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  std::string const address = CanonicalAddress(host == "localhost" ? "127.0.0.1" : host);
  if (address.empty()) {
    return PLXConfigurationComplaint{QuotedForPeople(text) + " names no address of this machine",
                                     "Write \"127.0.0.1:" + port + "\" for this machine alone, \"0.0.0.0:" +
                                         port + "\" for all its addresses."};
  }
  target_io.configuration.listenAddress = address;
  target_io.configuration.listenPort = static_cast<std::uint16_t>(number);
  return {};
}

Complaint StoreState(Value const& value_i, Target& target_io) {
  target_io.configuration.state = Resolved(value_i.Text(), target_io);
  return {};
}

Complaint StoreShared(Value const& value_i, Target& target_io) {
  target_io.configuration.shared = Resolved(value_i.Text(), target_io);
  return {};
}

Complaint StoreModules(Value const& value_i, Target& target_io) {
  std::vector<std::filesystem::path> modules;
  for (std::string const& text : value_i.texts) {
    modules.push_back(Resolved(text, target_io));
    std::error_code error;
    if (!std::filesystem::is_regular_file(modules.back(), error)) {
      return PLXConfigurationComplaint{"there is no module file " + QuotedForPeople(modules.back().string()),
                                       "Build or install the module, or correct its name."};
    }
  }
  target_io.configuration.modules = std::move(modules);
  return {};
}

Complaint StoreProxies(Value const& value_i, Target& target_io) {
  std::vector<std::string> proxies;
  for (std::string const& text : value_i.texts) {
    proxies.push_back(CanonicalAddress(text));
    if (proxies.back().empty()) {
      return PLXConfigurationComplaint{QuotedForPeople(text) + " is no IP address",
                                       "Write each proxy's address, such as \"127.0.0.1\" or \"::1\"."};
    }
  }
  target_io.configuration.proxies = std::move(proxies);
  return {};
}

std::string_view Trimmed(std::string_view text_i) {
  auto const first = text_i.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text_i.substr(first, text_i.find_last_not_of(' ') - first + 1);
}

// Name and value of a header line that a configuration may add to answers.
Complaint ReadHeaderLine(std::string const& line_i, bool mayLackValue_i,
                         PLXHeaderLines::value_type& header_o) {
  std::size_t const colon = line_i.find(':');
  header_o.first = line_i.substr(0, colon);
  header_o.second = colon == std::string::npos ? "" : Trimmed(std::string_view(line_i).substr(colon + 1));
  bool const isToken = !header_o.first.empty() && std::ranges::all_of(header_o.first, [](char character) {
    return IsLetterOrDigit(character) ||
           std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string::npos;
  });
  bool const hasValue = !header_o.second.empty() || (mayLackValue_i && colon != std::string::npos);
  if (!isToken || !hasValue || std::any_of(line_i.begin(), line_i.end(), IsControl)) {
    return PLXConfigurationComplaint{QuotedForPeople(line_i) + " is no header line",
                                     "Write \"Name: value\", such as \"X-Frame-Options: DENY\"."};
  }
  for (char const* const own :
       {"content-length", "transfer-encoding", "connection", "content-type", "date"}) {
    if (Lower(header_o.first) == own) {
      return PLXConfigurationComplaint{
          "the header " + QuotedForPeople(header_o.first) + " is the server's own", "Remove it."};
    }
  }
  return {};
}

Complaint StoreHeaderLines(Value const& value_i, bool mayLackValue_i, PLXHeaderLines& lines_o) {
  PLXHeaderLines lines;
  for (std::string const& line : value_i.texts) {
    if (Complaint complaint = ReadHeaderLine(line, mayLackValue_i, lines.emplace_back())) return complaint;
  }
  lines_o = std::move(lines);
  return {};
}

Complaint StoreSecurityHeaders(Value const& value_i, Target& target_io) {
  return StoreHeaderLines(value_i, false, target_io.configuration.securityHeaders);
}

template <auto kMember>
Complaint StoreSwitch(Value const& value_i, Target& target_io) {
  target_io.configuration.*kMember = value_i.flag;
  return {};
}

Complaint StoreHosts(Value const& value_i, Target& target_io) {
  std::vector<std::string> hosts;
  for (std::string const& text : value_i.texts) {
    std::string host = Lower(text);
    bool const isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    std::string const address = CanonicalAddress(isBracketed ? host.substr(1, host.size() - 2) : host);
    if (address.find(':') != std::string::npos) {
      host = "[" + address + "]";  // as clients say it
    } else if (host.empty() || host.size() > 253 ||
               !std::all_of(host.begin(), host.end(), [](char character) {
                 return IsLetterOrDigit(character) || character == '-' || character == '.' ||
                        character == '_';
               })) {
      return PLXConfigurationComplaint{
          QuotedForPeople(text) + " is no host name",
          "Write it as visitors do, without scheme, port and path: \"www.example.org\"."};
    }
    if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) hosts.push_back(host);
  }
  if (hosts.empty()) {
    return PLXConfigurationComplaint{"the site has no host name",
                                     "Write at least one, such as \"localhost\"."};
  }
  target_io.site->hosts = std::move(hosts);
  return {};
}

Complaint StoreRoot(Value const& value_i, Target& target_io) {
  target_io.site->root = Resolved(value_i.Text(), target_io);
  return {};
}

// File names (`kIsEnding` false) or endings of file names.
template <auto kMember, bool kIsEnding>
Complaint StoreFileNames(Value const& value_i, Target& target_io) {
  for (std::string const& text : value_i.texts) {
    bool const isGood = text.size() > (kIsEnding ? 1 : 0) && text.size() <= 255 &&
                        (text[0] == '.') == kIsEnding && text.find('/') == std::string::npos &&
                        std::none_of(text.begin(), text.end(), IsControl);
    if (!isGood) {
      return PLXConfigurationComplaint{
          QuotedForPeople(text) + (kIsEnding ? " is no ending of file names" : " is no file name"),
          kIsEnding ? "Write it with its dot: \".html\"."
                    : "Write a name without folders, such as \"index.html\"."};
    }
  }
  target_io.site->*kMember = value_i.texts;
  return {};
}

Complaint StoreDownloads(Value const& value_i, Target& target_io) {
  for (std::string const& path : value_i.texts) {
    if (!IsFolderPath(path)) return NoFolderPath(path);
  }
  target_io.site->downloads = value_i.texts;
  return {};
}

Complaint StoreRegionSite(Value const& value_i, Target& target_io) {
  target_io.region->site = value_i.Text();
  return {};
}

Complaint StoreRegionPath(Value const& value_i, Target& target_io) {
  if (!IsFolderPath(value_i.Text())) return NoFolderPath(value_i.Text());
  target_io.region->region.path = value_i.Text();
  return {};
}

template <auto kMember>
Complaint StoreRegionSwitch(Value const& value_i, Target& target_io) {
  target_io.region->region.*kMember = value_i.flag;
  return {};
}

Complaint StoreRegionHeaders(Value const& value_i, Target& target_io) {
  return StoreHeaderLines(value_i, true, target_io.region->region.headers);
}

// ---- The table
// ---------------------------------------------------------------------------------------------

constexpr Key ourKeys[] = {
    {"", "listen", Form::kText, 0, 0, "\"127.0.0.1:8080\"",
     "address and port to listen on; port 0 takes any free one", StoreListen},
    {"", "state", Form::kText, 0, 0, "\"var\"",
     "folder for everything the server writes; one server at a time", StoreState},
    {"", "shared", Form::kText, 0, 0, "none",
     "existing folder for what the servers of a farm have in common, logins and regions' data; none is the "
     "state",
     StoreShared},
    {"", "modules", Form::kTexts, 0, 0, "[]", "module files to load, in this order", StoreModules},
    {"", "page-threads", Form::kNumber, 1, 1024, "256", "pages that run at the same time",
     StoreLimit<&PLXLimits::pageThreads>},
    {"", "waiting-pages", Form::kNumber, 0, 1000000, "1024",
     "pages that wait for a thread, by default four for each; beyond it the answer is 503",
     StoreLimit<&PLXLimits::waitingPages>},
    {"", "overdue-pages", Form::kNumber, 0, 1024, "64",
     "pages that were given up and still hold a thread, on top of page-threads; a quarter for one page",
     StoreLimit<&PLXLimits::overduePages>},
    {"", "administration-threads", Form::kNumber, 1, 64, "4", "threads kept for the administration",
     StoreLimit<&PLXLimits::administrationThreads>},
    {"", "connections", Form::kNumber, 1, 1000000, "1024", "connections held at the same time",
     StoreLimit<&PLXLimits::connections>},
    {"", "connections-per-address", Form::kNumber, 0, 1000000, "64",
     "of these, from one address; 0 is no limit, for a server behind a proxy",
     StoreLimit<&PLXLimits::connectionsPerAddress>},
    {"", "header-bytes", Form::kSize, kKibi, kMebi, "16K", "longest header of a request",
     StoreLimit<&PLXLimits::headerBytes>},
    {"", "body-bytes", Form::kSize, 0, 64 * kGibi, "32M", "longest body of a request",
     StoreLimit<&PLXLimits::bodyBytes>},
    {"", "body-in-memory-bytes", Form::kSize, 0, kGibi, "64K", "a longer body waits in a file",
     StoreLimit<&PLXLimits::bodyInMemoryBytes>},
    {"", "form-fields", Form::kNumber, 1, 1000000, "1000", "most fields of a form",
     StoreLimit<&PLXLimits::formFields>},
    {"", "header-time", Form::kSeconds, 1, 3600, "15", "time for a whole header, and for an idle connection",
     StoreLimit<&PLXLimits::headerTime>},
    {"", "body-time", Form::kSeconds, 1, 3600, "15",
     "time for a whole body, and a second more for every 16K of it", StoreLimit<&PLXLimits::bodyTime>},
    {"", "page-time", Form::kSeconds, 0, 86400, "300",
     "time until a page that does not end is given up with 504; 0 waits for ever",
     StoreLimit<&PLXLimits::pageTime>},
    {"", "write-time", Form::kSeconds, 1, 3600, "60",
     "time to send an answer, and a second more for every 16K of it", StoreLimit<&PLXLimits::writeTime>},
    {"", "stop-time", Form::kSeconds, 0, 3600, "30", "time for running pages when the server stops",
     StoreLimit<&PLXLimits::stopTime>},
    {"", "include-depth", Form::kNumber, 1, 100, "10",
     "pages of this server that include each other, 508 beyond", StoreLimit<&PLXLimits::includeDepth>},
    {"", "proxies", Form::kTexts, 0, 0, "[]",
     "addresses of proxies whose word on the client's address counts", StoreProxies},
    {"", "security-headers", Form::kTexts, 0, 0,
     "[\"X-Content-Type-Options: nosniff\", \"Referrer-Policy: strict-origin-when-cross-origin\", "
     "\"X-Frame-Options: SAMEORIGIN\"]",
     "headers added to answers that do not set them", StoreSecurityHeaders},
    {"", "records-source", Form::kText, 0, 0, "none",
     "ODBC data source of the record databases: a name or a connection string; empty is a file of its own",
     StoreText<&PLXConfiguration::recordsSource>},
    {"", "records-user", Form::kText, 0, 0, "none", "user of that data source",
     StoreText<&PLXConfiguration::recordsUser>},
    {"", "records-password", Form::kText, 0, 0, "none", "password of that user",
     StoreText<&PLXConfiguration::recordsPassword>},
    {"", "trace", Form::kSwitch, 0, 0, "false", "write every event and call of the modules to trace.log",
     StoreSwitch<&PLXConfiguration::trace>},
    {"", "core-dumps", Form::kSwitch, 0, 0, "false",
     "let a crash write memory to disk, and debuggers look at it: passwords are in it",
     StoreSwitch<&PLXConfiguration::coreDumps>},
    {"", "log-bytes", Form::kSize, 4 * kKibi, 64 * kGibi, "10M", "size at which a log file is rotated",
     StoreNumber<&PLXConfiguration::logBytes>},
    {"", "log-files", Form::kNumber, 1, 1000, "5", "rotated files kept of each log",
     StoreNumber<&PLXConfiguration::logFiles>},
    {"site", "hosts", Form::kTexts, 0, 0, "none",
     "names under which visitors come; the first is the site's own", StoreHosts},
    {"site", "root", Form::kText, 0, 0, "none", "folder with the site's pages and files", StoreRoot},
    {"site", "index", Form::kTexts, 0, 0, "[\"index.html\", \"index.plx\"]",
     "files that stand for their folder", StoreFileNames<&PLXSiteConfiguration::indexes, false>},
    {"site", "pages", Form::kTexts, 0, 0, "[\".html\", \".htm\", \".plx\"]",
     "endings of files that are run as pages", StoreFileNames<&PLXSiteConfiguration::pages, true>},
    {"site", "downloads", Form::kTexts, 0, 0, "[]",
     "folders whose files are sent as downloads and never run; so is each region's Attachments/",
     StoreDownloads},
    {"region", "site", Form::kText, 0, 0, "none", "the site that the region belongs to", StoreRegionSite},
    {"region", "path", Form::kText, 0, 0, "none",
     "the folder on the site that it covers; \"/\" is the region main", StoreRegionPath},
    {"region", "login", Form::kSwitch, 0, 0, "false", "whether every request needs a login of the region",
     StoreRegionSwitch<&PLXRegionConfiguration::requiresLogin>},
    {"region", "foreign-posts", Form::kSwitch, 0, 0, "false",
     "whether pages of other sites may post here with the visitor's login or cookies",
     StoreRegionSwitch<&PLXRegionConfiguration::takesForeignPosts>},
    {"region", "headers", Form::kTexts, 0, 0, "[]",
     "headers added to answers that do not set them, in place of the server's; \"Name:\" leaves one out",
     StoreRegionHeaders},
};

// ---- Forms
// -------------------------------------------------------------------------------------------------

std::string SizeText(std::uint64_t bytes_i) {
  if (bytes_i >= kGibi && bytes_i % kGibi == 0) return std::to_string(bytes_i / kGibi) + "G";
  if (bytes_i >= kMebi && bytes_i % kMebi == 0) return std::to_string(bytes_i / kMebi) + "M";
  if (bytes_i >= kKibi && bytes_i % kKibi == 0) return std::to_string(bytes_i / kKibi) + "K";
  return std::to_string(bytes_i);
}

std::string RangeText(Key const& key_i) {
  bool const isSize = key_i.form == Form::kSize;
  return (isSize ? SizeText(key_i.least) : std::to_string(key_i.least)) + " to " +
         (isSize ? SizeText(key_i.most) : std::to_string(key_i.most));
}

// In the order of the forms.
constexpr char const* kFormTexts[] = {"a whole number",
                                      "a size in bytes, or with K, M or G behind it,",
                                      "a whole number of seconds",
                                      "true or false",
                                      "a text",
                                      "a list of texts"};
static_assert(std::size(kFormTexts) == static_cast<std::size_t>(Form::kTexts) + 1);

std::string RemedyForForm(Key const& key_i) {
  std::string const range = key_i.most != 0 ? " from " + RangeText(key_i) : "";
  return std::string("Write ") + kFormTexts[static_cast<std::size_t>(key_i.form)] + range + ".";
}

PLXConfigurationComplaint WrongForm(Key const& key_i, std::string_view text_i) {
  return {"\"" + std::string(key_i.name) + "\" cannot be " + QuotedForPeople(text_i), RemedyForForm(key_i)};
}

Complaint ReadNumber(Key const& key_i, std::string_view text_i, std::uint64_t& number_o) {
  std::uint64_t unit = 1;
  std::string_view digits = text_i;
  if (key_i.form == Form::kSize && !digits.empty()) {
    switch (digits.back()) {
      case 'K':
      case 'k':
        unit = kKibi;
        break;
      case 'M':
      case 'm':
        unit = kMebi;
        break;
      case 'G':
      case 'g':
        unit = kGibi;
        break;
      default:
        break;
    }
    if (unit != 1) digits.remove_suffix(1);
  }
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number_o);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size())
    return WrongForm(key_i, text_i);
  if (error == std::errc::result_out_of_range || number_o > key_i.most / unit ||
      number_o * unit < key_i.least) {
    return PLXConfigurationComplaint{
        "\"" + std::string(key_i.name) + "\" is out of range: " + QuotedForPeople(text_i),
        RemedyForForm(key_i)};
  }
  number_o *= unit;
  return {};
}

Complaint ReadSwitch(Key const& key_i, std::string const& text_i, bool& flag_o) {
  std::string const word = Lower(text_i);
  flag_o = word == "true" || word == "yes" || word == "on";
  if (flag_o || word == "false" || word == "no" || word == "off") return {};
  return WrongForm(key_i, text_i);
}

std::vector<std::string> CutAtCommas(std::string_view text_i) {
  std::vector<std::string> texts;
  while (!text_i.empty()) {
    std::size_t const comma = std::min(text_i.find(','), text_i.size());
    std::string_view text = text_i.substr(0, comma);
    text_i.remove_prefix(std::min(comma + 1, text_i.size()));
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    texts.emplace_back(text);
  }
  return texts;
}

// How many letters have to be changed, added, taken away or swapped with a neighbour to get from one word to
// the other.
std::size_t Distance(std::string_view left_i, std::string_view right_i) {
  std::vector<std::size_t> before(right_i.size() + 1), last(right_i.size() + 1), row(right_i.size() + 1);
  for (std::size_t column = 0; column < last.size(); ++column) last[column] = column;
  for (std::size_t line = 1; line <= left_i.size(); ++line) {
    row[0] = line;
    for (std::size_t column = 1; column <= right_i.size(); ++column) {
      bool const same = left_i[line - 1] == right_i[column - 1];
      row[column] = std::min({last[column] + 1, row[column - 1] + 1, last[column - 1] + (same ? 0 : 1)});
      if (line > 1 && column > 1 && left_i[line - 1] == right_i[column - 2] &&
          left_i[line - 2] == right_i[column - 1]) {
        row[column] = std::min(row[column], before[column - 2] + 1);
      }
    }
    before.swap(last);
    last.swap(row);
  }
  return last.back();
}

}  // namespace

PLXConfigurationKey::Complaint PLXConfigurationKey::Read(PLXConfigurationValue const& value_i,
                                                         PLXConfigurationTarget& target_io) const {
  Value value;
  value.texts = form == Form::kTexts && value_i.isRaw ? CutAtCommas(value_i.texts.front()) : value_i.texts;
  if (form == Form::kTexts) return store(value, target_io);
  if (value_i.isList) {
    return PLXConfigurationComplaint{"\"" + std::string(name) + "\" cannot be a list", RemedyForForm(*this)};
  }
  Complaint complaint;
  if (form == Form::kSwitch) {
    complaint = ReadSwitch(*this, value.Text(), value.flag);
  } else if (form != Form::kText) {
    complaint = ReadNumber(*this, value.Text(), value.number);
  } else if (value.Text().empty() || value.Text().find('\0') != std::string::npos) {
    complaint = PLXConfigurationComplaint{"\"" + std::string(name) + "\" is empty",
                                          "Write a text, or remove the key."};
  }
  return complaint ? complaint : store(value, target_io);
}

PLXConfigurationKey const* FindConfigurationKey(std::string_view section_i, std::string_view name_i) {
  for (Key const& key : ourKeys) {
    if (key.section == section_i && key.name == name_i) return &key;
  }
  return nullptr;
}

std::string_view NearestWord(std::string_view word_i, std::span<std::string_view const> candidates_i) {
  std::string_view nearest;
  std::size_t least = std::max<std::size_t>(2, word_i.size() / 3) + 1;
  if (word_i.size() > 64) return nearest;
  for (std::string_view const candidate : candidates_i) {
    std::size_t const distance = Distance(word_i, candidate);
    if (distance < least && distance < candidate.size()) {
      least = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string RemedyForUnknownKey(std::string_view section_i, std::string_view name_i) {
  for (Key const& key : ourKeys) {
    if (key.name != name_i) continue;
    if (key.section.empty()) return "It belongs to the whole server: write it before the first section.";
    return "It belongs in a section [" + std::string(key.section) + ".NAME].";
  }
  std::vector<std::string_view> names;
  for (Key const& key : ourKeys) {
    if (key.section == section_i) names.push_back(key.name);
  }
  std::string_view const nearest = NearestWord(name_i, names);
  if (!nearest.empty()) return "Did you mean \"" + std::string(nearest) + "\"?";
  if (section_i.empty()) return "Remove it; \"plxserver serve --help\" lists the keys.";
  std::string remedy = "Here one can write";
  for (std::string_view const name : names) {
    remedy.append(name == names.front() ? " " : name == names.back() ? " and " : ", ").append(name);
  }
  return remedy + ".";
}

std::string ConfigurationReference() {
  std::string reference;
  std::string_view section;
  for (Key const& key : ourKeys) {
    if (key.section != section) {
      section = key.section;
      reference.append("[").append(section).append(".NAME]\n");
    }
    reference.append(key.name).append(" = ").append(key.standard).append("  # ").append(key.meaning);
    if (key.most != 0) {
      reference.append(" (").append(RangeText(key)).append(key.form == Form::kSeconds ? " seconds)" : ")");
    }
    reference.push_back('\n');
  }
  return reference;
}
