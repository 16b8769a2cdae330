#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "MIMEForms.h"
#include "PLXCryptor.h"
#include "TemporaryFolder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// A multipart with the boundary "B" of parts that are written with their headers.
std::string Multipart(std::vector<std::string> const& parts_i, std::string const& boundary_i = "B") {
  std::string message;
  for (std::string const& part : parts_i) message += "--" + boundary_i + "\r\n" + part + "\r\n";
  return message + "--" + boundary_i + "--\r\n";
}

std::string Attachment(std::string const& filename_i, std::string const& content_i,
                       std::string const& encoding_i = "7bit", std::string const& name_i = "") {
  return "Content-Type: application/octet-stream; name=\"" + name_i +
         "\"\r\nContent-Transfer-Encoding: " + encoding_i +
         "\r\nContent-Disposition: attachment; filename=\"" + filename_i + "\"\r\n\r\n" + content_i;
}

std::string Nested(int depth_i, std::string const& core_i) {
  std::string part;
  for (int level = 1; level <= depth_i; ++level) {
    std::string const boundary = "b" + std::to_string(level) + ".";
    part += "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary + "\r\n";
  }
  part += core_i;
  for (int level = depth_i; level > 0; --level) part += "\r\n--b" + std::to_string(level) + ".--";
  return Multipart({part});
}

std::string RandomText(std::size_t size_i, char const* characters_i) {
  std::mt19937 random(5);
  std::size_t const count = std::char_traits<char>::length(characters_i);
  std::string text;
  while (text.size() < size_i) text += characters_i[random() % count];
  return text;
}

class MIMEParser : public testing::Test {
 protected:
  MIMERules Rules(std::string const& patterns_i = ".*", PLXUInt32 maximumSize_i = 0) const {
    return {myFolder / "files", patterns_i, maximumSize_i};
  }
  // With everything stored in an empty folder, and the same by the form that reads a stream.
  MIMEOutcome Parse(std::string const& message_i, std::string* body_o = nullptr) const {
    return Parse(message_i, Rules(), body_o);
  }
  MIMEOutcome Parse(std::string const& message_i, MIMERules rules_i, std::string* body_o = nullptr) const {
    std::filesystem::remove_all(myFolder / "files");
    MIMEOutcome const outcome = ParseMultipart(message_i, "B", rules_i, body_o);
    std::filesystem::remove_all(myFolder / "files");
    EXPECT_EQ(ParseMultipartStream({message_i}, "B", rules_i), outcome);
    return outcome;
  }

  TemporaryFolder myFolder;
};

// ---- Parts ----

TEST_F(MIMEParser, TakesEachKindOfPart) {
  std::string const split = "Content-Type: Multipart/Mixed; boundary=\"in\"; name=m\r\n\r\n";
  struct Row {
    char const* why;
    std::string part;
    char const* outcome;
  };
  Row const rows[] = {
      {"a field", "Content-Disposition: form-data; name=\"a b\"\r\n\r\nx\r\ny", "false a b=x\r\ny"},
      {"an upload is not decoded",
       "Content-Disposition: form-data; name=f; filename=t\r\nContent-Transfer-Encoding: base64\r\n\r\nQUJD",
       "true f=t <t>QUJD"},
      {"nor is quoted-printable", Attachment("t", "=41\r\n", "quoted-printable", "n"), "true n=t <t>=41\r\n"},
      {"Base64 ends with its part", Attachment("t", "QUJD\r\nREVG\r\n", "BASE64"), "true =t <t>ABCDEF"},
      {"an empty attachment", Attachment("t", "", "base64"), "true =t <t>"},
      {"capitals, a folded line", "CONTENT-DISPOSITION: ATTACHMENT;\r\n\tFILENAME=t\r\n\r\nx",
       "true =t <t>x"},
      {"the last of two counts", "Content-Disposition: inline\r\nName=x; name=\"y\"\r\n\r\nz", "true y=z"},
      {"a colon for an equals sign", "Content-Disposition: form-data; name: x\r\n\r\nz", "false"},
      {"no name", "Content-Type: text/plain\r\n\r\nz", "false"},
      {"an attachment without a name", Attachment("", "x"), "false"},
      {"an attachment with only a path", Attachment("c:\\", "x"), "false"},
      {"a multipart is its parts", split + Multipart({Attachment("t", "x")}, "in"), "true =t <t>x"},
      {"a text if it cannot be split", split + "--in\r\n\r\nx", "true m=--in\r\n\r\nx"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    MIMEOutcome const outcome = Parse("preamble\r\n" + Multipart({row.part}) + "epilogue");
    EXPECT_EQ(Shown(outcome), row.outcome);
    // Between two others it does the same, and no harm to them.
    MIMEOutcome const three = Parse(Multipart({Attachment("0", "0"), row.part, Attachment("1", "1")}));
    EXPECT_EQ(three.files.size(), outcome.files.size() + 2);
    EXPECT_EQ(three.entries.size(), outcome.entries.size() + 2);
  }
  EXPECT_EQ(Shown(Parse(Multipart({rows[2].part}), MIMERules())), "false");
  MIMERules withoutList = Rules();
  withoutList.wantsResults = false;
  EXPECT_EQ(Shown(Parse(Multipart({rows[1].part, rows[2].part}), withoutList)), "true <t>=41\r\n");
}

TEST_F(MIMEParser, ReturnsTheBody) {
  std::string const text = "Content-Type: text/plain\r\n\r\nHello";
  std::string const unfinished = "--B\r\n" + text;
  std::string const inner = Multipart({"\r\nplain", "\r\nrich"}, "in");
  struct Row {
    char const* why;
    std::string message;
    bool result;
    std::string body;
  };
  Row const rows[] = {
      {"the text and not the attachment", Multipart({text, Attachment("t", "x")}), true, "Hello"},
      {"the last text", Multipart({"\r\nfirst", text}), false, "Hello"},
      {"attachments only", Multipart({Attachment("t", "x")}), true, ""},
      {"no delimiter: as received", "Hello\r\n\r\n", false, "Hello\r\n\r\n"},
      {"no closing delimiter: as received", unfinished, false, unfinished},
      {"no part: as received", "Hello--B--", true, "Hello--B--"},
      {"an inner multipart as it stands",
       Multipart({"Content-Type: multipart/alternative; boundary=in\r\n\r\n" + inner}), false, inner},
      {"no headers, and blank lines in the text", Multipart({"\r\na\r\n\r\nb"}), false, "a\r\n\r\nb"},
      {"nothing behind the blank line", "--B\r\nx: y\r\n\r\n--B--", false, ""},
      {"no line end before the delimiter", "--B\r\nx: y\r\n\r\nab--B--", false, "ab"},
      {"what follows a part without a blank line is passed over",
       Multipart({text, "Subject: x", Attachment("t", "x")}), false, "Hello"},
      {"up to the last closing delimiter", Multipart({text}) + "\r\n" + Multipart({"\r\nsecond"}), false,
       "second"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string body;
    EXPECT_EQ(Parse(row.message, &body).result, row.result);
    EXPECT_EQ(body, row.body);
    // In the place of the message.
    PLXString message = Plx(row.message);
    PLXStringUtility::ParseMultipartMessage_ReturnBody(message, "B", 0, kPLXWholeLength, "", {}, 0, nullptr,
                                                       message);
    EXPECT_EQ(Std(message), row.body);
  }
  // Without a boundary nothing is split.
  std::string body;
  EXPECT_FALSE(ParseMultipart("a--b----", "", Rules(), &body).result);
  EXPECT_EQ(body, "a--b----");
}

TEST_F(MIMEParser, TakesOnePart) {
  PLXString const message("0123456789");
  PLXStringUtility::MessagePartList list;
  PLXString body("kept");
  auto const parse = [&](char const* headers_i, PLXUInt32 start_i, PLXUInt32 length_i) {
    return PLXStringUtility::ParseMessagePart_ReturnBody(message, headers_i, start_i, length_i, "", {}, 0,
                                                         &list, body);
  };
  EXPECT_FALSE(parse("Content-Disposition: form-data; name=a", 2, 3));
  EXPECT_EQ(Std(body), "kept");
  EXPECT_TRUE(parse("name=b", 8, 5));
  EXPECT_EQ(Std(body), "89");
  EXPECT_TRUE(parse("name=c", 11, 5));
  EXPECT_EQ(Std(body), "");
  EXPECT_TRUE(PLXStringUtility::ParseMessagePart(message, "name=d", 9, kPLXWholeLength, "", {}, 0, &list));
  EXPECT_THAT(Entries(list), ElementsAre(Pair("a", "234"), Pair("b", "89"), Pair("c", ""), Pair("d", "9")));
  EXPECT_TRUE(list.GetNameArray()[0] == PLXStringID("A", PLXStringID::kIgnoreCase));
}

// ---- Files ----

TEST_F(MIMEParser, GivesEveryFileAHarmlessName) {
  struct Row {
    std::string asked;
    std::string saved;
  };
  std::string const longName(300, 'n');
  Row const rows[] = {{"evil.html", "evil.html"},
                      {"../../x", "x"},
                      {"C:\\mail\\report.txt", "report.txt"},
                      {"a\\b/c:d", "d"},
                      {"..", "_."},
                      {".htaccess", "_htaccess"},
                      {std::string("a\0\n\x7F\x1F.txt", 9), "a____.txt"},
                      {longName + ".jpeg", longName.substr(0, 240) + ".jpeg"},
                      {longName, longName.substr(0, 245)},
                      {"x." + longName, "x." + longName.substr(0, 243)}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.asked);
    std::string const content = row.saved + " content";
    MIMEOutcome const outcome = Parse(Multipart({Attachment(row.asked, content), Attachment("after", "")}));
    EXPECT_THAT(outcome.files, testing::UnorderedElementsAre(Pair(row.saved, content), Pair("after", "")));
    bool const isKept = row.asked.substr(row.asked.find_last_of("\\/:") + 1) == row.saved;
    EXPECT_EQ(outcome.entries.size(), isKept ? 2u : 3u);
  }
  EXPECT_THAT(Files(myFolder.Path()), ElementsAre(Pair("files", "a folder")));
}

TEST_F(MIMEParser, NumbersNamesThatAreTaken) {
  myFolder.Write("files/a.txt", "old");
  myFolder.Write("files/a2.txt", "old");
  myFolder.MakeFolder("files/b");
  std::string const longest(245, 'c');
  std::vector<std::string> parts;
  for (auto const& name : {std::string("a.txt"), std::string("a.txt"), std::string("b"), longest, longest}) {
    parts.push_back(Attachment(name, "new", "7bit", "N"));
  }
  EXPECT_EQ(Shown(ParseMultipart(Multipart(parts), "B", Rules())),
            "true N=a1.txt N_Original=a.txt N=a3.txt N_Original=a.txt N=b1 N_Original=b N=" + longest +
                " N=" + longest + "1 N_Original=" + longest +
                " <a.txt>old <a1.txt>new <a2.txt>old <a3.txt>new <b>a folder <b1>new <" + longest + ">new <" +
                longest + "1>new");
}

TEST_F(MIMEParser, StoresWhatPatternsAndSizeAllow) {
  std::string const kilobyte(1024, 'x');
  std::string const message = Multipart({Attachment("a.txt", kilobyte), Attachment("b.txt", kilobyte + "x"),
                                         Attachment("c.gif", "x"), Attachment("d.txt\ne.html", "x")});
  struct Row {
    char const* patterns;
    PLXUInt32 maximumSize;
    std::vector<std::string> names;
  };
  Row const rows[] = {{".*", 0, {"a.txt", "b.txt", "c.gif", "d.txt_e.html"}},
                      {".*", 1, {"a.txt", "c.gif", "d.txt_e.html"}},
                      {".*", 4194304, {"a.txt", "b.txt", "c.gif", "d.txt_e.html"}},
                      {"( gif$", 1, {"c.gif"}},
                      {"^b txt$", 0, {"a.txt", "b.txt"}},
                      {"", 0, {}}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.patterns);
    std::vector<std::string> names;
    for (auto const& file : Parse(message, Rules(row.patterns, row.maximumSize)).files)
      names.push_back(file.first);
    EXPECT_EQ(names, row.names);
  }
}

TEST_F(MIMEParser, WritesLongFilesAsShortOnes) {
  // Line ends anywhere, so that pieces end at every place of a group.
  std::string const text = RandomText(700001, "ABCDEFGH0123+/\r\n");
  PLXBufferStream stream(text.data(), static_cast<PLXUInt32>(text.size()));
  PLXBuffer decoded;
  PLXCryptor::Base64Decode(stream, decoded);
  MIMEOutcome const outcome =
      Parse(Multipart({Attachment("b", text + "\r", "base64"), Attachment("t", text, "8bit")}));
  EXPECT_TRUE(outcome.files.at("b") == Std(decoded));
  EXPECT_TRUE(outcome.files.at("t") == text);
}

TEST_F(MIMEParser, LeavesNothingOfAFileThatHasNoRoom) {
  // A limit on the length of files acts as a full disk does.
  signal(SIGXFSZ, SIG_IGN);
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit const limit{200000, before.rlim_max};
  std::string const message =
      Multipart({Attachment("a", std::string(300000, 'x')),
                 Attachment("a", std::string(300000, 'x'), "base64"), Attachment("a", "small")});
  setrlimit(RLIMIT_FSIZE, &limit);
  MIMEOutcome const outcome = ParseMultipart(message, "B", Rules());
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(Shown(outcome), "true =a <a>small");
  MIMERules blocked = Rules();
  blocked.folder /= "a";  // a file
  EXPECT_TRUE(ParseMultipart(message, "B", blocked).result);
}

// ---- Hostile messages ----

TEST_F(MIMEParser, SplitsToADepthOfAHundred) {
  std::string const core = Attachment("t", "x");
  EXPECT_THAT(Parse(Nested(99, core)).files, ElementsAre(Pair("t", "x")));
  EXPECT_THAT(Parse(Nested(100, core)).files, ElementsAre(Pair("t", "x")));
  EXPECT_THAT(Parse(Nested(101, core)).files, IsEmpty());
  // The one that is too deep is a text with a name, and so nothing of it is lost.
  std::string const named =
      "Content-Type: multipart/x; boundary=y; name=deep\r\n\r\n" + Multipart({core}, "y");
  EXPECT_THAT(Parse(Nested(100, named)).entries,
              ElementsAre(Pair("deep", Multipart({core}, "y").substr(0, 147))));
  std::string body;
  std::string const deepest = Nested(100000, core);
  EXPECT_THAT(ParseMultipart(deepest, "B", Rules(), &body).entries, IsEmpty());
  EXPECT_TRUE(deepest.ends_with(body + "\r\n--B--\r\n"));
}

TEST_F(MIMEParser, TakesAMillionPartsOrNone) {
  std::string message;
  for (int part = 0; part < 1000000; ++part) message += "--B\r\nname=x\r\n\r\n";
  EXPECT_FALSE(ParseMultipart(message, "B", Rules()).result);
  EXPECT_EQ(ParseMultipart(message + "--B--", "B", Rules()).entries.size(), 1000000u);
  EXPECT_FALSE(ParseMultipart(message, "C", Rules()).result);
  // Every place is nearly the delimiter.
  std::string const dashes(1000000, '-');
  EXPECT_FALSE(ParseMultipart(dashes, dashes.substr(0, 500000) + "x", Rules()).result);
  EXPECT_TRUE(ParseMultipart(dashes, "-", Rules()).result);
}

// ---- Streams ----

TEST_F(MIMEParser, ReadsAStreamNoFurtherThanItsRange) {
  std::string const text = RandomText(3000000, "abc\r\n");
  for (PLXUInt32 const length : {0u, 5u, 20000u, 1048576u, 1048577u, 2000000u, kPLXWholeLength}) {
    for (PLXUInt32 const start : {0u, 9000u, 2999999u, 3000001u}) {
      MessageSource source{text};
      PLXStringUtility::MessagePartList list;
      EXPECT_TRUE(PLXStringUtility::ParseMessagePartStream(MessageSource::Read, &source, "name=n", start,
                                                           length, "", {}, 0, &list));
      EXPECT_TRUE(Entries(list).at(0).second ==
                  text.substr(std::min<std::size_t>(start, text.size()), length));
      EXPECT_EQ(source.position, std::min(text.size(), std::size_t{start} + length));
    }
  }
}

}  // namespace

// A stream too long for memory, and no file to be had for it, or none that takes it all.
TEST(MIMEStream, ThatCannotBeCollectedHasNoResult) {
  std::string const message =
      "--B\r\nContent-Disposition: form-data; name=a\r\n\r\n" + std::string(3 << 20, 'x') + "\r\n--B--";
  ASSERT_TRUE(ParseMultipartStream({message}, "B", {}).entries.size() == 1);
  for (rlimit const& limit : {rlimit{0, 0}, rlimit{2 << 20, 2 << 20}}) {
    pid_t const child = fork();
    if (child == 0) {
      signal(SIGXFSZ, SIG_IGN);
      setrlimit(limit.rlim_cur == 0 ? RLIMIT_NOFILE : RLIMIT_FSIZE, &limit);
      MIMEOutcome const outcome = ParseMultipartStream({message}, "B", {});
      PLXStringUtility::MessagePartList list;
      MessageSource source{message};
      bool const isPart = PLXStringUtility::ParseMessagePartStream(MessageSource::Read, &source,
                                                                   "Content-Disposition: form-data; name=a",
                                                                   0, kPLXWholeLength, "", {}, 0, &list);
      _exit(outcome.result || isPart || !outcome.entries.empty() || !Entries(list).empty() ? 1 : 7);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 7);
  }
}
