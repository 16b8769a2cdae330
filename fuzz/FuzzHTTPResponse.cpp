#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "PLXHTTPAnswer.h"

// An answer says the same whether it arrives whole or in bursts, loses no byte, and ends with what it was
// sent.

namespace {

struct Understood {
  bool hasBegun;
  bool hasLength;
  bool isComplete;
  bool isRedirect;
  std::string location;
  std::string headers;
  std::string data;
  bool operator==(Understood const&) const = default;
};

std::string Text(PLXString const& string_i) { return {string_i.GetCStringAccess(), string_i.GetLength()}; }

Understood Finish(PLXHTTPAnswer& answer_io) {
  Understood result{answer_io.HasBegun(),
                    answer_io.HasLength(),
                    answer_io.IsComplete(),
                    answer_io.IsRedirect(),
                    {},
                    {},
                    {}};
  PLXString location;
  answer_io.FindLocation("host:1", location);
  PLXString headers;
  PLXString data;
  answer_io.MoveTo(headers, data);
  result.location = Text(location);
  result.headers = Text(headers);
  result.data = Text(data);
  return result;
}

void Check(bool condition_i) {
  if (!condition_i) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::size_t const burst =
      1 + size_i % 16;  // any length will do, and the text is then the file as it stands
  char const* const text = reinterpret_cast<char const*>(data_i);
  PLXHTTPAnswer whole(true);
  Check(whole.Append(PLXString(text, static_cast<PLXUInt32>(size_i))));
  Understood const fromWhole = Finish(whole);

  PLXHTTPAnswer cut(true);
  for (std::size_t at = 0; at < size_i; at += burst) {
    Check(cut.Append(PLXString(text + at, static_cast<PLXUInt32>(std::min(burst, size_i - at)))));
  }
  Check(Finish(cut) == fromWhole);

  std::string const original(text, size_i);
  Check(original.ends_with(fromWhole.data));
  Check(original.find(fromWhole.headers) != std::string::npos);
  Check(!fromWhole.isComplete || fromWhole.hasLength);
  return 0;
}
