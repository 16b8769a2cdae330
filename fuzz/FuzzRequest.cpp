#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "Fuzz.h"
#include "PLXHTTPMessage.h"

// Requests of one connection, one behind the other, once as a whole and once byte by byte: the same ones must
// be understood, or the network's cuts would decide what a request is.

namespace {

constexpr std::size_t kHead_Longest = 2000;

// What was understood of the requests, in one text. One that is refused or cut says nothing and ends it.
class Reader {
 public:
  // `stepBytes_i` more bytes are there each time.
  std::string Read(std::string_view text_i, std::size_t stepBytes_i) {
    myText = text_i;
    while (myEnd < myText.size() || myBegin < myEnd) {
      if (!ReadOne(stepBytes_i)) break;
    }
    return myLog;
  }

 private:
  bool More(std::size_t stepBytes_i) {
    if (myEnd == myText.size()) return false;
    myEnd = std::min(myText.size(), myEnd + stepBytes_i);
    return true;
  }
  std::string_view Pending() const { return myText.substr(myBegin, myEnd - myBegin); }

  bool ReadOne(std::size_t stepBytes_i) {
    PLXRequestParser parser;
    PLXRequest request;
    PLXHTTPProblem problem;
    std::size_t head = 0;
    while (true) {
      head = parser.FindHead(Pending(), kHead_Longest, problem);
      if (problem.status) return false;
      if (head > 0) break;
      if (!More(stepBytes_i)) return false;
    }
    parser.PutHead(Pending().substr(0, head), 100, request, problem);
    myBegin += head;
    if (problem.status) return false;
    if (!request.path.starts_with('/') || request.path.find("/../") != request.path.npos) std::abort();
    for (char c : request.path) {
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) std::abort();
    }
    myLog += request.method + ' ' + request.path + ' ' + request.host + '\n';
    return ReadBody(parser, stepBytes_i);
  }

  bool ReadBody(PLXRequestParser& parser_io, std::size_t stepBytes_i) {
    std::filesystem::path const folder = "/tmp";
    PLXRequestBody body(folder, SIZE_MAX);
    PLXHTTPProblem problem;
    while (!parser_io.IsDone()) {
      if (!Pending().empty()) myBegin += parser_io.PutBody(Pending(), body, problem);
      if (problem.status) return false;
      if (!parser_io.IsDone() && !More(stepBytes_i)) return false;
    }
    std::string_view text;
    if (!body.View(text)) std::abort();
    myLog.append("body ").append(text).append("\n");
    return parser_io.KeepAlive();
  }

  std::string_view myText;
  std::size_t myBegin = 0;
  std::size_t myEnd = 0;
  std::string myLog;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view const text(reinterpret_cast<char const*>(data_i), size_i);
  // At once, the limits that count what has arrived cannot be the same, so long inputs are left out.
  if (text.size() >= kHead_Longest) return 0;
  std::string const whole = Reader().Read(text, text.size());
  Require(whole == Reader().Read(text, 1));
  Require(whole == Reader().Read(text, 2 + text.size() % 23));
  // A cut adds nothing and changes nothing.
  ForEachCut(text, [&](std::string_view cut_i) { Require(whole.starts_with(Reader().Read(cut_i, 7))); });
  return 0;
}
