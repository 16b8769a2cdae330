#include "PLXHTTP.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "PLXCryptor.h"
#include "PLXHTTPAnswer.h"
#include "PLXNetworkingStream.h"
#include "PLXStringUtility.h"

namespace {

constexpr char kScheme[] = "http://";
constexpr char kWhiteSpace[] = " \t\r\n";

std::string_view View(PLXString const& string_i) noexcept {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

PLXString Text(std::string_view view_i) {
  return PLXString(view_i.data(), static_cast<PLXUInt32>(view_i.size()));
}

bool IsControlCharacter(char character_i) noexcept {
  return static_cast<unsigned char>(character_i) < ' ' || character_i == '\x7F';
}

PLXString WithoutControlCharacters(PLXString const& string_i) {
  std::string_view const all = View(string_i);
  if (std::none_of(all.begin(), all.end(), IsControlCharacter)) return string_i;
  std::string kept(all);
  std::erase_if(kept, IsControlCharacter);
  return Text(kept);
}

}  // namespace

void PLXHTTP::SetURL(PLXString const& url_i) {
  PLXString url = WithoutControlCharacters(url_i);
  if (url.BeginsWith(kScheme, kPLXOption_IgnoreCase))
    url.TrimLeft(static_cast<PLXUInt32>(sizeof kScheme - 1));
  PLXUInt32 slash = 0;
  if (url.Find('/', 0, kPLXWholeLength, 0, slash)) {
    myHost = url.GetSubstring(0, slash);
    myPath = url.GetSubstring(slash, kPLXWholeLength);
  } else {
    myHost = url;
    myPath = "/";
  }
}

void PLXHTTP::SetReferer(PLXString const& referer_i) { myReferer = WithoutControlCharacters(referer_i); }

void PLXHTTP::SetUserAgent(PLXString const& userAgent_i) {
  myUserAgent = WithoutControlCharacters(userAgent_i);
}

void PLXHTTP::SetAuthorization(PLXHTTPAuthorization type_i, PLXString const& username_i,
                               PLXString const& password_i) {
  myAuthorization.Empty();
  if (username_i.IsEmpty() || type_i != PLXHTTPAuthorization::Basic) return;
  PLXString const credentials = username_i + ":" + password_i;
  PLXBufferStream stream(credentials.GetCStringAccess(), credentials.GetLength());
  // The encoder's lines are joined, else long credentials would begin a new line within the header.
  myAuthorization = PLXString("Basic ") + PLXCryptor::Base64Encode(stream, PLXString());
  myAuthorization.Trim(kWhiteSpace);
}

void PLXHTTP::AddPostArgument(PLXString const& name_i, PLXString const& value_i) {
  PLXString const name = PLXStringUtility::GetURLEncodedString(name_i, true);
  PLXString const value = PLXStringUtility::GetURLEncodedString(value_i, true);
  if (myPostArguments.IsNotEmpty()) myPostArguments += '&';
  myPostArguments.ReserveToAppend(name.GetLength() + 1 + value.GetLength());
  myPostArguments += name;
  myPostArguments += '=';
  myPostArguments += value;
}

void PLXHTTP::SetSilenceLimits(PLXUInt32 unknownLength_i, PLXUInt32 missingBytes_i) noexcept {
  mySilenceLimit_UnknownLength = unknownLength_i;
  mySilenceLimit_MissingBytes = missingBytes_i;
}

PLXUInt32 PLXHTTP::GetStatus() const {
  PLXString const status = myResponseHeaders.GetSubstring(0, 15);
  char const* cursor = status.GetCStringAccess();
  return CrackNum(&cursor);
}

PLXString PLXHTTP::BuildRequest() const {
  // Nothing sends these two; they have a first word and no more.
  if (myMethod == PLXHTTPMethod::PUT) return "PUT ";
  if (myMethod == PLXHTTPMethod::TRACE) return "TRACE ";
  bool const isPost = myMethod == PLXHTTPMethod::POST;
  PLXString request(isPost ? "POST " : myMethod == PLXHTTPMethod::HEAD ? "HEAD " : "GET ");
  request += myPath;
  request += " HTTP/1.0\r\n";
  auto const addHeader = [&request](char const* name_i, PLXString const& value_i) {
    request += name_i;
    request += value_i;
    request += "\r\n";
  };
  addHeader("Host: ", myHost);
  if (myReferer.IsNotEmpty()) addHeader("Referer: ", myReferer);
  if (myUserAgent.IsNotEmpty()) addHeader("User-Agent: ", myUserAgent);
  if (myAuthorization.IsNotEmpty()) addHeader("Authorization: ", myAuthorization);
  if (isPost) {
    addHeader("Content-Type: ", "application/x-www-form-urlencoded");
    addHeader("Content-Length: ", PLXStringUtility::GetStringRepresentation(myPostArguments.GetLength()));
  }
  request += "\r\n";
  if (isPost) request += myPostArguments;
  return request;
}

bool PLXHTTP::Process(bool followRedirects_i) {
  for (;;) {
    bool redirected = false;
    if (!ProcessOnce(followRedirects_i, redirected)) return false;
    if (!redirected) return true;
  }
}

bool PLXHTTP::ProcessOnce(bool followRedirects_i, bool& redirected_o) {
  PLXString const request = BuildRequest();
  PLXIPAddress address(0x7F000001);
  PLXUInt16 port = 0;
  myResponseData.Empty();
  myProblem = "DNS lookup failed";
  if (!PLXNetworkingStream::ResolveDomainName(myHost, 80, address, port)) return false;
  PLXHTTPAnswer answer(myMethod != PLXHTTPMethod::HEAD);
  {
    std::unique_ptr<PLXNetworkingStream> const stream(PLXNetworkingStream::Open(address, port, true, false));
    myProblem = stream == nullptr ? "No socket could be made" : stream->GetConnectProblem();
    if (stream == nullptr) return false;
    stream->SetAnswerLimits(kLongestAnswer);
    stream->Write(request);
    ReadAnswer(*stream, answer);
    if (!answer.HasBegun() && *myProblem == '\0') myProblem = "Closed without an answer";
  }  // the stream's last response shares storage with the answer, which is cut next
  if (followRedirects_i && answer.IsRedirect()) {
    PLXString url;
    redirected_o = answer.FindLocation(myHost, url);
    if (redirected_o) SetURL(url);
  } else {
    answer.MoveTo(myResponseHeaders, myResponseData);
  }
  return true;
}

void PLXHTTP::ReadAnswer(PLXNetworkingStream& stream_io, PLXHTTPAnswer& answer_io) const {
  bool isMoreToCome = true;
  while (isMoreToCome) {
    // What came before a failure counts, so the burst is taken whether or not the read succeeded.
    bool const isIntact = stream_io.ReadResponse();
    isMoreToCome = answer_io.Append(stream_io.GetWholeResponse()) && isIntact;
    // After an interim response the final one is due, and waited for like the first.
    if (isMoreToCome && answer_io.HasBegun()) {
      isMoreToCome = !answer_io.IsComplete() &&
                     stream_io.WaitForPeer(answer_io.HasLength() ? mySilenceLimit_MissingBytes
                                                                 : mySilenceLimit_UnknownLength);
    }
    stream_io.SetResponsePossibleFlag(true);
  }
}
