#include <sstream>

#include "Fuzz.h"
#include "PLXDelimitedText.h"

// Any bytes as a table, the first one the delimiter: read through a large buffer and through the smallest,
// the answer is the same, and what was read comes back from what is written of it. Then the bytes as values,
// cut at '|' into fields and at '~' into records: the same comes back.

namespace {

using Records = std::vector<std::vector<std::string>>;

struct Answer {
  Records records;
  std::vector<std::size_t> lines;
  std::string error;
  bool operator==(Answer const&) const = default;
};

Answer ReadAll(std::string const& text_i, char delimiter_i, std::size_t limit_i, std::size_t buffer_i) {
  std::istringstream stream(text_i);
  PLXDelimitedReader reader(stream, delimiter_i, limit_i, buffer_i);
  Answer answer;
  std::vector<std::string> record;
  while (reader.ReadRecord(record)) {
    answer.records.push_back(record);
    answer.lines.push_back(reader.Line());
  }
  Require(record.empty() && !reader.ReadRecord(record));
  answer.error = reader.Error();
  return answer;
}

void CheckRoundTrip(Records const& records_i, char delimiter_i) {
  std::ostringstream stream;
  PLXDelimitedWriter writer(stream, delimiter_i);
  for (auto const& record : records_i) {
    for (auto const& field : record) writer.Field(field);
    writer.EndRecord();
  }
  Answer const answer = ReadAll(stream.str(), delimiter_i, SIZE_MAX, 65536);
  Require(answer.error.empty() && answer.records == records_i);
}

Records Cut(std::string_view text_i) {
  Records records(1, std::vector<std::string>(1));
  for (char const character : text_i) {
    if (character == '~') {
      records.emplace_back(1);
    } else if (character == '|') {
      records.back().emplace_back();
    } else {
      records.back().back() += character;
    }
  }
  return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  if (size_i == 0) return 0;
  auto const first = static_cast<char>(data_i[0]);
  char const delimiter = CanDelimit(first) ? first : ',';
  std::string const text(reinterpret_cast<char const*>(data_i) + 1, size_i - 1);
  for (std::size_t const limit : {std::size_t{100}, std::size_t{1} << 30}) {
    Answer const answer = ReadAll(text, delimiter, limit, 65536);
    Require(answer == ReadAll(text, delimiter, limit, 1));
    CheckRoundTrip(answer.records, delimiter);
    // A cut changes no record but the one that it cuts.
    ForEachCut(text, [&](std::string_view cut_i) {
      Records const some = ReadAll(std::string(cut_i), delimiter, limit, 7).records;
      Require(some.size() <= answer.records.size() + 1);
      for (std::size_t n = 0; n + 1 < some.size(); ++n) Require(some[n] == answer.records[n]);
    });
  }
  CheckRoundTrip(Cut(text), delimiter);
  return 0;
}
