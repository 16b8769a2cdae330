#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <unistd.h>

#include "PLXDelimitedText.h"
#include "PLXRecordCursor.h"
#include "PLXRecordQuery.h"
#include "PLXUninterrupted.h"

// Export and import of PLXRecordCursor.

namespace {

using Kind = PLXRecordError::Kind;

// So many records are asked for at once: some drivers hold a whole answer in memory.
constexpr std::int64_t kBatch = 32;

char Delimiter(std::string_view options_i) {
  if (options_i.empty()) return ',';
  constexpr std::string_view kName = "delimiter=";
  if (options_i.starts_with(kName)) {
    std::string_view const value = options_i.substr(kName.size());
    if (value == "comma") return ',';
    if (value == "semicolon") return ';';
    if (value == "tab") return '\t';
    if (value.size() == 1 && CanDelimit(value[0])) return value[0];
  }
  throw PLXRecordError(
      Kind::kValue,
      "The options of an export are empty or \"delimiter=\" and one character, \"tab\", \"comma\" or "
      "\"semicolon\", not \"" +
          std::string(options_i) + "\".");
}

[[noreturn]] void FailFile(std::filesystem::path const& file_i, int error_i) {
  throw PLXRecordError(Kind::kFile, file_i.string() + ": " + std::strerror(error_i));
}

// A file that appears under its name when it is whole and on the disk, and leaves nothing behind otherwise.
class WholeFile {
 public:
  explicit WholeFile(std::filesystem::path const& file_i)
      : myFile(file_i),
        myTemporary(file_i.string() + ".plx-" + std::to_string(::getpid()) + "-" +
                    std::to_string(reinterpret_cast<std::uintptr_t>(this))) {
    errno = 0;
    myStream.open(myTemporary, std::ios::binary | std::ios::trunc);
    if (!myStream) FailFile(file_i, errno);
  }
  ~WholeFile() {
    std::error_code ignored;
    if (!isKept) std::filesystem::remove(myTemporary, ignored);
  }
  WholeFile(WholeFile const&) = delete;
  WholeFile& operator=(WholeFile const&) = delete;

  std::ofstream& Stream() { return myStream; }
  void Keep() {
    errno = 0;
    myStream.close();
    if (!myStream) FailFile(myFile, errno == 0 ? EIO : errno);
    int const descriptor =
        PLXUninterrupted([&] { return ::open(myTemporary.c_str(), O_RDONLY | O_CLOEXEC); });
    bool const isSynced = descriptor >= 0 && PLXUninterrupted([&] { return ::fsync(descriptor); }) == 0;
    int const error = errno;
    if (descriptor >= 0) ::close(descriptor);
    if (!isSynced) FailFile(myFile, error);
    if (::rename(myTemporary.c_str(), myFile.c_str()) != 0) FailFile(myFile, errno);
    isKept = true;
  }

 private:
  std::filesystem::path const myFile;
  std::filesystem::path const myTemporary;
  std::ofstream myStream;
  bool isKept = false;
};

}  // namespace

char PLXFindDelimiter(std::istream& stream_io) {
  std::string header;
  std::getline(stream_io, header);
  stream_io.clear();
  stream_io.seekg(0);
  if (header.starts_with(kPLXRecord_IDField) && header.size() > kPLXRecord_IDField.size() &&
      CanDelimit(header[kPLXRecord_IDField.size()])) {
    return header[kPLXRecord_IDField.size()];
  }
  bool isQuoted = false;
  for (char const byte : header) {
    if (byte == '"') isQuoted = !isQuoted;
    if (!isQuoted && (byte == ',' || byte == ';' || byte == '\t')) return byte;
  }
  return ',';
}

std::uint64_t PLXRecordCursor::WriteRecords(std::string const& columns_i,
                                            PLXSQLConnection::RowReader const& writer_i) {
  std::uint64_t count = 0;
  std::string const select = "SELECT " + columns_i + " FROM " + myDefinition.table + " WHERE id ";
  if (myFound) {
    for (std::int64_t const identifier : *myFound) {
      PLXSQLParameter const values[] = {identifier};
      std::uint64_t read = 0;
      myStore->Write([&](PLXSQLConnection& connection_io) {
        connection_io.Run(select + "= ?", values, [&](PLXSQLRow& row_io) {
          writer_i(row_io);
          ++read;
        });
      });
      count += read;
    }
    return count;
  }
  std::int64_t last = std::numeric_limits<std::int64_t>::min();
  for (std::int64_t read = kBatch; read == kBatch;) {
    read = 0;
    PLXSQLParameter const values[] = {last, kBatch};
    // Not repeated when the connection is lost: what was written stands in the file.
    myStore->Write([&](PLXSQLConnection& connection_io) {
      connection_io.Run(select + "> ? ORDER BY id LIMIT ?", values, [&](PLXSQLRow& row_io) {
        last = std::get<std::int64_t>(row_io.at(0));
        writer_i(row_io);
        ++read;
      });
    });
    count += static_cast<std::uint64_t>(read);
  }
  return count;
}

std::uint64_t PLXRecordCursor::Export(std::filesystem::path const& file_i, std::string_view options_i) {
  char const delimiter = Delimiter(options_i);
  Reload();
  WholeFile file(file_i);
  PLXDelimitedWriter writer(file.Stream(), delimiter);
  writer.Field(kPLXRecord_IDField);
  std::string columns = "id";
  for (PLXRecordField const& field : myDefinition.fields) {
    writer.Field(field.name);
    columns += ", " + PLXRecordQuery::Selected(myStore->GetDialect(), field);
  }
  writer.EndRecord();
  std::uint64_t const count = WriteRecords(columns, [&](PLXSQLRow& row_io) {
    for (std::size_t index = 0; index < row_io.size(); ++index) {
      PLXSQLValue& value = row_io[index];
      if (index > 0) myDefinition.fields[index - 1].Adopt(value);
      auto const* const text = std::get_if<std::string>(&value);
      if (text != nullptr) {
        writer.Field(*text);
      } else {
        writer.Field(PLXRecordText(value));
      }
    }
    writer.EndRecord();
    if (!file.Stream()) FailFile(file_i, errno == 0 ? EIO : errno);
  });
  file.Keep();
  return count;
}

std::uint64_t PLXRecordCursor::Import(std::filesystem::path const& file_i) {
  errno = 0;
  std::ifstream stream(file_i, std::ios::binary);
  if (!stream) FailFile(file_i, errno);
  if (std::filesystem::is_directory(file_i)) FailFile(file_i, EISDIR);
  Reload();
  PLXDelimitedReader reader(stream, PLXFindDelimiter(stream));
  std::vector<FieldChange> changes;
  try {
    return Insert(reader, changes);
  } catch (PLXRecordError const& error) {
    std::string const where = file_i.string() + ", line " + std::to_string(reader.Line()) + ": ";
    if (error.GetKind() != Kind::kNotUnique) throw PLXRecordError(error.GetKind(), where + error.what());
    throw PLXRecordError(Kind::kNotUnique, where + NotUniqueText(changes));
  }
}

std::uint64_t PLXRecordCursor::Insert(PLXDelimitedReader& reader_io, std::vector<FieldChange>& changes_o) {
  std::vector<std::string> texts;
  auto const read = [&] {
    if (reader_io.ReadRecord(texts)) return true;
    if (!reader_io.Error().empty()) throw PLXRecordError(Kind::kFile, reader_io.Error() + ".");
    return false;
  };
  if (!read()) throw PLXRecordError(Kind::kFile, "There is no header line.");
  std::vector<PLXRecordField> fields;
  fields.reserve(texts.size());
  for (std::string const& name : texts) fields.push_back(Field(name));
  std::uint64_t count = 0;
  Change([&](PLXSQLConnection& connection_io) {
    PLXSQLTransaction transaction(connection_io);
    for (; read(); ++count) {
      if (texts.size() != fields.size()) {
        throw PLXRecordError(Kind::kFile, "There are " + std::to_string(texts.size()) + " values for " +
                                              std::to_string(fields.size()) + " fields.");
      }
      changes_o.clear();
      for (std::size_t index = 0; index < fields.size(); ++index) {
        PLXRecordField const& field = fields[index];
        if (texts[index].empty() || field.position == 0) continue;
        changes_o.emplace_back(field.position, field.Convert(std::string_view(texts[index])));
      }
      Insert(connection_io, changes_o);
    }
    transaction.Commit();
  });
  return count;
}
