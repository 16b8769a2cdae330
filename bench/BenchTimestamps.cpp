#include <benchmark/benchmark.h>
#include <ctime>
#include <string>

#ifdef PLX_BENCH_POCO
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/DateTimeParser.h>
#endif

#include "PLXTimestamp.h"

// Dates of mail and HTTP (RFC 1123), written and read.

namespace {

constexpr char kDate[] = "Tue, 05 Mar 2002 14:07:09 -0500";

void BM_TimestampFormat(benchmark::State& state_io) {
  PLXTimestamp const timestamp(2002, 3, 5, 14, 7, 9);
  for (auto _ : state_io) benchmark::DoNotOptimize(timestamp.Get(PLXTimestamp::kFormatRFC1123));
}
BENCHMARK(BM_TimestampFormat);

// With the offset that holds now asked for each time, as ours has to.
void BM_TimestampFormat_Platform(benchmark::State& state_io) {
  std::tm moment{};
  ::strptime(kDate, "%a, %d %b %Y %H:%M:%S %z", &moment);
  for (auto _ : state_io) {
    std::time_t const now = std::time(nullptr);
    std::tm local;
    ::localtime_r(&now, &local);
    moment.tm_gmtoff = local.tm_gmtoff;
    char text[64];
    std::size_t const length = std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S %z", &moment);
    benchmark::DoNotOptimize(std::string(text, length));
  }
}
BENCHMARK(BM_TimestampFormat_Platform);

void BM_TimestampParse(benchmark::State& state_io) {
  PLXString const text(kDate);
  PLXTimestamp timestamp(2000, 1, 1, 0, 0, 0);
  for (auto _ : state_io) {
    timestamp.SetFromRFC1123(text, false);
    benchmark::DoNotOptimize(timestamp);
  }
}
BENCHMARK(BM_TimestampParse);

void BM_TimestampParse_Platform(benchmark::State& state_io) {
  for (auto _ : state_io) {
    std::tm moment{};
    benchmark::DoNotOptimize(::strptime(kDate, "%a, %d %b %Y %H:%M:%S %z", &moment));
    long const offset = moment.tm_gmtoff;
    benchmark::DoNotOptimize(::timegm(&moment) - offset);
  }
}
BENCHMARK(BM_TimestampParse_Platform);

#ifdef PLX_BENCH_POCO
void BM_TimestampFormat_Poco(benchmark::State& state_io) {
  Poco::DateTime const moment(2002, 3, 5, 14, 7, 9);
  for (auto _ : state_io) {
    benchmark::DoNotOptimize(
        Poco::DateTimeFormatter::format(moment, Poco::DateTimeFormat::RFC1123_FORMAT, -5 * 3600));
  }
}
BENCHMARK(BM_TimestampFormat_Poco);

void BM_TimestampParse_Poco(benchmark::State& state_io) {
  std::string const text(kDate);
  for (auto _ : state_io) {
    Poco::DateTime moment;
    int offset = 0;
    Poco::DateTimeParser::parse(Poco::DateTimeFormat::RFC1123_FORMAT, text, moment, offset);
    benchmark::DoNotOptimize(moment);
  }
}
BENCHMARK(BM_TimestampParse_Poco);
#endif

}  // namespace
