#include <algorithm>
#include <benchmark/benchmark.h>
#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#ifdef PLX_BENCH_ABSL
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#include <absl/strings/string_view.h>
#endif
#ifdef PLX_BENCH_POCO
#include <Poco/String.h>
#endif

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

void FindTheirMemory(benchmark::State& state_io, std::string const& text_i, std::string const& needle_i) {
  for (auto _ : state_io)
    benchmark::DoNotOptimize(memmem(text_i.data(), text_i.size(), needle_i.data(), needle_i.size()));
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(text_i.size()));
}

struct Search {
  std::string text;
  std::string needle;
};
// Common letters, and the needle at the very end.
Search Usual(std::size_t length_i) {
  Haystack const hay(length_i);
  return {hay.text, hay.needle};
}
// Two letters that are common each for itself; together they stand at the end alone.
Search Short(std::size_t length_i) { return {RandomText(length_i, "abcdefg cdefg") + "ba", "ba"}; }
Search Long(std::size_t length_i) {
  Haystack const hay(length_i);
  return {hay.text + RandomText(200, "xyz"), hay.needle + RandomText(200, "xyz")};
}
Search Rare(std::size_t length_i) { return {Haystack(length_i).text + "#here", "#here"}; }
// Hard: every place of the text agrees with all of the pattern but its first byte, or all but its last.
Search Hard(std::size_t length_i) { return {std::string(length_i, 'a'), "b" + std::string(63, 'a')}; }
Search HardEnd(std::size_t length_i) { return {std::string(length_i, 'a'), std::string(63, 'a') + "b"}; }

bool RegisterSearches() {
  struct Row {
    char const* name;
    Search (*make)(std::size_t length_i);
  };
  Row constexpr kRows[] = {{"BM_StringFind", Usual},    {"BM_StringFindShort", Short},
                           {"BM_StringFindLong", Long}, {"BM_StringFindRare", Rare},
                           {"BM_StringFindHard", Hard}, {"BM_StringFindHardEnd", HardEnd}};
  for (Row const& row : kRows) {
    auto const add = [&row](char const* peer_i, auto run_i) {
      auto* const search = benchmark::RegisterBenchmark(
          (std::string(row.name) + peer_i).c_str(), [make = row.make, run_i](benchmark::State& state_io) {
            Search const made = make(static_cast<std::size_t>(state_io.range(0)));
            run_i(state_io, made.text, made.needle);
          });
      for (std::int64_t const size : {64, 4 << 10, 256 << 10, 16 << 20}) search->Arg(size);
    };
    add("", [](benchmark::State& state_io, std::string const& text_i, std::string const& needle_i) {
      FindOurs(state_io, text_i, needle_i, 0);
    });
    add("_StdString", FindTheirs);
    add("_Memmem", FindTheirMemory);
  }
  return true;
}
[[maybe_unused]] bool const ourSearchesAreRegistered = RegisterSearches();

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

// Equal but for the last byte.
struct Pair {
  std::string left;
  std::string right;
  explicit Pair(std::size_t length_i) : left(RandomText(length_i, "abcdefgh ")), right(left) {
    right.back() = 'x';
  }
};
void BM_StringCompare(benchmark::State& state_io) {
  Pair const pair(static_cast<std::size_t>(state_io.range(0)));
  PLXString const left(Ours(pair.left));
  PLXString const right(Ours(pair.right));
  for (auto _ : state_io) benchmark::DoNotOptimize(left.CompareTo(right));
}
void BM_StringCompare_StdString(benchmark::State& state_io) {
  Pair const pair(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) benchmark::DoNotOptimize(pair.left.compare(pair.right));
}
void BM_StringCompareIgnoringCase(benchmark::State& state_io) {
  Pair const pair(static_cast<std::size_t>(state_io.range(0)));
  PLXString left(Ours(pair.left));
  PLXString const right(Ours(pair.right));
  left.ConvertToUppercase();
  for (auto _ : state_io) benchmark::DoNotOptimize(left.CompareTo(right, kPLXOption_IgnoreCase));
}
void BM_StringCompareIgnoringCase_StdEqual(benchmark::State& state_io) {
  Pair const pair(static_cast<std::size_t>(state_io.range(0)));
  std::string left(pair.left);
  for (char& character : left) character = static_cast<char>(std::toupper(character));
  for (auto _ : state_io) {
    benchmark::DoNotOptimize(std::mismatch(left.begin(), left.end(), pair.right.begin(), pair.right.end(),
                                           [](unsigned char left_i, unsigned char right_i) {
                                             return std::tolower(left_i) == std::tolower(right_i);
                                           }));
  }
}
#ifdef PLX_BENCH_POCO
void BM_StringCompareIgnoringCase_Poco(benchmark::State& state_io) {
  Pair const pair(static_cast<std::size_t>(state_io.range(0)));
  std::string left(pair.left);
  for (char& character : left) character = static_cast<char>(std::toupper(character));
  for (auto _ : state_io) benchmark::DoNotOptimize(Poco::icompare(left, pair.right));
}
#endif

// One word in about ten is replaced by a longer one.
std::string WordsToReplace(benchmark::State const& state_i) {
  std::string text;
  while (text.size() < static_cast<std::size_t>(state_i.range(0)))
    text += "needle in hay, and hay that stays where it is ";
  return text;
}
void BM_StringReplaceAll(benchmark::State& state_io) {
  PLXString const text(Ours(WordsToReplace(state_io)));
  for (auto _ : state_io) {
    PLXString copy(text);
    copy.ReplaceAll("needle", "knitting");
    benchmark::DoNotOptimize(copy);
  }
}
#ifdef PLX_BENCH_POCO
void BM_StringReplaceAll_Poco(benchmark::State& state_io) {
  std::string const text(WordsToReplace(state_io));
  for (auto _ : state_io) {
    benchmark::DoNotOptimize(Poco::replace(text, std::string("needle"), std::string("knitting")));
  }
}
#endif
#ifdef PLX_BENCH_ABSL
void BM_StringReplaceAll_Absl(benchmark::State& state_io) {
  std::string const text(WordsToReplace(state_io));
  for (auto _ : state_io) benchmark::DoNotOptimize(absl::StrReplaceAll(text, {{"needle", "knitting"}}));
}
#endif

void BM_StringIDBuild(benchmark::State& state_io) {
  PLXString const name("postArgumentName");
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringID(name, PLXStringID::kIgnoreCase).GetID());
}
void BM_StringIDBuild_StdHash(benchmark::State& state_io) {
  std::string const name("postArgumentName");
  for (auto _ : state_io) {
    std::string folded(name);
    for (char& character : folded) character = static_cast<char>(std::tolower(character));
    benchmark::DoNotOptimize(std::hash<std::string>()(folded));
  }
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

#ifdef PLX_BENCH_ABSL
void BM_TokenizeLines_Absl(benchmark::State& state_io) {
  std::string const text(Lines(state_io.range(0)));
  for (auto _ : state_io) {
    std::vector<std::string> const lines = absl::StrSplit(text, "\r\n");
    std::size_t total = 0;
    for (std::string const& line : lines) total += line.size();
    benchmark::DoNotOptimize(total);
  }
}
#endif
// Where the lines begin, without a copy of any.
void BM_TokenizeOffsets(benchmark::State& state_io) {
  PLXString const text(Ours(Lines(state_io.range(0))));
  for (auto _ : state_io) {
    PLXTokenizedString const lines(text, PLXString("\r\n"));
    benchmark::DoNotOptimize(lines.GetTokenCount());
  }
}
void BM_TokenizeOffsets_StringViews(benchmark::State& state_io) {
  std::string const text(Lines(state_io.range(0)));
  for (auto _ : state_io) {
    std::vector<std::string_view> lines;
    for (std::size_t start = 0;;) {
      std::size_t const end = text.find("\r\n", start);
      lines.push_back(std::string_view(text).substr(start, end - start));
      if (end == std::string::npos) break;
      start = end + 2;
    }
    benchmark::DoNotOptimize(lines.size());
  }
}
#ifdef PLX_BENCH_ABSL
void BM_TokenizeOffsets_Absl(benchmark::State& state_io) {
  std::string const text(Lines(state_io.range(0)));
  for (auto _ : state_io) {
    std::vector<absl::string_view> const lines = absl::StrSplit(text, "\r\n");
    benchmark::DoNotOptimize(lines.size());
  }
}
#endif

}  // namespace

#define PLX_SIZES Arg(64)->Arg(4 << 10)->Arg(256 << 10)->Arg(16 << 20)
BENCHMARK(BM_StringCopy)->PLX_SIZES;
BENCHMARK(BM_StringCopy_StdString)->PLX_SIZES;
BENCHMARK(BM_StringAppendPieces)->PLX_SIZES;
BENCHMARK(BM_StringAppendPieces_StdString)->PLX_SIZES;
BENCHMARK(BM_StringFindIgnoringCase)->PLX_SIZES;
BENCHMARK(BM_StringFindIgnoringCase_StdSearch)->PLX_SIZES;
BENCHMARK(BM_StringCompare)->PLX_SIZES;
BENCHMARK(BM_StringCompare_StdString)->PLX_SIZES;
BENCHMARK(BM_StringCompareIgnoringCase)->PLX_SIZES;
BENCHMARK(BM_StringCompareIgnoringCase_StdEqual)->PLX_SIZES;
BENCHMARK(BM_StringReplaceAll)->PLX_SIZES;
#ifdef PLX_BENCH_POCO
BENCHMARK(BM_StringCompareIgnoringCase_Poco)->PLX_SIZES;
BENCHMARK(BM_StringReplaceAll_Poco)->PLX_SIZES;
#endif
#ifdef PLX_BENCH_ABSL
BENCHMARK(BM_StringReplaceAll_Absl)->PLX_SIZES;
BENCHMARK(BM_TokenizeLines_Absl)->Arg(1000)->Arg(100000);
BENCHMARK(BM_TokenizeOffsets_Absl)->Arg(1000)->Arg(100000);
#endif
BENCHMARK(BM_TokenizeOffsets)->Arg(1000)->Arg(100000);
BENCHMARK(BM_TokenizeOffsets_StringViews)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StringIDBuild);
BENCHMARK(BM_StringIDBuild_StdHash);
BENCHMARK(BM_StringIDCompare);
BENCHMARK(BM_StringIDCompare_StdStringKey);
BENCHMARK(BM_TokenizeLines)->Arg(1000)->Arg(100000);
BENCHMARK(BM_TokenizeLines_StdStrings)->Arg(1000)->Arg(100000);
