#include "PLXServerPages.h"

#include "PLXPage.h"

namespace {

// Small enough to repeat in every page. Colours follow the reader's light or dark setting and keep a contrast
// of at least 4.5 to 1 in both.
constexpr std::string_view kStyle =
    ":root{color-scheme:light "
    "dark;--line:#8886;--soft:#8881;--accent:#0b57a4;--good:#1c6b2c;--bad:#a8211c;--quiet:#595959}"
    "@media(prefers-color-scheme:dark){:root{--accent:#8fc1ff;--good:#7ed492;--bad:#ff9d97;--quiet:#b4b4b4}}"
    "*{box-sizing:border-box}"
    "body{margin:0 auto;max-width:64rem;padding:1rem;font:1rem/1.5 "
    "system-ui,sans-serif;overflow-wrap:anywhere}"
    "h1{font-size:1.5rem;line-height:1.2;margin:.5rem 0 1rem}h2{font-size:1.15rem;margin:1.5rem 0 .5rem}"
    "a{color:var(--accent)}:focus-visible{outline:3px solid var(--accent);outline-offset:2px}"
    ".skip:not(:focus),.hidden,caption{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:"
    "inset("
    "50%);"
    "white-space:nowrap}"
    "nav{border-bottom:1px solid var(--line);padding-bottom:.5rem}"
    "nav a{display:inline-block;padding:.35rem .75rem .35rem 0}nav "
    "a[aria-current]{font-weight:700;color:inherit;"
    "text-decoration:none}"
    // A table rather goes beyond the screen, where it can be scrolled to, than break within words.
    ".scroll{overflow-x:auto}.scroll th,.scroll td{overflow-wrap:break-word}"
    "table{border-collapse:collapse;width:100%}th,td{padding:.35rem .6rem .35rem "
    "0;text-align:left;vertical-align:top;"
    "border-bottom:1px solid var(--line)}td.number,th.number{text-align:right}"
    "dl{display:grid;grid-template-columns:minmax(8rem,max-content) 1fr;gap:.25rem "
    "1rem}dt{color:var(--quiet)}dd{margin:0}"
    "@media(max-width:35rem){dl{grid-template-columns:minmax(7rem,45%) 1fr}.scroll "
    "input:not([type=checkbox]){width:11rem}}"
    "code,pre{font-family:ui-monospace,monospace;font-size:.9em}"
    "pre{background:var(--soft);padding:.75rem;white-space:pre-wrap;border-radius:.25rem}"
    ".note{border-left:.3rem solid var(--good);background:var(--soft);padding:.5rem .75rem}"
    ".problem{border-left:.3rem solid var(--bad);background:var(--soft);padding:.5rem .75rem}"
    "input,button,select,textarea{font:inherit;max-width:100%}button{padding:.4rem 1rem}"
    ".quiet{color:var(--quiet);font-size:.9rem}";

bool IsPlainInAddress(char character_i) {
  return (character_i >= 'a' && character_i <= 'z') || (character_i >= 'A' && character_i <= 'Z') ||
         (character_i >= '0' && character_i <= '9') ||
         std::string_view("-._~").find(character_i) != std::string_view::npos;
}

std::string Escape(std::string_view text_i, std::string_view alsoPlain_i) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text_i.size() + 16);
  for (char const character : text_i) {
    if (IsPlainInAddress(character) || alsoPlain_i.find(character) != std::string_view::npos) {
      out += character;
    } else {
      auto const byte = static_cast<unsigned char>(character);
      out += '%';
      out += kDigits[byte >> 4];
      out += kDigits[byte & 15];
    }
  }
  return out;
}

}  // namespace

std::string ServerPage(std::string_view title_i, std::string_view bodyHTML_i, std::string_view headHTML_i) {
  std::string page;
  page.reserve(kStyle.size() + bodyHTML_i.size() + headHTML_i.size() + title_i.size() + 512);
  page +=
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  page += EncodeHTML(title_i);
  page += "</title>\n";
  page += headHTML_i;
  page += "<style>";
  page += kStyle;
  page += "</style>\n</head>\n<body>\n";
  page += bodyHTML_i;
  page += "</body>\n</html>\n";
  return page;
}

PLXResponse ErrorPage(int status_i, std::string_view sentence_i, std::uint64_t requestID_i) {
  std::string const title = std::to_string(status_i) + " " + std::string(StatusPhrase(status_i));
  std::string body = "<main>\n<h1>" + EncodeHTML(title) + "</h1>\n<p>" + EncodeHTML(sentence_i) + "</p>\n";
  if (requestID_i != 0) {
    body += "<p class=\"quiet\">The server's log has the details under request " +
            std::to_string(requestID_i) + ".</p>\n";
  }
  body += "</main>\n";
  PLXResponse response;
  response.status = status_i;
  response.SetHeader("Content-Type", "text/html; charset=utf-8");
  response.SetHeader("Cache-Control", "no-store");
  response.SetHeader("Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'");
  response.body = ServerPage(title, body);
  return response;
}

PLXResponse TooManyLogins(std::chrono::seconds wait_i) {
  PLXResponse response = ErrorPage(429, "Too many logins have failed. Please wait a little and try again.");
  response.SetHeader("Retry-After", std::to_string(wait_i.count()));
  return response;
}

std::string_view StatusPhrase(int status_i) {
  struct Phrase {
    int status;
    std::string_view text;
  };
  static constexpr Phrase kPhrases[] = {{301, "Moved Permanently"},
                                        {303, "See Other"},
                                        {400, "Bad Request"},
                                        {401, "Unauthorized"},
                                        {403, "Forbidden"},
                                        {404, "Not Found"},
                                        {405, "Method Not Allowed"},
                                        {408, "Request Timeout"},
                                        {412, "Precondition Failed"},
                                        {413, "Content Too Large"},
                                        {414, "URI Too Long"},
                                        {416, "Range Not Satisfiable"},
                                        {429, "Too Many Requests"},
                                        {431, "Request Header Fields Too Large"},
                                        {500, "Internal Server Error"},
                                        {501, "Not Implemented"},
                                        {503, "Service Unavailable"},
                                        {504, "Gateway Timeout"},
                                        {505, "HTTP Version Not Supported"},
                                        {508, "Loop Detected"}};
  for (Phrase const& phrase : kPhrases) {
    if (phrase.status == status_i) return phrase.text;
  }
  return "Error";
}

std::string EncodePath(std::string_view path_i) { return Escape(path_i, "/!$&()*+,;=:@"); }

std::string EncodeArgument(std::string_view text_i) { return Escape(text_i, ""); }
