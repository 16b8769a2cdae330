#include "PLXHTTPMessage.h"

// clang-format off
#include <utility>  // before Beast 1.74, which needs it and does not ask for it
// clang-format on

#include <algorithm>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/status.hpp>

#include "PLXASCII.h"
#include "PLXForms.h"
#include "PLXLog.h"

namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

constexpr std::size_t kLastChunk_Shortest = 5;  // "0", CR LF, CR LF

// Hands the body on as it comes, so that it is kept once, where PLXRequestBody wants it.
struct ForwardedBody {
  using value_type = PLXRequestBody*;

  class reader {
   public:
    template <bool isRequest, class Fields>
    reader(http::header<isRequest, Fields>&, value_type& body_i) : myBody(body_i) {}
    void init(boost::optional<std::uint64_t> const&, error_code& error_o) { error_o = {}; }
    template <class Buffers>
    std::size_t put(Buffers const& buffers_i, error_code& error_o) {
      error_o = {};
      std::size_t used = 0;
      for (auto at = boost::asio::buffer_sequence_begin(buffers_i);
           at != boost::asio::buffer_sequence_end(buffers_i); ++at) {
        boost::asio::const_buffer const piece = *at;
        if (!myBody->Append({static_cast<char const*>(piece.data()), piece.size()})) {
          error_o = make_error_code(boost::system::errc::io_error);
          return used;
        }
        used += piece.size();
      }
      return used;
    }
    void finish(error_code& error_o) { error_o = {}; }

   private:
    value_type& myBody;
  };
};

std::string_view View(boost::beast::string_view text_i) { return {text_i.data(), text_i.size()}; }

bool IsControl(char c_i) { return static_cast<unsigned char>(c_i) < 0x20 || c_i == 0x7f; }

bool IsTokenCharacter(char c_i) {
  return (LowerASCII(c_i) >= 'a' && LowerASCII(c_i) <= 'z') || (c_i >= '0' && c_i <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c_i) != std::string_view::npos;
}

bool IsHostCharacter(char c_i) {
  return (LowerASCII(c_i) >= 'a' && LowerASCII(c_i) <= 'z') || (c_i >= '0' && c_i <= '9') ||
         std::string_view("-._~%!$&'()*+,;=:[]").find(c_i) != std::string_view::npos;
}

PLXHTTPProblem BadRequest(std::string_view sentence_i) { return {400, std::string(sentence_i)}; }

std::string_view HeadSentence(error_code error_i) {
  if (error_i == http::error::bad_method) return "The method is no token.";
  if (error_i == http::error::bad_target) return "The target of the request cannot be read.";
  if (error_i == http::error::bad_field) return "A header line has no name and colon.";
  if (error_i == http::error::bad_value) return "The value of a header cannot be read.";
  if (error_i == http::error::bad_content_length || error_i == http::error::bad_transfer_encoding) {
    return "The request does not say clearly how long its body is.";
  }
  return "The request cannot be read.";
}

// Splits "http://host/path" into its host and the rest. False when it is no such address.
bool SplitAbsolute(std::string_view& target_io, std::string_view& host_o) {
  std::size_t const scheme = target_io.find("://");
  if (scheme == target_io.npos) return false;
  std::string_view const name = target_io.substr(0, scheme);
  if (!EqualIgnoringCase(name, "http") && !EqualIgnoringCase(name, "https")) return false;
  std::string_view const rest = target_io.substr(scheme + 3);
  std::size_t const end = std::min(rest.find_first_of("/?"), rest.size());
  host_o = rest.substr(0, end);
  target_io = rest.substr(end);
  return !host_o.empty() && host_o.find('@') == host_o.npos;
}

// Path, query and their arguments from the target.
PLXHTTPProblem ReadTarget(std::string_view target_i, std::size_t arguments_i, PLXRequest& request_io) {
  std::size_t const question = target_i.find('?');
  if (target_i.find('#') != target_i.npos) return BadRequest("The address carries a fragment.");
  std::optional<std::string> const path = DecodePath(target_i.substr(0, question));
  if (!path) return BadRequest("The address holds a percent sign that begins no escape.");
  if (std::ranges::any_of(*path, IsControl)) return BadRequest("The address holds a control character.");
  request_io.path = NormalizePath(*path);
  if (question == target_i.npos) return {};
  request_io.query = target_i.substr(question + 1);
  std::optional<std::vector<PLXNameValue>> arguments = ParseURLEncoded(request_io.query, arguments_i);
  if (!arguments) return BadRequest("The address has too many arguments.");
  request_io.pathArguments = std::move(*arguments);
  return {};
}

PLXHTTPProblem ReadHost(PLXRequest& request_io) {
  auto const isHost = [](PLXNameValue const& header_i) { return EqualIgnoringCase(header_i.name, "Host"); };
  auto const count = std::ranges::count_if(request_io.headers, isHost);
  if (count > 1 || (count == 0 && request_io.version == "HTTP/1.1")) {
    return BadRequest("The request must have one Host header.");
  }
  if (count == 1) request_io.host = std::ranges::find_if(request_io.headers, isHost)->value;
  if (!std::ranges::all_of(request_io.host, IsHostCharacter))
    return BadRequest("The Host header is no host.");
  return {};
}

// What the library lets pass: a transfer coding that we would not undo hides where the body ends.
PLXHTTPProblem CheckTransferEncoding(PLXRequest const& request_i) {
  std::size_t count = 0;
  for (PLXNameValue const& header : request_i.headers) {
    if (!EqualIgnoringCase(header.name, "Transfer-Encoding")) continue;
    bool const isFine =
        EqualIgnoringCase(header.value, "chunked") && request_i.version == "HTTP/1.1" && ++count == 1;
    if (!isFine) return BadRequest("The transfer coding of the body is not known here.");
  }
  return {};
}

PLXHTTPProblem CheckTarget(PLXRequest const& request_i) {
  if (request_i.method == "CONNECT") return BadRequest("This server is no proxy.");
  if (request_i.target == "*") return BadRequest("There is nothing to ask about the server as a whole.");
  return {};
}

void ReadCookiesAndCredentials(PLXRequest& request_io) {
  for (PLXNameValue const& header : request_io.headers) {
    if (EqualIgnoringCase(header.name, "Cookie")) {
      std::vector<PLXNameValue> cookies = ParseCookies(header.value);
      std::ranges::move(cookies, std::back_inserter(request_io.cookies));
    } else if (EqualIgnoringCase(header.name, "Authorization") && !request_io.hasCredentials) {
      auto credentials = ParseBasic(header.value);
      if (!credentials) continue;
      request_io.hasCredentials = true;
      request_io.user = std::move(credentials->first);
      request_io.password = std::move(credentials->second);
    }
  }
}

PLXHTTPProblem ReadRequest(std::size_t arguments_i, PLXRequest& request_io) {
  if (PLXHTTPProblem problem = CheckTransferEncoding(request_io); problem.status) return problem;
  if (PLXHTTPProblem problem = ReadHost(request_io); problem.status) return problem;
  if (PLXHTTPProblem problem = CheckTarget(request_io); problem.status) return problem;
  std::string_view target = request_io.target;
  std::string_view host;
  if (!target.starts_with('/')) {
    if (!SplitAbsolute(target, host)) return BadRequest("The address is neither a path nor an http address.");
    if (!std::ranges::all_of(host, IsHostCharacter)) return BadRequest("The address has no host.");
    request_io.host = host;
  }
  ReadCookiesAndCredentials(request_io);
  return ReadTarget(target, arguments_i, request_io);
}

bool FramesTheMessage(std::string_view name_i) {
  return EqualIgnoringCase(name_i, "Content-Length") || EqualIgnoringCase(name_i, "Transfer-Encoding") ||
         EqualIgnoringCase(name_i, "Connection") || EqualIgnoringCase(name_i, "Keep-Alive") ||
         EqualIgnoringCase(name_i, "Trailer") || EqualIgnoringCase(name_i, "Upgrade");
}

bool MayBeSent(PLXNameValue const& header_i) {
  constexpr std::string_view kBreaks("\r\n\0", 3);
  bool const isFine = !header_i.name.empty() && std::ranges::all_of(header_i.name, IsTokenCharacter) &&
                      header_i.value.find_first_of(kBreaks) == header_i.value.npos;
  if (!isFine)
    PLXLog::Warning("A header \"" + header_i.name + "\" that would break the answer was left out.");
  return isFine;
}

void AppendHeader(std::string& head_io, std::string_view name_i, std::string_view value_i) {
  head_io.append(name_i).append(": ").append(value_i).append("\r\n");
}

}  // namespace

struct PLXRequestParser::Library {
  // Between quotes in a chunk's extension the library lets a line feed pass, where another reader could see
  // the line's end and the chunk begin.
  struct ExtensionCheck {
    void operator()(std::uint64_t, boost::beast::string_view extension_i, error_code& error_o) const {
      if (std::ranges::any_of(View(extension_i), IsControl)) error_o = http::error::bad_chunk_extension;
    }
  };
  http::request_parser<ForwardedBody> parser;
  ExtensionCheck checkExtension;
};

PLXRequestParser::PLXRequestParser() : myLibrary(std::make_unique<Library>()) {
  // Both limits are kept by us: the library's body limit counts a chunk twice, its header limit is for its
  // own scan.
  myLibrary->parser.header_limit(UINT32_MAX);
  myLibrary->parser.body_limit(UINT64_MAX);
  myLibrary->parser.eager(true);
  myLibrary->parser.on_chunk_header(myLibrary->checkExtension);
}

PLXRequestParser::~PLXRequestParser() = default;

std::size_t PLXRequestParser::FindHead(std::string_view input_i, std::size_t longest_i,
                                       PLXHTTPProblem& problem_o) {
  for (; myScanned < input_i.size(); ++myScanned) {
    char const c = input_i[myScanned];
    bool const afterReturn = myScanned > myLineBegin && input_i[myScanned - 1] == '\r';
    if (afterReturn != (c == '\n')) {
      problem_o = BadRequest("A line of the header does not end in CR LF.");
      return 0;
    }
    if (c == '\n') {
      std::string_view const line = input_i.substr(myLineBegin, myScanned - 1 - myLineBegin);
      myLineBegin = myScanned + 1;
      if (line.empty() && myHasRequestLine) {
        if (myLineBegin - myHeadBegin <= longest_i) return myLineBegin;
        break;
      }
      // RFC 9112, section 2.2: blank lines before a request are overlooked.
      if (line.empty()) {
        myHeadBegin = myLineBegin;
      } else if (!myHasRequestLine && !line.ends_with(" HTTP/1.1") && !line.ends_with(" HTTP/1.0")) {
        problem_o = BadRequest("Only HTTP/1.0 and HTTP/1.1 are spoken here.");
        return 0;
      } else {
        myHasRequestLine = true;
      }
    } else if (IsControl(c) && c != '\t' && c != '\r') {
      problem_o = BadRequest("The header holds a control character.");
      return 0;
    } else if (myScanned == myLineBegin && (c == ' ' || c == '\t')) {
      problem_o = BadRequest("A header line is folded.");
      return 0;
    }
  }
  // Blank lines count here, or a client could send them forever.
  if (input_i.size() >= longest_i) problem_o = {431, "The header is longer than this server takes."};
  return 0;
}

void PLXRequestParser::PutHead(std::string_view head_i, std::size_t arguments_i, PLXRequest& request_o,
                               PLXHTTPProblem& problem_o) {
  head_i.remove_prefix(std::min(myHeadBegin, head_i.size()));
  std::string_view const line = head_i.substr(0, head_i.find('\r'));
  std::size_t const first = line.find(' ');
  request_o.method = line.substr(0, first);
  if (first != line.npos)
    request_o.target = line.substr(first + 1, line.rfind(' ') - std::min(line.rfind(' '), first + 1));

  auto& parser = myLibrary->parser;
  error_code error;
  while (!error && !head_i.empty() && !parser.is_header_done()) {
    std::size_t const used = parser.put(boost::asio::buffer(head_i.data(), head_i.size()), error);
    head_i.remove_prefix(used);
  }
  if (error || !parser.is_header_done()) {
    problem_o = BadRequest(HeadSentence(error));
    return;
  }
  auto const& message = parser.get();
  request_o.method = View(message.method_string());
  request_o.target = View(message.target());
  request_o.version = message.version() == 10 ? "HTTP/1.0" : "HTTP/1.1";
  for (auto const& field : message) {
    request_o.headers.push_back({std::string(View(field.name_string())), std::string(View(field.value()))});
  }
  problem_o = ReadRequest(arguments_i, request_o);
  myExpectsContinue = request_o.version == "HTTP/1.1" &&
                      EqualIgnoringCase(View(message[http::field::expect]), "100-continue");
}

bool PLXRequestParser::IsDone() const { return myLibrary->parser.is_done(); }

std::optional<std::uint64_t> PLXRequestParser::ContentLength() const {
  boost::optional<std::uint64_t> const length = myLibrary->parser.content_length();
  return length ? std::optional<std::uint64_t>(*length) : std::nullopt;
}

bool PLXRequestParser::KeepAlive() const { return myLibrary->parser.keep_alive(); }

std::size_t PLXRequestParser::PutBody(std::string_view input_i, PLXRequestBody& body_io,
                                      PLXHTTPProblem& problem_o) {
  auto& parser = myLibrary->parser;
  // Beast 1.74 asserts that it never sees less of a last chunk, and no body has less to come until it is
  // done.
  if (parser.chunked() && input_i.size() < kLastChunk_Shortest) return 0;
  parser.get().body() = &body_io;
  error_code error;
  std::size_t const used = parser.put(boost::asio::buffer(input_i.data(), input_i.size()), error);
  if (error == make_error_code(boost::system::errc::io_error)) {
    problem_o = {500, "The body of the request could not be kept."};
  } else if (error && error != http::error::need_more) {
    problem_o = BadRequest("The body of the request cannot be read.");
  }
  return used;
}

PLXHTTPProblem ReadForm(PLXRequestBody& body_i, std::size_t fields_i, PLXRequest& request_io) {
  std::string_view const type = request_io.Header("Content-Type");
  bool const isMultipart = BeginsIgnoringCase(type, "multipart/form-data");
  if (!isMultipart && !BeginsIgnoringCase(type, "application/x-www-form-urlencoded")) return {};
  if (body_i.Size() == 0) return {};
  std::string_view text;
  if (!body_i.View(text)) return {500, "The body of the request could not be read back."};

  auto arguments = isMultipart ? ParseMultipart(text, type, fields_i) : ParseURLEncoded(text, fields_i);
  if (arguments) {
    request_io.postArguments = std::move(*arguments);
    return {};
  }
  bool const isWhole = !isMultipart || ParseMultipart(text, type, SIZE_MAX);
  if (!isWhole) return BadRequest("The form cannot be read: it is cut short or its parts are not divided.");
  return {413, "The form has more than " + std::to_string(fields_i) + " fields."};
}

std::string FormatResponseHead(PLXResponse const& response_i, std::optional<std::uint64_t> contentLength_i,
                               std::string_view connection_i, std::string_view date_i) {
  std::string head;
  head.reserve(256 + response_i.headers.size() * 64);
  head.append("HTTP/1.1 ").append(std::to_string(response_i.status)).append(" ");
  if (response_i.reason.empty() || std::ranges::any_of(response_i.reason, IsControl)) {
    http::status const known = http::int_to_status(static_cast<unsigned>(response_i.status));
    if (known != http::status::unknown) head.append(View(http::obsolete_reason(known)));
  } else {
    head.append(response_i.reason);
  }
  head.append("\r\n");
  if (!response_i.HasHeader("Date")) AppendHeader(head, "Date", date_i);
  if (!response_i.HasHeader("Server")) AppendHeader(head, "Server", "PLX Server");
  for (PLXNameValue const& header : response_i.headers) {
    if (!FramesTheMessage(header.name) && MayBeSent(header)) AppendHeader(head, header.name, header.value);
  }
  if (contentLength_i) AppendHeader(head, "Content-Length", std::to_string(*contentLength_i));
  if (!connection_i.empty()) AppendHeader(head, "Connection", connection_i);
  return head.append("\r\n");
}
