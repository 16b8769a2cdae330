#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "PLXStringID.h"
#include "PLXTokenizedString.h"

namespace {

std::string RandomText(std::size_t length_i, char const* alphabet_i) {
  std::mt19937 random(42);
  std::string_view const alphabet(alphabet_i);
  std::string text(length_i, ' ');
  for (char& character : text) character = alphabet[random() % alphabet.size()];
  return text;
}

PLXString Ours(std::string const& text_i) { return {text_i.data(), static_cast<PLXUInt32>(text_i.size())}; }

// A needle that stands at the very end; its letters are common.
struct Haystack {
  std::string needle = "needle in it";
  std::string text;
  explicit Haystack(std::size_t length_i)
      : text(RandomText(length_i, "abcdefghijklmnopqrstuvwxyz     ") + needle) {}
};

void BM_StringCopy(benchmark::State& state_io) {
  PLXString const text(Ours(RandomText(static_cast<std::size_t>(state_io.range(0)), "abc")));
  for (auto _ : state_io) {
    PLXString copy(text);
    benchmark::DoNotOptimize(copy.GetCStringAccess());
  }
}
void BM_StringCopy_StdString(benchmark::State& state_io) {
  std::string const text(RandomText(static_cast<std::size_t>(state_io.range(0)), "abc"));
  for (auto _ : state_io) {
    std::string copy(text);
    benchmark::DoNotOptimize(copy.data());
  }
}

void BM_StringAppendPieces(benchmark::State& state_io) {
  auto const length = static_cast<PLXUInt32>(state_io.range(0));
  for (auto _ : state_io) {
    PLXString text;
    text.Reserve(length);
    while (text.GetLength() < length) text.Append("piece of", 8);
    benchmark::DoNotOptimize(text.GetCStringAccess());
  }
  state_io.SetBytesProcessed(state_io.iterations() * state_io.range(0));
}
void BM_StringAppendPieces_StdString(benchmark::State& state_io) {
  auto const length = static_cast<std::size_t>(state_io.range(0));
  for (auto _ : state_io) {
    std::string text;
    text.reserve(length);
    while (text.size() < length) text.append("piece of", 8);
    benchmark::DoNotOptimize(text.data());
  }
  state_io.SetBytesProcessed(state_io.iterations() * state_io.range(0));
}

void FindOurs(benchmark::State& state_io, std::string const& text_i, std::string const& needle_i,
              unsigned options_i) {
  PLXString const text(Ours(text_i));
  PLXString const needle(Ours(needle_i));
  PLXUInt32 position = 0;
  for (auto _ : state_io)
    benchmark::DoNotOptimize(text.Find(needle, 0, kPLXWholeLength, options_i, position));
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(text_i.size()));
}
void FindTheirs(benchmark::State& state_io, std::string const& text_i, std::string const& needle_i) {
  for (auto _ : state_io) benchmark::DoNotOptimize(text_i.find(needle_i));
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(text_i.size()));
}

void BM_StringFind(benchmark::State& state_io) {
  Haystack const hay(static_cast<std::size_t>(state_io.range(0)));
  FindOurs(state_io, hay.text, hay.needle, 0);
}
void BM_StringFind_StdString(benchmark::State& state_io) {
  Haystack const hay(static_cast<std::size_t>(state_io.range(0)));
  FindTheirs(state_io, hay.text, hay.needle);
}
// Hard: every place of the text agrees with all of the pattern but its first byte.
void BM_StringFindHard(benchmark::State& state_io) {
  FindOurs(state_io, std::string(static_cast<std::size_t>(state_io.range(0)), 'a'),
           "b" + std::string(63, 'a'), 0);
}
void BM_StringFindHard_StdString(benchmark::State& state_io) {
  FindTheirs(state_io, std::string(static_cast<std::size_t>(state_io.range(0)), 'a'),
             "b" + std::string(63, 'a'));
}
void BM_StringFindIgnoringCase(benchmark::State& state_io) {
  Haystack const hay(static_cast<std::size_t>(state_io.range(0)));
  FindOurs(state_io, hay.text, "NEEDLE in it", kPLXOption_IgnoreCase);
}
void BM_StringFindIgnoringCase_StdSearch(benchmark::State& state_io) {
  Haystack const hay(static_cast<std::size_t>(state_io.range(0)));
  std::string const needle("NEEDLE in it");
  for (auto _ : state_io) {
    benchmark::DoNotOptimize(
        std::search(hay.text.begin(), hay.text.end(), needle.begin(), needle.end(),
                    [](char left_i, char right_i) { return (left_i | 32) == (right_i | 32); }));
  }
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(hay.text.size()));
}

void BM_StringIDBuild(benchmark::State& state_io) {
  PLXString const name("postArgumentName");
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringID(name, PLXStringID::kIgnoreCase).GetID());
}
void BM_StringIDCompare(benchmark::State& state_io) {
  PLXStringID const left("postArgumentName", PLXStringID::kIgnoreCase);
  PLXStringID const right("postArgumentValue", PLXStringID::kIgnoreCase);
  for (auto _ : state_io) {
    benchmark::DoNotOptimize(&left);
    benchmark::DoNotOptimize(left == right);
  }
}
void BM_StringIDCompare_StdStringKey(benchmark::State& state_io) {
  std::unordered_map<std::string, int> const names{{"postArgumentName", 1}, {"postArgumentValue", 2}};
  std::string const key("postArgumentName");
  for (auto _ : state_io) benchmark::DoNotOptimize(names.find(key));
}

std::string Lines(std::int64_t count_i) {
  std::string text;
  for (std::int64_t index = 0; index < count_i; ++index)
    text += "a line of some forty characters, no more\r\n";
  return text;
}
void BM_TokenizeLines(benchmark::State& state_io) {
  PLXString const text(Ours(Lines(state_io.range(0))));
  for (auto _ : state_io) {
    PLXTokenizedString const lines(text, PLXString("\r\n"));
    PLXUInt32 total = 0;
    for (PLXUInt32 index = 0; index < lines.GetTokenCount(); ++index) total += lines[index].GetLength();
    benchmark::DoNotOptimize(total);
  }
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(text.GetLength()));
}
void BM_TokenizeLines_StdStrings(benchmark::State& state_io) {
  std::string const text(Lines(state_io.range(0)));
  for (auto _ : state_io) {
    std::vector<std::string> lines;
    for (std::size_t start = 0;;) {
      std::size_t const end = text.find("\r\n", start);
      lines.emplace_back(text, start, end - start);
      if (end == std::string::npos) break;
      start = end + 2;
    }
    std::size_t total = 0;
    for (std::string const& line : lines) total += line.size();
    benchmark::DoNotOptimize(total);
  }
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(text.size()));
}

}  // namespace

#define PLX_SIZES Arg(64)->Arg(4 << 10)->Arg(256 << 10)->Arg(16 << 20)
BENCHMARK(BM_StringCopy)->PLX_SIZES;
BENCHMARK(BM_StringCopy_StdString)->PLX_SIZES;
BENCHMARK(BM_StringAppendPieces)->PLX_SIZES;
BENCHMARK(BM_StringAppendPieces_StdString)->PLX_SIZES;
BENCHMARK(BM_StringFind)->PLX_SIZES;
BENCHMARK(BM_StringFind_StdString)->PLX_SIZES;
BENCHMARK(BM_StringFindHard)->PLX_SIZES;
BENCHMARK(BM_StringFindHard_StdString)->PLX_SIZES;
BENCHMARK(BM_StringFindIgnoringCase)->PLX_SIZES;
BENCHMARK(BM_StringFindIgnoringCase_StdSearch)->PLX_SIZES;
BENCHMARK(BM_StringIDBuild);
BENCHMARK(BM_StringIDCompare);
BENCHMARK(BM_StringIDCompare_StdStringKey);
BENCHMARK(BM_TokenizeLines)->Arg(1000)->Arg(100000);
BENCHMARK(BM_TokenizeLines_StdStrings)->Arg(1000)->Arg(100000);
