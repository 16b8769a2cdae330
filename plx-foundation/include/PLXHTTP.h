#pragma once

#include "PLXInternetObject.h"
#include "PLXString.h"

class PLXHTTPAnswer;
class PLXNetworkingStream;

enum class PLXHTTPMethod : PLXUInt32 { GET = 0, POST = 1, PUT = 2, HEAD = 3, TRACE = 4 };
enum class PLXHTTPAuthorization : PLXUInt32 { Basic = 0 };

// One request for a URL by HTTP/1.0 (RFC 1945) over plain TCP, answered with the header block and the body.
//
// Set the URL, the method, the header values and the arguments, call Process once, read the two results.
// Control characters are cut out of every value that goes into the request's lines, so that no value can add
// a line of its own. One thread at a time.
//
// Where the answer ends. The peer closing ends it at once. A peer that stays connected ends it by silence: at
// once when the answer is complete by its own account (its Content-Length has come, or it is of a kind
// without a body), else after the silence limits below, so that the later bursts of a slow peer arrive and a
// peer that neither closes nor counts holds nobody for ever. An answer that ends early is given as far as it
// came.
class PLXHTTP : public PLXInternetObject {
 public:
  // How long, in milliseconds, a peer may be silent within an answer: one that has not said how long it is,
  // and one whose announced bytes have not all come. For the answer's first byte there is no limit.
  static constexpr PLXUInt32 kSilenceLimit_UnknownLength = 10000;
  static constexpr PLXUInt32 kSilenceLimit_MissingBytes = 60000;
  // The longest answer, in bytes, interim ones with it. What goes on beyond is cut there.
  static constexpr PLXUInt32 kLongestAnswer = 512 << 20;

  // "http://host:port/path", with or without the "http://" and the path. No other scheme is known.
  void SetURL(PLXString const& url_i);
  void SetMethod(PLXHTTPMethod method_i) noexcept { myMethod = method_i; }
  // An empty username, whatever the password, sends no credentials.
  void SetAuthorization(PLXHTTPAuthorization type_i, PLXString const& username_i,
                        PLXString const& password_i);
  void SetReferer(PLXString const& referer_i);
  void SetUserAgent(PLXString const& userAgent_i);
  // Adds "name=value", both encoded, to the body of a POST.
  void AddPostArgument(PLXString const& name_i, PLXString const& value_i);
  void ClearPostArguments() { myPostArguments.Empty(); }
  void SetSilenceLimits(PLXUInt32 unknownLength_i, PLXUInt32 missingBytes_i) noexcept;

  // Sends the request and reads the answer. With `followRedirects_i`, a 301 or 302 sends it again, unchanged,
  // to where the Location header says; without that header the data is then empty. As many times as peers
  // redirect. False when a host could not be resolved or no socket be made; true otherwise, whatever the
  // status, even if nobody answered: both results are then as empty as before.
  bool Process(bool followRedirects_i);

  // The status line and the headers, lines ending with CR LF except the last; unchanged by an answer without
  // an empty line after them.
  PLXString GetResponseHeaders() const { return myResponseHeaders; }
  PLXString GetResponseData() const { return myResponseData; }
  // The number of the answer's status line; 0 without one.
  PLXUInt32 GetStatus() const;
  // Why the last request got no answer, a constant; empty when it got one.
  char const* GetProblem() const noexcept { return myProblem; }

 private:
  PLXString BuildRequest() const;
  bool ProcessOnce(bool followRedirects_i, bool& redirected_o);
  void ReadAnswer(PLXNetworkingStream& stream_io, PLXHTTPAnswer& answer_io) const;

  PLXString myPath;
  PLXString myHost;
  PLXHTTPMethod myMethod = PLXHTTPMethod::GET;
  PLXString myAuthorization;
  PLXString myReferer;
  PLXString myUserAgent;
  PLXString myPostArguments;
  PLXString myResponseHeaders;
  PLXString myResponseData;
  char const* myProblem = "";
  PLXUInt32 mySilenceLimit_UnknownLength = kSilenceLimit_UnknownLength;
  PLXUInt32 mySilenceLimit_MissingBytes = kSilenceLimit_MissingBytes;
};
