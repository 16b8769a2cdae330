#pragma once

#include <cstdint>
#include <optional>

#include "PLXObject.h"
#include "PLXString.h"

// The answer to one HTTP/1.0 request (RFC 1945), put together from the bursts in which it arrives.
//
// It may begin with interim responses, of status 100 or 101, each an own header block; the final response is
// what follows them. The status is the number that the response begins with or that follows its first word,
// so that later bursts may begin with anything. Takes whatever a peer sends; every byte is searched once,
// however it is cut into bursts. One thread at a time.
class PLXHTTPAnswer : public PLXObject {
 public:
  // `mayHaveBody_i` is false after HEAD: a Content-Length then tells of a body that does not come.
  explicit PLXHTTPAnswer(bool mayHaveBody_i) noexcept : myMayHaveBody(mayHaveBody_i) {}

  // Adds a burst, sharing its storage when it is the first. False when that makes a text longer than a string
  // can be: it is then cut to what fits.
  bool Append(PLXString const& burst_i);

  // Whether any of the final response has come.
  bool HasBegun() const noexcept { return myText.GetLength() > myFinalStart; }
  // Whether the headers have come and say where the body ends; else only the peer's closing does.
  bool HasLength() const noexcept { return myBodyLength.has_value(); }
  bool IsComplete() const noexcept;
  // Whether the status is 301 or 302.
  bool IsRedirect() const noexcept;
  // The value of the first Location line, completed with "http://" and the host when it is a path. False, and
  // nothing changes, when no line begins with that name.
  bool FindLocation(PLXString const& host_i, PLXString& url_o) const;

  // Cuts the final response at its first empty line and hands both parts over without holding them twice. The
  // headers end without a line end; they are those of the last interim response when the final one has no
  // empty line, and unchanged when there was none of those either. The answer is then empty.
  void MoveTo(PLXString& headers_io, PLXString& data_o);

 private:
  void FindHeaders();

  bool myMayHaveBody;
  PLXString myText;
  // Offsets into the text, and lengths in it, in bytes.
  PLXUInt32 mySearchStart = 0;  // no unknown empty line begins before it
  PLXUInt32 myInterimStart = 0;
  PLXUInt32 myInterimLength = 0;  // of the last interim response's headers
  PLXUInt32 myFinalStart = 0;
  std::optional<PLXUInt32> myHeadersLength;   // of the final response
  std::optional<std::uint64_t> myBodyLength;  // by the response's own account
};
