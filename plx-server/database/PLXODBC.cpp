#include "PLXODBC.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <sql.h>
#include <sqlext.h>
#include <unordered_map>
#include <vector>

#include "PLXTextEscape.h"

namespace {

using Kind = PLXSQLError::Kind;

constexpr std::size_t kStatementsKept = 64;
constexpr std::size_t kLongestPlain = 255;  // drivers take more only as a long type
constexpr std::size_t kFirstPiece = 512;    // of a text: most are whole with it
constexpr SQLULEN kLoginSeconds = 10;

SQLCHAR* Text(std::string const& text_i) {
  return const_cast<SQLCHAR*>(reinterpret_cast<SQLCHAR const*>(text_i.c_str()));
}

SQLPOINTER Number(SQLULEN number_i) { return reinterpret_cast<SQLPOINTER>(number_i); }

// What a handle says about its last error: the five-character state, the engine's number, the text.
struct Diagnosis {
  std::string state;
  SQLINTEGER native = 0;
  std::string text;

  Diagnosis(SQLSMALLINT type_i, SQLHANDLE handle_i) {
    SQLCHAR stateText[6] = "";
    SQLCHAR message[2048] = "";
    SQLSMALLINT length = 0;
    SQLGetDiagRec(type_i, handle_i, 1, stateText, &native, message, sizeof message, &length);
    state = reinterpret_cast<char const*>(stateText);
    text = reinterpret_cast<char const*>(message);
    // "[unixODBC][Driver]ERROR: ..." and line ends are for programs.
    while (text.starts_with('[')) {
      std::size_t const end = text.find(']');
      if (end == std::string::npos) break;
      text.erase(0, end + 1);
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    if (text.empty()) text = "The driver gives no reason";
  }

  bool Has(std::string_view part_i) const { return text.find(part_i) != std::string::npos; }
  bool IsState(std::initializer_list<std::string_view> states_i) const {
    return std::any_of(states_i.begin(), states_i.end(),
                       [this](std::string_view one) { return state.starts_with(one); });
  }
  Kind KindOf() const {
    constexpr SQLINTEGER kSQLiteBusy = 5;
    if (IsState({"23505"}) || Has("UNIQUE constraint") || (IsState({"23000"}) && Has("uplicate")))
      return Kind::kNotUnique;
    if (IsState({"08", "57P0"}) || Has("terminating connection") || Has("connection to the server"))
      return Kind::kLost;
    if (IsState({"55P03", "40", "HYT"}) || (IsState({"HY000"}) && native == kSQLiteBusy)) return Kind::kBusy;
    return Kind::kOther;
  }
  [[noreturn]] void Throw() const { throw PLXSQLError(KindOf(), text + " (" + state + ")"); }
};

// One for the process, never given back: connections of many stores hang on it.
SQLHENV Environment() {
  static SQLHENV const ourEnvironment = [] {
    SQLHENV environment = SQL_NULL_HENV;
    if (SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment))) {
      SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, Number(SQL_OV_ODBC3), 0);
    }
    return environment;
  }();
  return ourEnvironment;
}

// A value of a connection string: in braces when it holds what would end it. Not every driver takes them away
// again.
std::string Braced(std::string const& text_i) {
  if (text_i.find_first_of(";{}[](),?*=!@ ") == std::string::npos) return text_i;
  std::string braced = "{";
  for (char const byte : text_i) braced.append(byte == '}' ? 2 : 1, byte);
  return braced + "}";
}

// The turn to connect. One at a time has it, because PostgreSQL's driver sets the locale of the whole
// process, for a moment, while it connects. So a source that neither answers nor refuses keeps everybody
// waiting, until the driver gives up: it is not tried again for longer than that took, and whoever waited for
// it meanwhile fails with the first.
class ConnectingTurn {
 public:
  // Throws when the source is left alone at the moment, or the turn does not come.
  explicit ConnectingTurn(std::string const& source_i) : mySource(source_i) {
    std::unique_lock lock(ourMutex);
    bool const isFree = ourFreed.wait_for(lock, kPatience, [&] { return !ourIsTaken || IsLeftAlone(); });
    if (IsLeftAlone()) {
      throw PLXSQLError(
          Kind::kLost,
          "The data source did not answer a moment ago and is not tried again for some seconds.");
    }
    if (!isFree) {
      throw PLXSQLError(Kind::kLost, "Other data sources do not answer, and this one waits behind them.");
    }
    ourIsTaken = true;
    myStart = Clock::now();
  }
  ~ConnectingTurn() {
    std::lock_guard const lock(ourMutex);
    ourIsTaken = false;
    auto const took = Clock::now() - myStart;
    if (myIsConnected || took < kSlow) {
      ourSilent.erase(mySource);
    } else {
      std::erase_if(ourSilent,
                    [](auto const& entry) { return entry.second.until < Clock::now() - kForgotten; });
      Silent& silent = ourSilent[mySource];
      silent.pause = std::clamp(2 * silent.pause, kFirstPause, kLongestPause);
      silent.until = Clock::now() + silent.pause;
    }
    ourFreed.notify_all();
  }
  ConnectingTurn(ConnectingTurn const&) = delete;
  ConnectingTurn& operator=(ConnectingTurn const&) = delete;

  void IsConnected() { myIsConnected = true; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Silent {
    std::chrono::seconds pause{0};
    Clock::time_point until;
  };
  static constexpr std::chrono::seconds kPatience{25};
  static constexpr std::chrono::seconds kSlow{3};  // an answer within this time is one, if only a refusal
  static constexpr std::chrono::seconds kFirstPause{15};
  static constexpr std::chrono::seconds kLongestPause{60};
  static constexpr std::chrono::minutes kForgotten{5};

  bool IsLeftAlone() const {
    auto const found = ourSilent.find(mySource);
    return found != ourSilent.end() && Clock::now() < found->second.until;
  }

  static inline std::mutex ourMutex;  // guards all below
  static inline std::condition_variable ourFreed;
  static inline bool ourIsTaken = false;
  static inline std::map<std::string, Silent> ourSilent;
  std::string const& mySource;
  Clock::time_point myStart;
  bool myIsConnected = false;
};

bool Connect(SQLHDBC handle_i, std::string const& source_i, std::string& connection_io) {
  ConnectingTurn turn(source_i);
  bool const isConnected = SQL_SUCCEEDED(SQLDriverConnect(handle_i, nullptr, Text(connection_io), SQL_NTS,
                                                          nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT));
  if (isConnected) turn.IsConnected();
  return isConnected;
}

}  // namespace

class PLXODBC::Link {
  // Gives the handle back when no connection comes of it.
  struct HandleOwner {
    SQLHDBC handle;
    ~HandleOwner() {
      if (handle != SQL_NULL_HDBC) SQLFreeHandle(SQL_HANDLE_DBC, handle);
    }
  };

 public:
  Link(std::string const& source_i, std::string const& user_i, std::string const& password_i) {
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, Environment(), &handle))) {
      throw PLXSQLError(Kind::kLost, "ODBC gives no connection handle.");
    }
    HandleOwner owner{handle};
    SQLSetConnectAttr(handle, SQL_ATTR_LOGIN_TIMEOUT, Number(kLoginSeconds), SQL_IS_UINTEGER);
    std::string connection = source_i.find('=') == std::string::npos ? "DSN=" + source_i : source_i;
    if (!user_i.empty()) connection += ";UID=" + Braced(user_i);
    if (!password_i.empty()) connection += ";PWD=" + Braced(password_i);
    if (!Connect(handle, source_i, connection)) {
      std::string const why = Diagnosis(SQL_HANDLE_DBC, handle).text;
      bool const isName = source_i.find('=') == std::string::npos;
      throw PLXSQLError(Kind::kLost, "The data source " + (isName ? "\"" + source_i + "\" " : std::string()) +
                                         "cannot be reached: " + WithoutSecret(why, password_i));
    }
    owner.handle = SQL_NULL_HDBC;
    char name[64] = "";
    SQLSMALLINT length = 0;
    SQLGetInfo(handle, SQL_DBMS_NAME, name, sizeof name, &length);
    std::string_view const engine(name);
    if (engine == "PostgreSQL") dialect = PLXSQLDialect::kPostgreSQL;
    if (engine.starts_with("SQLite")) dialect = PLXSQLDialect::kSQLiteODBC;
  }
  ~Link() {
    statements.clear();
    // An open transaction keeps some drivers from letting go.
    if (SQLDisconnect(handle) != SQL_SUCCESS) {
      SQLEndTran(SQL_HANDLE_DBC, handle, SQL_ROLLBACK);
      SQLDisconnect(handle);
    }
    SQLFreeHandle(SQL_HANDLE_DBC, handle);
  }
  Link(Link const&) = delete;
  Link& operator=(Link const&) = delete;

  Statement& Prepare(std::string const& sql_i);

  SQLHDBC handle = SQL_NULL_HDBC;
  PLXSQLDialect dialect = PLXSQLDialect::kOther;
  std::unordered_map<std::string, std::unique_ptr<Statement>> statements;

 private:
  static std::string WithoutSecret(std::string text_i, std::string const& secret_i) {
    for (std::size_t at; !secret_i.empty() && (at = text_i.find(secret_i)) != std::string::npos;) {
      text_i.replace(at, secret_i.size(), "(password)");
      if (secret_i == "(password)" || std::string_view("(password)").find(secret_i) != std::string::npos)
        break;
    }
    return text_i;
  }
};

// A prepared statement and what its execution needs to stay where it is.
class PLXODBC::Statement {
 public:
  Statement(SQLHDBC connection_i, std::string const& sql_i) {
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, connection_i, &myHandle))) {
      Diagnosis(SQL_HANDLE_DBC, connection_i).Throw();
    }
    if (!SQL_SUCCEEDED(SQLPrepare(myHandle, Text(sql_i), static_cast<SQLINTEGER>(sql_i.size())))) {
      Diagnosis const diagnosis(SQL_HANDLE_STMT, myHandle);
      SQLFreeHandle(SQL_HANDLE_STMT, myHandle);
      diagnosis.Throw();
    }
  }
  ~Statement() { SQLFreeHandle(SQL_HANDLE_STMT, myHandle); }
  Statement(Statement const&) = delete;
  Statement& operator=(Statement const&) = delete;

  std::int64_t Run(std::span<PLXSQLParameter const> values_i, RowReader const& reader_i) {
    struct Reset {
      Statement& statement;
      ~Reset() { statement.Finish(); }
    } const reset{*this};
    myBound.clear();
    myBound.reserve(values_i.size());  // the driver keeps addresses into it
    for (PLXSQLParameter const& value : values_i) Bind(value);
    SQLRETURN const result = SQLExecute(myHandle);
    if (!SQL_SUCCEEDED(result) && result != SQL_NO_DATA) Fail();
    SQLSMALLINT columns = 0;
    SQLNumResultCols(myHandle, &columns);
    if (columns > 0) {
      ReadRows(static_cast<SQLUSMALLINT>(columns), reader_i);
      return 0;
    }
    SQLLEN count = 0;
    if (result != SQL_NO_DATA) SQLRowCount(myHandle, &count);
    return count;
  }

 private:
  struct Bound {
    SQLBIGINT integer = 0;
    std::string text;  // an escaped text, or a number's digits
    SQLLEN length = 0;
  };

  [[noreturn]] void Fail() { Diagnosis(SQL_HANDLE_STMT, myHandle).Throw(); }

  void Finish() {
    SQLFreeStmt(myHandle, SQL_CLOSE);
    SQLFreeStmt(myHandle, SQL_RESET_PARAMS);
    myBound.clear();
  }

  void Bind(PLXSQLParameter const& value_i) {
    Bound& bound = myBound.emplace_back();
    if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) {
      bound.integer = *integer;
      return BindParameter(SQL_C_SBIGINT, SQL_BIGINT, 0, &bound.integer, 0, bound.length);
    }
    if (auto const* const number = std::get_if<double>(&value_i)) {
      char digits[40];
      auto const [end, error] =
          std::to_chars(digits, digits + sizeof digits, *number, std::chars_format::scientific, 16);
      bound.text.assign(digits, end);
      return BindText(bound.text, bound.length);
    }
    if (auto const* const text = std::get_if<std::string_view>(&value_i)) {
      if (!PLXNeedsEscape(*text)) return BindText(*text, bound.length);
      bound.text = PLXEscapeToUTF8(*text);
      return BindText(bound.text, bound.length);
    }
    bound.length = SQL_NULL_DATA;
    BindParameter(SQL_C_CHAR, SQL_VARCHAR, 1, nullptr, 0, bound.length);
  }

  void BindText(std::string_view text_i, SQLLEN& length_o) {
    length_o = static_cast<SQLLEN>(text_i.size());
    char const* const begin = text_i.empty() ? "" : text_i.data();
    BindParameter(SQL_C_CHAR, text_i.size() > kLongestPlain ? SQL_LONGVARCHAR : SQL_VARCHAR,
                  std::max<SQLULEN>(1, text_i.size()), const_cast<char*>(begin), length_o, length_o);
  }

  void BindParameter(SQLSMALLINT cType_i, SQLSMALLINT type_i, SQLULEN size_i, SQLPOINTER value_i,
                     SQLLEN room_i, SQLLEN& length_i) {
    if (!SQL_SUCCEEDED(SQLBindParameter(myHandle, static_cast<SQLUSMALLINT>(myBound.size()), SQL_PARAM_INPUT,
                                        cType_i, type_i, size_i, 0, value_i, room_i, &length_i))) {
      Fail();
    }
  }

  void ReadRows(SQLUSMALLINT columns_i, RowReader const& reader_i) {
    if (myTypes.size() != columns_i) {
      myTypes.assign(columns_i, SQL_VARCHAR);
      for (SQLUSMALLINT column = 1; column <= columns_i; ++column) {
        SQLDescribeCol(myHandle, column, nullptr, 0, nullptr, &myTypes[column - 1u], nullptr, nullptr,
                       nullptr);
      }
    }
    PLXSQLRow row;
    for (;;) {
      SQLRETURN const result = SQLFetch(myHandle);
      if (result == SQL_NO_DATA) return;
      if (!SQL_SUCCEEDED(result)) Fail();
      if (!reader_i) continue;
      row.resize(columns_i);
      for (SQLUSMALLINT column = 1; column <= columns_i; ++column) row[column - 1u] = ReadValue(column);
      reader_i(row);
    }
  }

  PLXSQLValue ReadValue(SQLUSMALLINT column_i) {
    SQLLEN length = 0;
    switch (myTypes[column_i - 1u]) {
      case SQL_BIGINT:
      case SQL_INTEGER:
      case SQL_SMALLINT:
      case SQL_TINYINT:
      case SQL_BIT: {
        SQLBIGINT integer = 0;
        if (!SQL_SUCCEEDED(SQLGetData(myHandle, column_i, SQL_C_SBIGINT, &integer, sizeof integer, &length)))
          Fail();
        if (length == SQL_NULL_DATA) return {};
        return std::int64_t{integer};
      }
      case SQL_DOUBLE:
      case SQL_FLOAT:
      case SQL_REAL: {
        double number = 0;
        if (!SQL_SUCCEEDED(SQLGetData(myHandle, column_i, SQL_C_DOUBLE, &number, sizeof number, &length)))
          Fail();
        if (length == SQL_NULL_DATA) return {};
        return number;
      }
      default:
        return ReadText(column_i);
    }
  }

  // In pieces, because a driver that does not know the length cannot fill a buffer at once; the driver ends
  // each piece with a zero byte.
  PLXSQLValue ReadText(SQLUSMALLINT column_i) {
    std::string text(kFirstPiece, '\0');
    std::size_t filled = 0;
    for (;;) {
      SQLLEN length = 0;
      SQLRETURN const result = SQLGetData(myHandle, column_i, SQL_C_CHAR, text.data() + filled,
                                          static_cast<SQLLEN>(text.size() - filled), &length);
      if (result == SQL_NO_DATA) break;
      if (!SQL_SUCCEEDED(result)) Fail();
      if (length == SQL_NULL_DATA) return {};
      std::size_t const room = text.size() - filled - 1;
      bool const isWhole = length != SQL_NO_TOTAL && static_cast<std::size_t>(length) <= room;
      filled += isWhole ? static_cast<std::size_t>(length) : room;
      if (isWhole) break;
      // The rest as the driver tells it, or twice as much: linear either way.
      std::size_t const rest = length == SQL_NO_TOTAL ? text.size() : static_cast<std::size_t>(length) - room;
      text.resize(filled + rest + 1);
    }
    text.resize(filled);
    PLXUnescapeFromUTF8(text);
    return text;
  }

  SQLHSTMT myHandle = SQL_NULL_HSTMT;
  std::vector<Bound> myBound;
  std::vector<SQLSMALLINT> myTypes;  // of the columns, as the first execution described them
};

PLXODBC::Statement& PLXODBC::Link::Prepare(std::string const& sql_i) {
  if (auto const found = statements.find(sql_i); found != statements.end()) return *found->second;
  if (statements.size() >= kStatementsKept) statements.clear();
  return *statements.emplace(sql_i, std::make_unique<Statement>(handle, sql_i)).first->second;
}

PLXODBC::PLXODBC(std::string const& source_i, std::string const& user_i, std::string const& password_i)
    : PLXODBC(std::make_unique<Link>(source_i, user_i, password_i)) {}

PLXODBC::PLXODBC(std::unique_ptr<Link> link_i)
    : PLXSQLConnection(link_i->dialect), myLink(std::move(link_i)) {
  if (GetDialect() == PLXSQLDialect::kPostgreSQL) {
    Run("SET client_encoding TO 'UTF8'");
    Run("SET lock_timeout = 10000");
    Run("SET client_min_messages = warning");
  }
  if (GetDialect() == PLXSQLDialect::kSQLiteODBC) {
    Run("PRAGMA busy_timeout=10000");
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=FULL");
  }
}

PLXODBC::~PLXODBC() = default;

std::int64_t PLXODBC::Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i,
                          RowReader const& reader_i) {
  return myLink->Prepare(sql_i).Run(values_i, reader_i);
}

void PLXODBC::ForgetStatements() { myLink->statements.clear(); }

void PLXODBC::Begin() {
  if (GetDialect() != PLXSQLDialect::kOther) {
    Run(GetDialect() == PLXSQLDialect::kPostgreSQL ? "BEGIN" : "BEGIN IMMEDIATE");
    return;
  }
  if (!SQL_SUCCEEDED(SQLSetConnectAttr(myLink->handle, SQL_ATTR_AUTOCOMMIT, Number(SQL_AUTOCOMMIT_OFF), 0))) {
    Diagnosis(SQL_HANDLE_DBC, myLink->handle).Throw();
  }
}

void PLXODBC::Commit() { End(true); }

void PLXODBC::Rollback() { End(false); }

void PLXODBC::End(bool isKept_i) {
  if (GetDialect() != PLXSQLDialect::kOther) {
    Run(isKept_i ? "COMMIT" : "ROLLBACK");
    return;
  }
  if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, myLink->handle, isKept_i ? SQL_COMMIT : SQL_ROLLBACK))) {
    Diagnosis(SQL_HANDLE_DBC, myLink->handle).Throw();
  }
  SQLSetConnectAttr(myLink->handle, SQL_ATTR_AUTOCOMMIT, Number(SQL_AUTOCOMMIT_ON), 0);
}
