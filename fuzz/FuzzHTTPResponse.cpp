#include "Fuzz.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  char const* const text = reinterpret_cast<char const*>(data_i);
  PLXHTTPAnswer whole(true);
  Require(whole.Append(PLXString(text, static_cast<PLXUInt32>(size_i))));
  Understood const fromWhole = Finish(whole);

  std::string const original(text, size_i);
  for (unsigned const seed : {0U, static_cast<unsigned>(1 + size_i)}) {
    PLXHTTPAnswer cut(true);
    InPieces(original, seed, [&](std::string_view piece_i) {
      Require(!cut.IsComplete() || cut.HasLength());
      Require(cut.Append(PLXString(piece_i.data(), static_cast<PLXUInt32>(piece_i.size()))));
    });
    Require(Finish(cut) == fromWhole);
  }
  // What is complete stays so, and is never less than the whole answer's data.
  bool wasComplete = false;
  bool const isCut = ForEachCut(original, [&](std::string_view cut_i) {
    PLXHTTPAnswer cut(true);
    cut.Append(PLXString(cut_i.data(), static_cast<PLXUInt32>(cut_i.size())));
    Require(!wasComplete || cut.IsComplete());
    wasComplete = cut.IsComplete();
    if (!wasComplete || !fromWhole.isComplete) return;
    Understood const fromCut = Finish(cut);
    Require(fromCut.headers == fromWhole.headers && fromWhole.data.starts_with(fromCut.data));
  });
  Require(!isCut || wasComplete == fromWhole.isComplete);
  Require(original.ends_with(fromWhole.data));
  Require(original.find(fromWhole.headers) != std::string::npos);
  Require(!fromWhole.isComplete || fromWhole.hasLength);
  return 0;
}
