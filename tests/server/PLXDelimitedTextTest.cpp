#include <gtest/gtest.h>
#include <sstream>

#include "PLXDelimitedText.h"

namespace {

using Record = std::vector<std::string>;
using Records = std::vector<Record>;

std::string Written(Records const& records_i, char delimiter_i) {
  std::ostringstream stream;
  PLXDelimitedWriter writer(stream, delimiter_i);
  for (Record const& record : records_i) {
    for (std::string const& field : record) writer.Field(field);
    writer.EndRecord();
  }
  return stream.str();
}

Records ReadAll(std::string const& text_i, char delimiter_i, std::string& error_o,
                std::size_t limit_i = 1 << 30) {
  std::istringstream stream(text_i);
  PLXDelimitedReader reader(stream, delimiter_i, limit_i, 1);
  Records records;
  for (Record record; reader.ReadRecord(record);) records.push_back(record);
  error_o = reader.Error();
  return records;
}

}  // namespace

TEST(PLXDelimitedText, WritesWhatComesBackAsItWas) {
  struct Row {
    char const* why;
    char delimiter;
    Records records;
    std::string text;
  } const rows[] = {
      {"only what needs quotes has them",
       ',',
       {{"a;b", " c ", "d,e", "say \"x\""}},
       "a;b, c ,\"d,e\",\"say \"\"x\"\"\"\r\n"},
      {"another delimiter", '\t', {{"a,b", "c\td"}}, "a,b\t\"c\td\"\r\n"},
      {"line ends inside", ';', {{"a\r\nb", "\n", "\r"}}, "\"a\r\nb\";\"\n\";\"\r\"\r\n"},
      {"an empty field alone is no empty line", ',', {{""}, {"", ""}, {"", "a"}}, "\"\"\r\n,\r\n,a\r\n"},
      {"a value that begins like a byte order mark",
       ',',
       {{"\xEF\xBB\xBFx", "y"}, {"\xEF\xBB\xBFz"}},
       "\"\xEF\xBB\xBFx\",y\r\n\xEF\xBB\xBFz\r\n"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Written(row.records, row.delimiter), row.text);
    std::string error;
    EXPECT_EQ(ReadAll(row.text, row.delimiter, error), row.records);
    EXPECT_EQ(error, "");
  }
}

TEST(PLXDelimitedText, ReadsWhatOtherProgramsWrite) {
  struct Row {
    char const* why;
    char const* text;
    Records records;
    char const* error;
  } const rows[] = {
      {"nothing, and nothing but a mark", "\xEF\xBB\xBF", {}, ""},
      {"a mark, LF ends, empty lines, no last end",
       "\xEF\xBB\xBF\"a\",b\n\r\n\n1,",
       {{"a", "b"}, {"1", ""}},
       ""},
      {"quotes and carriage returns in the middle", "a\"b\",\rc\r,d\r\n", {{"a\"b\"", "\rc\r", "d"}}, ""},
      {"a last line end cut in two", "a\r\n\"b\"\r", {{"a"}, {"b"}}, ""},
      {"an unclosed quote, told where it opens",
       "a\n\"b\",\"\nc\n",
       {{"a"}},
       "there is no closing quote for the value that begins in line 2"},
      {"text behind a quote", "\"a\nb\"c\nd\n", {}, "there is text after a closing quote in line 2"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string error;
    EXPECT_EQ(ReadAll(row.text, ',', error), row.records);
    EXPECT_EQ(error, row.error);
  }
}

TEST(PLXDelimitedText, CarriesLongValuesInPieces) {
  std::string value(3 << 20, 'x');
  for (std::size_t n = 0; n < value.size(); n += 65535)
    value.replace(n, 4, "\"\r\n,", std::min(4UL, value.size() - n));
  Records const records = {{value, std::string(200000, '"'), std::string(70000, 'y')}, {"short", value}};
  std::string error;
  EXPECT_TRUE(ReadAll(Written(records, ','), ',', error) == records) << error;
}

TEST(PLXDelimitedText, RefusesARecordBeyondTheLimit) {
  std::string const kept = "a,b\n";
  for (std::string const& text :
       {"\"" + std::string(1000, 'x'), std::string(1000, 'x'), std::string(100, ',')}) {
    std::string error;
    EXPECT_EQ(ReadAll(kept + text, ',', error, 500), Records({{"a", "b"}}));
    EXPECT_EQ(error, "there are more than 500 bytes in the record that begins in line 2");
  }
}

TEST(PLXDelimitedText, TellsAStreamThatCannotBeRead) {
  std::istringstream stream("a,b\n");
  stream.setstate(std::ios::failbit);
  PLXDelimitedReader reader(stream);
  Record record = {"old"};
  EXPECT_FALSE(reader.ReadRecord(record));
  EXPECT_TRUE(record.empty());
  EXPECT_EQ(reader.Error(), "the data cannot be read on in line 1");
}
