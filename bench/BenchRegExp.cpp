#include <benchmark/benchmark.h>
#include <cstdint>
#include <regex>
#include <string>

#ifdef PLX_BENCH_RE2
#include <re2/re2.h>
#endif
#ifdef PLX_BENCH_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif

#include "BenchInput.h"
#include "PLXRegExp.h"

// Each engine compiles once and then tells where it found the expression, with its groups.

namespace {

struct Work {
  char const* name;
  char const* expression;
  std::string (*text)();
};

// Words as prose has them, and what is looked for at the very end.
std::string Prose(char const* end_i) {
  std::string const letters = RandomBytes(1 << 20);
  std::string text;
  text.reserve(letters.size());
  for (char const letter : letters) {
    int const value = static_cast<unsigned char>(letter) % 32;
    text += value < 26 ? static_cast<char>('a' + value) : value == 26 ? '\n' : ' ';
  }
  return text + " " + end_i;
}

constexpr Work kWorks[] = {
    {"Address", "^[A-Za-z0-9._-]+@([A-Za-z0-9-]+[.])+[A-Za-z]{2,4}$",
     [] { return std::string("ada.lovelace@mail.example.org"); }},
    {"AddressRefused", "^[A-Za-z0-9._-]+@([A-Za-z0-9-]+[.])+[A-Za-z]{2,4}$",
     [] { return std::string("ada.lovelace at mail.example.org"); }},
    {"Date", "([0-9]{4})-([0-9]{2})-([0-9]{2})", [] { return std::string("on 2002-03-05 at noon"); }},
    {"ScanDate", "([0-9]{4})-([0-9]{2})-([0-9]{2})", [] { return Prose("2002-03-05"); }},
    {"ScanAddress", "[A-Za-z0-9._-]+@([A-Za-z0-9-]+[.])+[A-Za-z]{2,4}", [] { return Prose("a@test.org"); }},
    {"ScanWord", "needle", [] { return Prose("needle"); }},
};

template <typename Function>
void Repeat(benchmark::State& state_io, std::size_t size_i, Function function_i) {
  bool found = false;
  for (auto _ : state_io) benchmark::DoNotOptimize(found = function_i());
  state_io.SetLabel(found ? "found" : "not found");
  state_io.SetBytesProcessed(state_io.iterations() * static_cast<std::int64_t>(size_i));
}

void Ours(benchmark::State& state_io, Work const& work_i) {
  PLXRegExp expression(work_i.expression);
  PLXString const text = Text(work_i.text());
  Repeat(state_io, text.GetLength(), [&] { return expression.Execute(text, 0); });
}

void StdRegex(benchmark::State& state_io, Work const& work_i) {
  std::regex const expression(work_i.expression);
  std::string const text = work_i.text();
  std::smatch match;
  Repeat(state_io, text.size(), [&] { return std::regex_search(text, match, expression); });
}

#ifdef PLX_BENCH_RE2
void TheirRE2(benchmark::State& state_io, Work const& work_i) {
  // Only so do its "^" and "$" mean a line's ends too, as ours do.
  re2::RE2::Options options;
  options.set_posix_syntax(true);
  options.set_one_line(false);
  options.set_perl_classes(true);
  re2::RE2 const expression(work_i.expression, options);
  std::string const text = work_i.text();
  re2::StringPiece groups[4];
  int const count = expression.NumberOfCapturingGroups() + 1;
  Repeat(state_io, text.size(),
         [&] { return expression.Match(text, 0, text.size(), re2::RE2::UNANCHORED, groups, count); });
}
#endif

#ifdef PLX_BENCH_PCRE2
void PCRE2JIT(benchmark::State& state_io, Work const& work_i) {
  int error = 0;
  PCRE2_SIZE place = 0;
  pcre2_code* const code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(work_i.expression),
                                         PCRE2_ZERO_TERMINATED, PCRE2_MULTILINE, &error, &place, nullptr);
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  pcre2_match_data* const match = pcre2_match_data_create_from_pattern(code, nullptr);
  std::string const text = work_i.text();
  Repeat(state_io, text.size(), [&] {
    return pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0, match, nullptr) >
           0;
  });
  pcre2_match_data_free(match);
  pcre2_code_free(code);
}
#endif

bool Register() {
  for (Work const& work : kWorks) {
    auto const add = [&work](char const* peer_i, void (*run_i)(benchmark::State&, Work const&)) {
      benchmark::RegisterBenchmark((std::string("BM_RegExp") + work.name + peer_i).c_str(),
                                   [&work, run_i](benchmark::State& state_io) { run_i(state_io, work); });
    };
    add("", Ours);
    add("_StdRegex", StdRegex);
#ifdef PLX_BENCH_RE2
    add("_RE2", TheirRE2);
#endif
#ifdef PLX_BENCH_PCRE2
    add("_PCRE2JIT", PCRE2JIT);
#endif
  }
  return true;
}
[[maybe_unused]] bool const ourWorksAreRegistered = Register();

void BM_RegExpCompile(benchmark::State& state_io) {
  PLXString const expression(kWorks[0].expression);
  for (auto _ : state_io) {
    PLXRegExp compiled(expression);
    benchmark::DoNotOptimize(&compiled);
  }
}
BENCHMARK(BM_RegExpCompile);
#ifdef PLX_BENCH_RE2
void BM_RegExpCompile_RE2(benchmark::State& state_io) {
  for (auto _ : state_io) {
    re2::RE2 const compiled(kWorks[0].expression);
    benchmark::DoNotOptimize(&compiled);
  }
}
BENCHMARK(BM_RegExpCompile_RE2);
#endif

}  // namespace
