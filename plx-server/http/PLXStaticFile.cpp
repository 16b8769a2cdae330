#include "PLXStaticFile.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <sys/stat.h>

#include "PLXASCII.h"

namespace {

using std::chrono::sys_seconds;

struct MediaTypeRow {
  std::string_view ending;
  std::string_view type;
};

// By ending, sorted. No text type names a charset: pages and files of old sites may be 8-bit, and the charset
// of a header would win over the one that the file itself declares. Markdown alone must have one (RFC 7763).
constexpr MediaTypeRow ourMediaTypes[] = {
    {"7z", "application/x-7z-compressed"},
    {"aac", "audio/aac"},
    {"apng", "image/apng"},
    {"atom", "application/atom+xml"},
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"bz2", "application/x-bzip2"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"eml", "message/rfc822"},
    {"epub", "application/epub+zip"},
    {"flac", "audio/flac"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ico", "image/vnd.microsoft.icon"},
    {"ics", "text/calendar"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript"},
    {"json", "application/json"},
    {"m4a", "audio/mp4"},
    {"map", "application/json"},
    {"md", "text/markdown; charset=utf-8"},
    {"mid", "audio/midi"},
    {"midi", "audio/midi"},
    {"mjs", "text/javascript"},
    {"mov", "video/quicktime"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"mpeg", "video/mpeg"},
    {"mpg", "video/mpeg"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ogg", "audio/ogg"},
    {"ogv", "video/ogg"},
    {"opus", "audio/ogg"},
    {"otf", "font/otf"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"ps", "application/postscript"},
    {"rss", "application/rss+xml"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tgz", "application/gzip"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"ttf", "font/ttf"},
    {"txt", "text/plain"},
    {"vcf", "text/vcard"},
    {"vtt", "text/vtt"},
    {"wasm", "application/wasm"},
    {"wav", "audio/wav"},
    {"weba", "audio/webm"},
    {"webm", "video/webm"},
    {"webmanifest", "application/manifest+json"},
    {"webp", "image/webp"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"xhtml", "application/xhtml+xml"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"zip", "application/zip"},
};
static_assert(std::ranges::is_sorted(ourMediaTypes, {}, &MediaTypeRow::ending));

constexpr std::string_view ourDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::string_view ourMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string_view Trimmed(std::string_view text_i) {
  std::size_t const first = text_i.find_first_not_of(" \t");
  if (first == text_i.npos) return {};
  return text_i.substr(first, text_i.find_last_not_of(" \t") - first + 1);
}

// A number of digits alone; one that is too large for 64 bits becomes the largest. False when it is no
// number.
bool ReadNumber(std::string_view text_i, std::uint64_t& number_o) {
  if (text_i.empty() || text_i.find_first_not_of("0123456789") != text_i.npos) return false;
  auto const result = std::from_chars(text_i.data(), text_i.data() + text_i.size(), number_o);
  if (result.ec == std::errc::result_out_of_range) number_o = UINT64_MAX;
  return true;
}

std::string_view TakeTag(std::string_view& list_io) {
  std::size_t const begin = list_io.find_first_not_of(" \t,");
  if (begin == list_io.npos) {
    list_io = {};
    return {};
  }
  std::size_t const quote = list_io.find('"', begin);
  std::size_t const close = quote == list_io.npos ? quote : list_io.find('"', quote + 1);
  std::string_view const tag = list_io.substr(begin, close == list_io.npos ? close : close + 1 - begin);
  list_io = close == list_io.npos ? std::string_view{} : list_io.substr(close + 1);
  return tag;
}

std::string_view Opaque(std::string_view tag_i) {
  if (tag_i.starts_with("W/")) tag_i.remove_prefix(2);
  return tag_i;
}

// Strong comparison (RFC 9110, section 8.8.3.2) takes no weak tag for equal to anything.
bool TagsMatch(std::string_view a_i, std::string_view b_i, bool strong_i) {
  if (strong_i) return a_i == b_i && !a_i.starts_with("W/");
  return Opaque(a_i) == Opaque(b_i);
}

bool ListMatches(std::string_view list_i, std::string_view tag_i, bool strong_i) {
  if (Trimmed(list_i) == "*") return true;
  while (!list_i.empty()) {
    std::string_view const one = TakeTag(list_i);
    if (!one.empty() && TagsMatch(one, tag_i, strong_i)) return true;
  }
  return false;
}

// What the file is now, as validators of RFC 9110.
struct FileState {
  std::uint64_t size = 0;
  sys_seconds modified;
  std::string tag;
};

// A file that was changed within the last second may be changed again without its time moving on, so its tag
// is weak: good for a cache that asks again, never for joining two ranges.
FileState StateOf(struct stat const& status_i) {
  using namespace std::chrono;
  sys_seconds const now = floor<seconds>(system_clock::now());
  sys_seconds const modified{seconds(status_i.st_mtim.tv_sec)};

  char tag[80];
  int const length = std::snprintf(
      tag, sizeof tag, "%s\"%llx-%llx-%llx.%lx\"", modified >= now - 1s ? "W/" : "",
      static_cast<unsigned long long>(status_i.st_ino), static_cast<unsigned long long>(status_i.st_size),
      static_cast<unsigned long long>(status_i.st_mtim.tv_sec),
      static_cast<unsigned long>(status_i.st_mtim.tv_nsec));
  FileState state;
  state.size = static_cast<std::uint64_t>(status_i.st_size);
  state.modified = std::min(modified, now);  // a date in the future would never be believed
  state.tag.assign(tag, static_cast<std::size_t>(length));
  return state;
}

// RFC 9110, section 13.2.2: 412, 304 or 200 to go on. A date that cannot be read is as good as none.
int CheckPreconditions(PLXRequest const& request_i, FileState const& state_i) {
  sys_seconds date;
  std::string_view const match = request_i.Header("If-Match");
  if (!match.empty()) {
    if (!ListMatches(match, state_i.tag, true)) return 412;
  } else if (ParseHTTPDate(request_i.Header("If-Unmodified-Since"), date) && state_i.modified > date) {
    return 412;
  }
  std::string_view const noneMatch = request_i.Header("If-None-Match");
  if (!noneMatch.empty()) return ListMatches(noneMatch, state_i.tag, false) ? 304 : 200;
  if (ParseHTTPDate(request_i.Header("If-Modified-Since"), date) && state_i.modified <= date) return 304;
  return 200;
}

// Whether If-Range lets a range be sent: the client's part must be of the very same file. A date counts only
// when it is exactly ours and the second it names is over, which a strong tag tells.
bool RangeIsFresh(PLXRequest const& request_i, FileState const& state_i) {
  std::string_view const condition = Trimmed(request_i.Header("If-Range"));
  if (condition.empty()) return true;
  sys_seconds date;
  if (ParseHTTPDate(condition, date)) return date == state_i.modified && !state_i.tag.starts_with("W/");
  return TagsMatch(condition, state_i.tag, true);
}

enum class RangeKind { kWhole, kPart, kBeyond };

// Reads "bytes=0-99", "bytes=100-" or "bytes=-100". What is no single clear range asks for the whole file.
RangeKind ReadRange(std::string_view header_i, std::uint64_t size_i, std::uint64_t& offset_o,
                    std::uint64_t& length_o) {
  std::size_t const equals = header_i.find('=');
  if (equals != 5) return RangeKind::kWhole;
  std::string unit(Trimmed(header_i.substr(0, equals)));
  std::ranges::transform(unit, unit.begin(), LowerASCII);
  std::string_view const range = Trimmed(header_i.substr(equals + 1));
  std::size_t const dash = range.find('-');
  if (unit != "bytes" || dash == range.npos) return RangeKind::kWhole;

  std::string_view const firstText = Trimmed(range.substr(0, dash));
  std::string_view const lastText = Trimmed(range.substr(dash + 1));
  std::uint64_t first = 0;
  std::uint64_t last = UINT64_MAX;
  if (!lastText.empty() && !ReadNumber(lastText, last)) return RangeKind::kWhole;
  if (firstText.empty()) {
    if (lastText.empty()) return RangeKind::kWhole;
    if (last == 0 || size_i == 0) return RangeKind::kBeyond;
    length_o = std::min(last, size_i);
    offset_o = size_i - length_o;
    return RangeKind::kPart;
  }
  if (!ReadNumber(firstText, first) || last < first) return RangeKind::kWhole;
  if (first >= size_i) return RangeKind::kBeyond;
  offset_o = first;
  length_o = std::min(last, size_i - 1) - first + 1;
  return RangeKind::kPart;
}

// The length of a well-formed UTF-8 character at `at_i`, 0 when there is none.
std::size_t UTF8Length(std::string_view text_i, std::size_t at_i) {
  auto const byte = [&](std::size_t n_i) { return static_cast<unsigned char>(text_i[at_i + n_i]); };
  unsigned const lead = byte(0);
  std::size_t const length = lead < 0x80   ? 1
                             : lead < 0xc2 ? 0
                             : lead < 0xe0 ? 2
                             : lead < 0xf0 ? 3
                             : lead < 0xf5 ? 4
                                           : 0;
  if (length == 0 || at_i + length > text_i.size()) return 0;
  for (std::size_t n = 1; n < length; ++n) {
    if ((byte(n) & 0xc0) != 0x80) return 0;
  }
  bool const wrong = (lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) >= 0xa0) ||
                     (lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) >= 0x90);
  return wrong ? 0 : length;
}

void AppendEscaped(std::string& text_io, unsigned char byte_i) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  text_io += '%';
  text_io += kDigits[byte_i >> 4];
  text_io += kDigits[byte_i & 15];
}

bool IsPlainInExtendedValue(char c_i) {
  return (c_i >= '0' && c_i <= '9') || (LowerASCII(c_i) >= 'a' && LowerASCII(c_i) <= 'z') ||
         std::string_view("!#$&+-.^_`|~").find(c_i) != std::string_view::npos;
}

// RFC 6266: the name for old clients with what they cannot read as "_", and when that lost something, the
// whole name as RFC 8187 writes it. A byte that is no UTF-8 is taken for Latin-1.
std::string AttachmentHeader(std::string_view name_i) {
  std::string plain;
  std::string extended;
  for (std::size_t at = 0; at < name_i.size();) {
    char const c = name_i[at];
    std::size_t const length = UTF8Length(name_i, at);
    bool const isPlain = length == 1 && c >= 0x20 && c < 0x7f && c != '"' && c != '\\' && c != '%';
    plain += isPlain ? c : '_';
    if (length == 0) {
      auto const byte = static_cast<unsigned char>(c);
      AppendEscaped(extended, static_cast<unsigned char>(0xc0 | byte >> 6));
      AppendEscaped(extended, static_cast<unsigned char>(0x80 | (byte & 0x3f)));
    }
    for (std::size_t n = 0; n < length; ++n) {
      if (IsPlainInExtendedValue(name_i[at + n])) {
        extended += name_i[at + n];
      } else {
        AppendEscaped(extended, static_cast<unsigned char>(name_i[at + n]));
      }
    }
    at += std::max<std::size_t>(length, 1);
  }
  std::string header = "attachment; filename=\"" + plain + '"';
  if (plain != name_i) header += "; filename*=UTF-8''" + extended;
  return header;
}

PLXDisposition PlainAnswer(int status_i, std::string body_i) {
  PLXDisposition disposition;
  disposition.answer.status = status_i;
  disposition.answer.body = std::move(body_i);
  if (!disposition.answer.body.empty()) disposition.answer.SetHeader("Content-Type", "text/plain");
  return disposition;
}

void SetValidators(PLXResponse& response_io, FileState const& state_i) {
  response_io.SetHeader("ETag", state_i.tag);
  response_io.SetHeader("Last-Modified", FormatHTTPDate(state_i.modified));
  // Caches may keep the file but ask each time: an editor's change shows at once, at the price of a 304.
  response_io.SetHeader("Cache-Control", "no-cache");
}

void SetContentHeaders(PLXResponse& response_io, std::filesystem::path const& file_i, bool download_i) {
  std::string const name = file_i.filename().string();
  response_io.SetHeader("Accept-Ranges", "bytes");
  response_io.SetHeader("Content-Type", download_i ? "application/octet-stream" : MediaType(name));
  if (!download_i) return;
  response_io.SetHeader("Content-Disposition", AttachmentHeader(name));
  response_io.SetHeader("X-Content-Type-Options", "nosniff");
  response_io.SetHeader("Content-Security-Policy", "default-src 'none'; sandbox");
}

}  // namespace

PLXDisposition AnswerFile(PLXRequest const& request_i, std::filesystem::path const& file_i, bool download_i,
                          struct stat const* status_i) {
  bool const isGet = request_i.method == "GET";
  if (!isGet && request_i.method != "HEAD") {
    PLXDisposition disposition = PlainAnswer(405, "A file can only be read.\n");
    disposition.answer.SetHeader("Allow", "GET, HEAD");
    return disposition;
  }
  struct stat status {};
  if (status_i != nullptr) status = *status_i;
  bool const isThere = status_i != nullptr || ::stat(file_i.c_str(), &status) == 0;
  if (!isThere || !S_ISREG(status.st_mode)) return PlainAnswer(404, "There is no such file.\n");
  FileState const state = StateOf(status);

  if (int const code = CheckPreconditions(request_i, state); code != 200) {
    PLXDisposition disposition = PlainAnswer(code, code == 412 ? "The file has changed.\n" : "");
    SetValidators(disposition.answer, state);
    return disposition;
  }

  PLXFileAnswer answer;
  answer.file = file_i;
  answer.length = state.size;
  std::string_view const range = isGet ? request_i.Header("Range") : std::string_view{};
  if (!range.empty() && RangeIsFresh(request_i, state)) {
    RangeKind const kind = ReadRange(range, state.size, answer.offset, answer.length);
    std::string const size = std::to_string(state.size);
    if (kind == RangeKind::kBeyond) {
      PLXDisposition disposition = PlainAnswer(416, "The file has " + size + " bytes.\n");
      disposition.answer.SetHeader("Content-Range", "bytes */" + size);
      return disposition;
    }
    if (kind == RangeKind::kPart) {
      answer.response.status = 206;
      answer.response.SetHeader("Content-Range", "bytes " + std::to_string(answer.offset) + '-' +
                                                     std::to_string(answer.offset + answer.length - 1) + '/' +
                                                     size);
    }
  }
  SetValidators(answer.response, state);
  SetContentHeaders(answer.response, file_i, download_i);

  PLXDisposition disposition;
  disposition.kind = PLXDisposition::Kind::kFile;
  disposition.fileAnswer = std::move(answer);
  return disposition;
}

std::string_view MediaType(std::string_view fileName_i) {
  std::size_t const dot = fileName_i.rfind('.');
  if (dot == fileName_i.npos) return "application/octet-stream";
  std::string ending(fileName_i.substr(dot + 1));
  std::ranges::transform(ending, ending.begin(), LowerASCII);
  auto const row =
      std::ranges::lower_bound(ourMediaTypes, std::string_view(ending), {}, &MediaTypeRow::ending);
  return row != std::end(ourMediaTypes) && row->ending == ending ? row->type : "application/octet-stream";
}

std::string FormatHTTPDate(std::chrono::sys_seconds time_i) {
  using namespace std::chrono;
  sys_days const day = floor<days>(time_i);
  year_month_day const date{day};
  hh_mm_ss const clock{time_i - day};
  std::string_view const dayName = ourDays[weekday{day}.c_encoding()];
  std::string_view const monthName = ourMonths[static_cast<unsigned>(date.month()) - 1];
  std::string text = "ddd, 00 mmm 0000 00:00:00 GMT";
  auto const put = [&text](std::size_t end_i, std::size_t digits_i, auto number_i) {
    for (; digits_i-- > 0; number_i /= 10) text[--end_i] = static_cast<char>('0' + number_i % 10);
  };
  text.replace(0, 3, dayName);
  put(7, 2, static_cast<unsigned>(date.day()));
  text.replace(8, 3, monthName);
  put(16, 4, static_cast<unsigned>(static_cast<int>(date.year())));
  put(19, 2, clock.hours().count());
  put(22, 2, clock.minutes().count());
  put(25, 2, clock.seconds().count());
  return text;
}

bool ParseHTTPDate(std::string_view text_i, std::chrono::sys_seconds& time_o) {
  using namespace std::chrono;
  // Sun, 06 Nov 1994 08:49:37 GMT
  constexpr std::string_view kShape = "aaa, 00 aaa 0000 00:00:00 GMT";
  if (text_i.size() != kShape.size()) return false;
  for (std::size_t at = 0; at < kShape.size(); ++at) {
    bool const isDigit = text_i[at] >= '0' && text_i[at] <= '9';
    if (kShape[at] == '0' ? !isDigit : kShape[at] != 'a' && kShape[at] != text_i[at]) return false;
  }
  auto const number = [&](std::size_t at_i, std::size_t digits_i) {
    int value = 0;
    for (char c : text_i.substr(at_i, digits_i)) value = value * 10 + (c - '0');
    return value;
  };
  auto const monthName = std::ranges::find(ourMonths, text_i.substr(8, 3));
  if (std::ranges::find(ourDays, text_i.substr(0, 3)) == std::end(ourDays)) return false;
  if (monthName == std::end(ourMonths)) return false;

  year_month_day const date{year(number(12, 4)), month(static_cast<unsigned>(monthName - ourMonths) + 1),
                            day(static_cast<unsigned>(number(5, 2)))};
  int const hour = number(17, 2);
  int const minute = number(20, 2);
  int const second = number(23, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return false;  // 60: a leap second
  time_o = sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
  return true;
}
