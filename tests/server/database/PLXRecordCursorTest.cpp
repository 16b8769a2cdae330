#include <atomic>
#include <cmath>
#include <fstream>
#include <limits>
#include <thread>

#include "RecordFixture.h"

// The engine, the same on every source.

namespace {

constexpr std::uint32_t kBoolean = 0x10000, kInteger = 0x20000, kUnsigned = 0x30000, kFloat = 0x40000,
                        kNumber = 0x50000, kText = 0x60000, kLongText = 0x70000,
                        kUnique = PLXRecordField::kUnique, kIndexed = PLXRecordField::kIndexed;

std::int64_t Integer(std::int64_t integer_i) { return integer_i; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Engines, Records, testing::Values("sqlite", "sqliteodbc", "postgresql"),
                         [](auto const& info_i) { return info_i.param; });

// ---- Definition

TEST_P(Records, DefinesDatabasesAndFields) {
  auto log = Open("Mail Log");
  EXPECT_EQ(log->Name(), "Mail Log");
  EXPECT_TRUE(log->Fields().empty());
  std::string const strange =
      "It's 100% \"Gr\xC3\xB6\xC3\x9F"
      "e\": a?; -- ";
  std::string const name = strange.substr(0, strange.size() - 1);
  std::string const first(255, 'n'), second = first.substr(1) + "N", third = std::string(254, 'n') + "m";
  for (std::string const& field : {name, std::string("id"), std::string("select"), first, third}) {
    log->AddField(field, kText | 300 | kIndexed);
  }
  EXPECT_EQ(log->Field("ID").word, kText | 300 | kIndexed);
  EXPECT_EQ(log->Field("ID").TypeName(), "text(300)");
  EXPECT_EQ(log->Field("plxidfield").word, kInteger);
  EXPECT_EQ(log->Fields().size(), 5u);
  AddRecord(*log, {{name, "a"}, {"Id", "b"}, {"SELECT", "c"}, {first, "d"}, {third, "e"}});
  auto again = Open("MAIL LOG");
  EXPECT_EQ(again->Name(), "Mail Log");
  EXPECT_EQ(GetText(*again, name) + GetText(*again, second) + GetText(*again, third), "ade");

  struct Row {
    char const* why;
    Kind kind;
    std::string name;
    std::uint32_t word;
  } const bad[] = {{"there already, in other letters", Kind::kExists, second, kText},
                   {"the identifier", Kind::kExists, "PlxIdField", kInteger},
                   {"no name", Kind::kName, "", kText},
                   {"too long", Kind::kName, std::string(256, 'x'), kText},
                   {"a line end", Kind::kName, "a\nb", kText},
                   {"no type", Kind::kValue, "x", 0},
                   {"a type beyond", Kind::kValue, "x", 0x410000}};
  for (Row const& row : bad) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Failure([&] { log->AddField(row.name, row.word); }), row.kind);
  }
  EXPECT_EQ(Failure([&] { log->Field("none"); }), Kind::kNotFound);
  again->AddField("later", kLongText);
  log->Set("Later", "seen without opening again");
  log->Update();
  again->DeleteField("id");
  EXPECT_EQ(Failure([&] { log->DeleteField("id"); }), Kind::kNotFound);
  EXPECT_EQ(Failure([&] { log->DeleteField("PLXIDFIELD"); }), Kind::kName);
  again->AddField("id", kInteger);
  EXPECT_EQ(GetText(*again, "id"), "") << "a field that is added is unset";
  PLXRecordCatalogue::NewField const fields[] = {{"first", kInteger}, {"second", kInteger}, {"First", kText}};
  EXPECT_EQ(Failure([&] { again->AddFields(fields); }), Kind::kExists);
  EXPECT_FALSE(again->HasField("second")) << "all or none";
  EXPECT_EQ(log->Fields().size(), 5u) << "looked at when it failed";
}

TEST_P(Records, MakesListsAndDeletesDatabases) {
  auto& store = *myEngine->Store();
  store.Create("beta");
  Open("Alpha");
  EXPECT_EQ(Failure([&] { store.Create("BETA"); }), Kind::kExists);
  EXPECT_THAT(store.Names(), testing::ElementsAre("Alpha", "beta"));
  for (std::string const& name :
       {std::string(), std::string("a/b"), std::string("..\\x"), std::string("O'Brien"), std::string("\"x\""),
        std::string(300, 'x'), std::string("a\0b", 3)}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Failure([&] { store.Create(name); }), Kind::kName);
    EXPECT_EQ(Failure([&] { Open(name); }), Kind::kName);
    EXPECT_EQ(Failure([&] { store.Delete(name); }), Kind::kName);
  }
  {
    auto beta = Open("beta");
    beta->AddField("n", kInteger | kUnique);
    AddRecord(*beta, {{"n", Integer(1)}});
  }
  store.Delete("Beta");
  EXPECT_EQ(Failure([&] { store.Delete("beta"); }), Kind::kNotFound);
  EXPECT_THAT(store.Names(), testing::ElementsAre("Alpha"));
  EXPECT_TRUE(Open("beta")->Fields().empty()) << "a new one";
}

// ---- Values

TEST_P(Records, KeepsEveryValueAsItWas) {
  auto cursor = Open("values");
  cursor->AddField("b", kBoolean);
  cursor->AddField("i", kInteger);
  cursor->AddField("u", kUnsigned);
  cursor->AddField("f", kFloat);
  cursor->AddField("n", kNumber | kUnique);
  cursor->AddField("t", kText | 10);
  cursor->AddField("l", kLongText);
  AddRecord(*cursor, {});
  for (char const* const field : {"b", "i", "u", "f", "t", "l"})
    EXPECT_EQ(GetText(*cursor, field), "") << field;

  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  for (std::string const& text :
       {std::string(), std::string(" a'b\"c\\ "), std::string("?"), bytes,
        std::string("na\xC3\xAFve \xE2\x82\xAC"), std::string("\xF4\x8F\xBF\x80\xF4\x8F"),
        std::string("\xED\xA0\x80\xC0\x80"), std::string(70000, '\xE9')}) {
    SCOPED_TRACE(text.substr(0, 40));
    AddRecord(*cursor, {{"t", text}, {"l", text}});
    cursor->MoveLast();
    EXPECT_EQ(GetText(*cursor, "t"), text);
    EXPECT_EQ(GetText(*cursor, "l"), text);
  }
  for (std::int64_t const integer :
       {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, std::int64_t{0},
        std::int64_t{2451812700405}, std::numeric_limits<std::int64_t>::max()}) {
    AddRecord(*cursor, {{"i", integer}});
    cursor->MoveLast();
    EXPECT_EQ(cursor->Get("i"), PLXSQLValue(integer));
    cursor->Search("i = '" + std::to_string(integer) + "'");
    EXPECT_EQ(Walk(*cursor, "i"), integer == 0 ? Walk(*cursor, "i") : std::to_string(integer));
    cursor->ClearSearch();
  }
  for (double const number : {0.1 + 0.2, -1e308, 5e-324, 2451812700405.25, 1.0 / 3}) {
    AddRecord(*cursor, {{"f", number}});
    cursor->MoveLast();
    EXPECT_EQ(cursor->Get("f"), PLXSQLValue(number));
  }
  for (char const* const number :
       {"2451812700405", "9007199254740993", "-0.1", "1.5e+300", "2451812700405.25"}) {
    AddRecord(*cursor, {{"n", number}});
    cursor->MoveLast();
    EXPECT_EQ(GetText(*cursor, "n"), number);
    cursor->Search("n = '" + std::string(number) + "'");
    EXPECT_EQ(Walk(*cursor, "n"), number);
    EXPECT_EQ(Failure([&] { AddRecord(*cursor, {{"n", number}}); }), Kind::kNotUnique);
    cursor->ClearSearch();
  }
}

TEST_P(Records, TakesOnlyWhatAFieldCanHold) {
  auto cursor = Open("kinds");
  for (auto const& [name, word] :
       {std::pair("b", kBoolean), std::pair("i", kInteger), std::pair("u", kUnsigned), std::pair("f", kFloat),
        std::pair("t", kText)}) {
    cursor->AddField(name, word);
  }
  AddRecord(*cursor, {{"b", Integer(1)}, {"i", Integer(-7)}, {"u", Integer(7)}, {"f", 0.5}, {"t", "x"}});
  struct Row {
    char const* field;
    PLXRecordValue value;
    char const* kept;  // null: refused
  } const rows[] = {
      {"i", "2451812700405", "2451812700405"},
      {"i", "-12.000", "-12"},
      {"i", 4.0, "4"},
      {"i", "9223372036854775808", nullptr},
      {"i", 1e19, nullptr},
      {"i", "twelve", nullptr},
      {"i", "", ""},
      {"u", Integer(-1), nullptr},
      {"u", "4294967296", "4294967296"},
      {"b", Integer(2), nullptr},
      {"b", "0", "0"},
      {"f", "1e3", "1000"},
      {"f", "nan", nullptr},
      {"f", std::nan(""), nullptr},
      {"f", " .5", "0.5"},
      {"f", Integer(3), "3"},
      {"t", Integer(-3), "-3"},
      {"t", std::string_view("a\0b", 3), nullptr},
      {"PLXIDFIELD", Integer(9), nullptr},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(std::string(row.field) + " " + std::to_string(&row - rows));
    std::string const before = GetText(*cursor, row.field);
    if (row.kept == nullptr) {
      EXPECT_EQ(Failure([&] { cursor->Set(row.field, row.value); }), Kind::kValue);
      EXPECT_EQ(GetText(*cursor, row.field), before);
      continue;
    }
    cursor->Set(row.field, row.value);
    EXPECT_EQ(GetText(*cursor, row.field), row.kept) << "before it is saved";
    cursor->Update();
    EXPECT_EQ(GetText(*cursor, row.field), row.kept) << "saved";
  }
}

TEST_P(Records, KeepsSixtyFourMegabytes) {
  std::string text(64u << 20, 'x');
  for (std::size_t index = 0; index < text.size(); index += 997)
    text[index] = static_cast<char>(index % 255 + 1);
  auto cursor = Open("large");
  cursor->AddField("l", kLongText);
  AddRecord(*cursor, {{"l", text}});
  EXPECT_TRUE(cursor->Get("l") == PLXSQLValue(text));
}

TEST_P(Records, GivesIdentifiersOnce) {
  auto cursor = Open("ids");
  AddRecord(*cursor, {});
  AddRecord(*cursor, {});
  std::string const second = GetText(*cursor, "PLXIDFIELD");
  cursor->Delete(std::stoll(second));
  EXPECT_EQ(Failure([&] { cursor->Delete(std::stoll(second)); }), Kind::kNotFound);
  AddRecord(*cursor, {});
  EXPECT_GT(std::stoll(GetText(*cursor, "PLXIDFIELD")), std::stoll(second));
  cursor->DeleteAll();
  EXPECT_EQ(cursor->RecordCount(), 0u);
  AddRecord(*cursor, {});
  EXPECT_GT(std::stoll(GetText(*cursor, "PLXIDFIELD")), std::stoll(second) + 1);
}

// ---- Uniqueness

TEST_P(Records, TakesNoUniqueValueTwice) {
  auto cursor = Open("unique");
  cursor->AddField("UIDL", kText | 70 | kUnique);
  cursor->AddField("n", kInteger | kUnique);
  cursor->AddField("t", kText);
  std::string const longText(100000, 'u');
  for (std::string const& text :
       {std::string("a"), std::string("A"), std::string("a "), std::string(), longText, longText + "1",
        longText.substr(0, 256), longText.substr(0, 257), std::string("\xE9")}) {
    AddRecord(*cursor, {{"UIDL", text}, {"t", "first"}});
    std::string sentence;
    EXPECT_EQ(Failure(
                  [&] {
                    AddRecord(*cursor, {{"UIDL", text}, {"t", "second"}});
                  },
                  &sentence),
              Kind::kNotUnique);
    EXPECT_THAT(sentence, testing::HasSubstr("UIDL"));
    cursor->Search("UIDL = '" + text + "'");
    EXPECT_EQ(Walk(*cursor, "t"), text.empty() ? Walk(*cursor, "t") : "first");
    cursor->ClearSearch();
  }
  std::uint64_t const count = cursor->RecordCount();
  EXPECT_EQ(count, 9u);
  AddRecord(*cursor, {{"t", "unset"}});
  AddRecord(*cursor, {{"t", "unset too"}});
  AddRecord(*cursor, {{"n", Integer(5)}});
  cursor->NewRecord();
  cursor->Set("n", Integer(5));
  EXPECT_EQ(Failure([&] { cursor->Add(); }), Kind::kNotUnique);
  cursor->Set("n", Integer(6));
  cursor->Add();
  cursor->Set("n", Integer(5));
  EXPECT_EQ(Failure([&] { cursor->Update(); }), Kind::kNotUnique);
  cursor->MoveLast();
  EXPECT_EQ(GetText(*cursor, "n"), "6") << "what was not saved is gone";
  EXPECT_EQ(cursor->RecordCount(), count + 4);
}

// ---- Searching

TEST_P(Records, FindsWhatAnExpressionDescribes) {
  auto cursor = Open("people");
  cursor->AddField("Name", kText | 50 | kIndexed);
  cursor->AddField("Last seen", kInteger);
  cursor->AddField("Weight", kFloat);
  cursor->AddField("Is member", kBoolean);
  cursor->AddField("k", kText);
  auto const add = [&](char const* key_i, char const* name_i, PLXRecordValue seen_i, double weight_i) {
    AddRecord(*cursor, {{"k", key_i}, {"Name", name_i}, {"Last seen", seen_i}, {"Weight", weight_i}});
  };
  add("a", "O'Brien", Integer(10), 1.5);
  cursor->Set("Is member", Integer(1));
  cursor->Update();
  add("b", "anna", Integer(-3), -0.1);
  cursor->Set("Is member", Integer(0));
  cursor->Update();
  add("c", "Anna", "9007199254740993", 0.30000000000000004);
  AddRecord(*cursor, {{"k", "d"}});
  struct Row {
    char const* expression;
    char const* found;
  } const rows[] = {{"", "a b c d"},
                    {"Name='O''Brien'", "a"},
                    {"NAME <> 'Anna'", "a b d"},
                    {"Name = ''", "d"},
                    {"Name > 'Anna'", "a b"},
                    {"Last seen >= '-3' and Last Seen<'11'", "a b d"},
                    {"Last seen = '9007199254740993'", "c"},
                    {"Last seen = '9007199254740992'", ""},
                    {"Last seen > '9.5'", "a c"},
                    {"Last seen < 10.5 OR Last seen = '2.5'", "a b d"},
                    {"Last seen = '0'", "d"},
                    {"Weight='0.30000000000000004'", "c"},
                    {"Weight < 0.3", "b d"},
                    {"Is member = '1'", "a"},
                    {"Is member <> '1' ORDER BY Name DESC", "b c d"},
                    {"Is member = '0' AND Name = 'x' OR k = 'a'", "a"},
                    {"ORDER BY Name", "d c a b"},
                    {"order  by last seen desc", "c a d b"},
                    {"ORDER BY Weight ASC", "b d c a"},
                    {"PLXIDFIELD > '1' ORDER BY PLXIDFIELD DESC", "d c b"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.expression);
    cursor->Search(row.expression);
    EXPECT_EQ(Walk(*cursor, "k"), row.found);
  }
  struct Bad {
    char const* expression;
    char const* part;
  } const bad[] = {{"Name='O'Brien'", "character 9"},   {"none='x'", "none"},
                   {"k='a' ORDER BY none", "none"},     {"Last seen='soon'", "soon"},
                   {"Name='1'; DROP TABLE x --'", "9"}, {"ORDER BY k = 'a'", "ORDER BY k"}};
  for (Bad const& row : bad) {
    SCOPED_TRACE(row.expression);
    std::string sentence;
    EXPECT_EQ(Failure([&] { cursor->Search(row.expression); }, &sentence), Kind::kSearch);
    EXPECT_THAT(sentence, testing::HasSubstr(row.part));
    EXPECT_EQ(cursor->ResultCount(), 0u);
    EXPECT_EQ(Failure([&] { cursor->MoveFirst(); }), Kind::kEnd);
  }
  EXPECT_EQ(cursor->RecordCount(), 4u);
}

// ---- Moving

TEST_P(Records, MovesInWhatItFound) {
  auto cursor = Open("moves");
  cursor->AddField("k", kText);
  cursor->AddField("g", kInteger);
  for (char const* const key : {"a", "b", "c", "d", "e", "f"}) {
    AddRecord(*cursor, {{"k", key}, {"g", Integer(key[0] == 'c' ? 0 : 1)}});
  }
  for (bool const isSearched : {false, true}) {
    SCOPED_TRACE(isSearched);
    if (isSearched) cursor->Search("g = '1' ORDER BY k DESC");
    if (!isSearched) cursor->ClearSearch();
    std::string const order = isSearched ? "fedba" : "abcdef";
    auto const at = [&](std::int64_t index) { return order.substr(static_cast<std::size_t>(index), 1); };
    auto const last = static_cast<std::int64_t>(order.size()) - 1;
    EXPECT_EQ(cursor->ResultCount(), order.size());
    EXPECT_EQ(GetText(*cursor, "k"), at(0)) << "stands on the first";
    EXPECT_EQ(Failure([&] { cursor->MovePrevious(); }), Kind::kEnd);
    cursor->MoveNext();
    EXPECT_EQ(GetText(*cursor, "k"), at(1));
    cursor->Jump(3);
    EXPECT_EQ(GetText(*cursor, "k"), at(4));
    for (std::int64_t const beyond :
         {std::int64_t{10}, std::int64_t{-5}, std::int64_t{std::numeric_limits<std::int32_t>::max()},
          std::int64_t{std::numeric_limits<std::int32_t>::min()}}) {
      EXPECT_EQ(Failure([&] { cursor->Jump(beyond); }), Kind::kEnd);
      EXPECT_EQ(GetText(*cursor, "k"), at(4)) << "stays";
    }
    cursor->Jump(-4);
    EXPECT_EQ(GetText(*cursor, "k"), at(0));
    cursor->MoveLast();
    cursor->Jump(0);
    EXPECT_EQ(GetText(*cursor, "k"), at(last));
    EXPECT_EQ(Failure([&] { cursor->MoveNext(); }), Kind::kEnd);
    EXPECT_EQ(GetText(*cursor, "k"), at(last));
    cursor->MoveTo(2);
    EXPECT_EQ(GetText(*cursor, "k"), "b");
    cursor->MoveNext();
    EXPECT_EQ(GetText(*cursor, "k"), isSearched ? "a" : "c");
    EXPECT_EQ(Failure([&] { cursor->MoveTo(77); }), Kind::kNotFound);
    EXPECT_EQ(GetText(*cursor, "k"), isSearched ? "a" : "c");
  }
  // Another connection deletes under it; what it searched for afterwards does not change what was found.
  auto other = Open("moves");
  cursor->Search("ORDER BY k");
  cursor->MoveNext();
  for (std::int64_t const gone : {2, 3, 6}) other->Delete(gone);
  AddRecord(*other, {{"k", "z"}});
  EXPECT_EQ(GetText(*cursor, "k"), "b") << "read when it became current";
  cursor->Set("k", "B");
  EXPECT_EQ(Failure([&] { cursor->Update(); }), Kind::kNotFound);
  EXPECT_EQ(cursor->ResultCount(), 6u);
  EXPECT_EQ(Walk(*cursor, "k"), "a d e");
  cursor->MoveFirst();
  cursor->MoveNext();
  EXPECT_EQ(GetText(*cursor, "k"), "d");
  cursor->Delete(4);
  EXPECT_EQ(Failure([&] { cursor->Get("k"); }), Kind::kEnd);
  cursor->MovePrevious();
  EXPECT_EQ(GetText(*cursor, "k"), "a");
  cursor->ClearSearch();
  EXPECT_EQ(Walk(*cursor, "k"), "a e z");
}

TEST_P(Records, DropsWhatWasNotSaved) {
  auto cursor = Open("drafts");
  cursor->AddField("k", kText);
  EXPECT_EQ(Failure([&] { cursor->Set("k", "x"); }), Kind::kEnd) << "no record";
  EXPECT_EQ(Failure([&] { cursor->Add(); }), Kind::kEnd);
  EXPECT_EQ(Failure([&] { cursor->Update(); }), Kind::kEnd);
  AddRecord(*cursor, {{"k", "a"}});
  AddRecord(*cursor, {{"k", "b"}});
  cursor->Set("k", "changed");
  cursor->MovePrevious();
  cursor->MoveNext();
  EXPECT_EQ(GetText(*cursor, "k"), "b");
  cursor->NewRecord();
  EXPECT_EQ(GetText(*cursor, "k"), "");
  cursor->Set("k", "new");
  EXPECT_EQ(Failure([&] { cursor->Update(); }), Kind::kEnd);
  cursor->MoveFirst();
  EXPECT_EQ(Failure([&] { cursor->Add(); }), Kind::kEnd);
  EXPECT_EQ(Walk(*cursor, "k"), "a b");
}

// ---- Access

TEST_P(Records, LetsOneAloneOrManyTogether) {
  auto const second = NewServer();
  int ownerA = 0, ownerB = 0;
  for (PLXRecordEngine* const other : {myEngine.get(), second.get()}) {
    SCOPED_TRACE(other == myEngine.get() ? "one server" : "two servers");
    {
      auto shared = Open(*myEngine, "x", PLXRecordAccess::kShared, &ownerA);
      Open(*other, "X", PLXRecordAccess::kShared, &ownerA);
      Open(*other, "x", PLXRecordAccess::kShared, &ownerB);
      Open(*other, "y", PLXRecordAccess::kExclusive, &ownerB);
      if (other == myEngine.get()) {
        EXPECT_EQ(Failure([&] { Open(*other, "x", PLXRecordAccess::kExclusive, &ownerA); }), Kind::kInUse)
            << "at once";
      }
    }
    auto alone = Open(*myEngine, "x", PLXRecordAccess::kExclusive, &ownerA);
    std::atomic<bool> isClosed = false;
    std::thread waiting([&] {
      auto later = Open(*other, "x", PLXRecordAccess::kShared, &ownerB);
      EXPECT_TRUE(isClosed);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    isClosed = true;
    alone.reset();
    waiting.join();
  }
}

TEST_P(Records, BuildsOneDatabaseHoweverManyBegin) {
  std::vector<std::unique_ptr<PLXRecordEngine>> servers;
  for (int index = 0; index < 4; ++index) servers.push_back(NewServer());
  for (std::string const& name : {std::string("one"), std::string("two")}) {
    std::vector<std::thread> threads;
    for (auto const& server : servers) {
      threads.emplace_back([&server, &name] {
        int owner = 0;
        try {
          auto cursor = Open(*server, name, PLXRecordAccess::kExclusive, &owner);
          if (cursor->Fields().empty()) {
            cursor->AddField("a", kText | kUnique);
            cursor->AddField("b", kLongText);
          }
          cursor.reset();
          cursor = Open(*server, name, PLXRecordAccess::kShared, &owner);
          EXPECT_GE(cursor->Fields().size(), 2u);
          try {
            cursor->AddField("c", kText);  // many at once: one adds it
          } catch (PLXRecordError const& error) {
            EXPECT_EQ(error.GetKind(), Kind::kExists) << error.what();
          }
          AddRecord(*cursor, {{"b", "x"}});
        } catch (PLXRecordError const& error) {
          ADD_FAILURE() << error.what();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    auto cursor = Open(name);
    EXPECT_EQ(cursor->Fields().size(), 3u);
    EXPECT_EQ(cursor->RecordCount(), 4u);
  }
  EXPECT_EQ(myEngine->Store()->Names().size(), 2u);
}

// ---- Exchange

TEST_P(Records, LosesNothingThroughAFile) {
  auto from = Open("from");
  auto to = Open("to");
  for (PLXRecordCursor* const cursor : {from.get(), to.get()}) {
    cursor->AddField("a, \"b\"", kText | kUnique);
    cursor->AddField("n", kInteger);
    cursor->AddField("f", kFloat);
    cursor->AddField("l", kLongText);
  }
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  AddRecord(
      *from,
      {{"a, \"b\"", "x;y\tz,"}, {"n", std::numeric_limits<std::int64_t>::min()}, {"f", 0.1}, {"l", bytes}});
  AddRecord(*from, {});
  AddRecord(*from, {});
  for (int index = 0; index < 70; ++index) AddRecord(*from, {{"n", Integer(index)}, {"l", "\r\n\"\r\n"}});
  for (char const* const options : {"", "delimiter=tab", "delimiter=;", "delimiter=|"}) {
    SCOPED_TRACE(options);
    to->DeleteAll();
    from->ClearSearch();
    EXPECT_EQ(from->Export(myFolder / "file.csv", options), 73u);
    EXPECT_EQ(to->Import(myFolder / "file.csv"), 73u);
    to->ClearSearch();
    for (char const* const field : {"a, \"b\"", "n", "f", "l"})
      EXPECT_EQ(Walk(*to, field), Walk(*from, field));
  }
  from->Search("n > '66' ORDER BY n DESC");
  EXPECT_EQ(from->Export(myFolder / "file.csv", ""), 3u);
  EXPECT_THAT(myFolder.Read("file.csv"),
              testing::StartsWith("PLXIDFIELD,\"a, \"\"b\"\"\",n,f,l\r\n73,,69,,\"\r\n\"\"\r\n\"\r\n72,"));

  std::string sentence;
  std::string const before = myFolder.Read("file.csv");
  EXPECT_EQ(Failure([&] { from->Export(myFolder / "file.csv", "tab"); }), Kind::kValue);
  EXPECT_EQ(Failure([&] { from->Export(myFolder / "none/file.csv", ""); }), Kind::kFile);
  EXPECT_EQ(Failure([&] { from->Export(myFolder.Path(), ""); }), Kind::kFile);
  EXPECT_EQ(myFolder.Read("file.csv"), before);
  struct Row {
    char const* why;
    Kind kind;
    char const* text;
    char const* part;
  } const bad[] = {{"no header", Kind::kFile, "", "header"},
                   {"no such field", Kind::kNotFound, "n,none\r\n1,2\r\n", "none"},
                   {"no number", Kind::kValue, "n\n1\n\nx\n", "line 4"},
                   {"too many values", Kind::kFile, "n;f\n1;2\n1;2;3\n", "line 3"},
                   {"not closed", Kind::kFile, "l\n\"a\nb", "line 2"},
                   {"there already", Kind::kNotUnique, "n,\"a, \"\"b\"\"\"\n1,q\n1,q\n", "line 3"}};
  std::uint64_t const count = to->RecordCount();
  for (Row const& row : bad) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Failure([&] { to->Import(myFolder.Write("bad.csv", row.text)); }, &sentence), row.kind);
    EXPECT_THAT(sentence, testing::HasSubstr(row.part));
    EXPECT_EQ(to->RecordCount(), count) << "all or none";
  }
  EXPECT_EQ(Failure([&] { to->Import(myFolder / "missing.csv"); }), Kind::kFile);
  EXPECT_EQ(Failure([&] { to->Import(myFolder.Path()); }), Kind::kFile);
}

// ---- Errors

TEST_P(Records, SaysWhenASourceCannotBeReached) {
  for (char const* const source :
       {"no-such-source", "Driver=none.so", "Driver=psqlodbcw.so;Servername=127.0.0.1;Port=1;Database=x"}) {
    SCOPED_TRACE(source);
    std::string sentence;
    EXPECT_EQ(Failure([&] { myEngine->Store(source, "me", "s3cret"); }, &sentence), Kind::kNotReachable);
    EXPECT_THAT(sentence, testing::Not(testing::HasSubstr("s3cret")));
  }
}

TEST_P(Records, GoesOnAfterTheEngineWasRestarted) {
  if (!IsPostgreSQL()) GTEST_SKIP() << "it lives in this process";
  auto cursor = Open("x");
  cursor->AddField("k", kText);
  AddRecord(*cursor, {{"k", "a"}});
  PLXODBC killer(TestPostgreSQL::Source(), TestPostgreSQL::kUser, TestPostgreSQL::kPassword);
  auto const kill = [&killer] {
    killer.Run(
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE pid <> pg_backend_pid() AND usename = "
        "'test'");
  };
  kill();
  EXPECT_EQ(Walk(*cursor, "k"), "a") << "a read is repeated";
  kill();
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  AddRecord(*cursor, {{"k", "b"}});
  kill();
  int owner = 0;
  auto const second = NewServer();
  Open(*second, "y", PLXRecordAccess::kExclusive, &owner);
  Open(*myEngine, "y", PLXRecordAccess::kExclusive, &owner);
  EXPECT_EQ(Walk(*cursor, "k"), "a b");
}
