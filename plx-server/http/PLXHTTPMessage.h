#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "PLXRequest.h"
#include "PLXRequestBody.h"

// Why a request is refused: a status and a sentence for the one who sent it. Status 0: nothing is wrong.
struct PLXHTTPProblem {
  int status = 0;
  std::string sentence;
};

// Reads one request of HTTP/1.0 or 1.1 (RFC 9112) from bytes as they arrive, and refuses what two readers
// could understand differently: conflicting lengths, bare line feeds, folded lines, blanks before a colon, no
// Host or two.
//
// First FindHead until it finds the end of the head, then PutHead with the head, then PutBody until IsDone.
// One thread at a time. The HTTP library is seen by the source behind this header alone.
class PLXRequestParser {
 public:
  PLXRequestParser();
  ~PLXRequestParser();

  // How many bytes of `input_i` the head takes, blank lines before it and the empty line that ends it
  // included; 0 when it is not all there yet or something is wrong with it already. To be called again with
  // the same bytes and more behind them; no byte is looked at twice.
  std::size_t FindHead(std::string_view input_i, std::size_t longest_i, PLXHTTPProblem& problem_o);
  // Whether anything but blank lines has been seen.
  bool HasBegun(std::string_view input_i) const { return myLineBegin < input_i.size() || myHasRequestLine; }

  // Takes the head and fills in what it says; with a problem, at least method and target as far as they can
  // be read.
  void PutHead(std::string_view head_i, std::size_t arguments_i, PLXRequest& request_o,
               PLXHTTPProblem& problem_o);

  bool IsDone() const;  // no body, or all of it has been put
  std::optional<std::uint64_t> ContentLength() const;
  bool KeepAlive() const;
  bool ExpectsContinue() const { return myExpectsContinue; }

  // Takes bytes of the body and appends what they carry to `body_io`; returns how many were used, the rest
  // belongs to the next request once IsDone. Some may be needed again, with more behind them.
  std::size_t PutBody(std::string_view input_i, PLXRequestBody& body_io, PLXHTTPProblem& problem_o);

 private:
  struct Library;
  std::unique_ptr<Library> myLibrary;
  std::size_t myScanned = 0;
  std::size_t myHeadBegin = 0;
  std::size_t myLineBegin = 0;
  bool myHasRequestLine = false;
  bool myExpectsContinue = false;
};

// Fills in the post arguments of a form from its body; any other body is left alone. A problem when the form
// is malformed (400), has more than `fields_i` fields (413) or its body cannot be read back (500).
PLXHTTPProblem ReadForm(PLXRequestBody& body_i, std::size_t fields_i, PLXRequest& request_io);

// The status line and header of an answer, up to and with the empty line. What frames the message
// (Content-Length, Connection, Transfer-Encoding) is written here and taken from no response. A header that
// carries CR, LF or NUL, or whose name is no token, is left out with a line in the log.
std::string FormatResponseHead(PLXResponse const& response_i, std::optional<std::uint64_t> contentLength_i,
                               std::string_view connection_i, std::string_view date_i);
