#include <gtest/gtest.h>

#include "PLXHTTPMessage.h"

// What a module or a page put into a response, whichever way it came there, frames no message and begins no
// line.
TEST(PLXHTTPMessageHead, HasOnlyHeadersThatCannotBreakIt) {
  PLXResponse response;
  response.reason = "Fine\r\nX-Injected: 1";
  for (char const* const name : {"Content-Length", "Transfer-Encoding", "connection", "Keep-Alive", "Trailer",
                                 "Upgrade", "", "X A", "X-Break:"}) {
    response.headers.push_back({name, "7"});
  }
  response.headers.push_back({"X-Value", "a\nb"});
  response.headers.push_back({"Date", "now"});
  response.headers.push_back({"X-Good", "1"});
  EXPECT_EQ(FormatResponseHead(response, 3, "close", "then"),
            "HTTP/1.1 200 OK\r\nServer: PLX Server\r\nDate: now\r\nX-Good: 1\r\nContent-Length: 3\r\n"
            "Connection: close\r\n\r\n");
}
