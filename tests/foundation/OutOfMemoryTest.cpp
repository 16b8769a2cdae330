#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "MIMEForms.h"
#include "PLXCAST5.h"
#include "PLXCRC32.h"
#include "PLXCryptor.h"
#include "PLXEmailSendThread.h"
#include "PLXFileStream.h"
#include "PLXFolderSpecification.h"
#include "PLXHTTP.h"
#include "PLXHTTPAnswer.h"
#include "PLXIPAddress.h"
#include "PLXJulianDay.h"
#include "PLXPOP3.h"
#include "PLXRegExp.h"
#include "PLXTextFile.h"
#include "PLXTimestamp.h"
#include "ScriptedPeer.h"
#include "TemporaryFolder.h"

// Each piece of work is done in a process of its own with the first piece of memory refused, then with the
// second, and so on until none is. A refusal ends the process with the words that strings and buffers have
// for it, or throws and leaves everything so that the same work then succeeds; nothing is lost either way.

namespace {

// Zero refuses nothing; else the memory that is asked for as the so-manieth is refused, or all from there on.
long ourCountdown = 0;
bool ourMemoryStaysGone = false;
bool ourHasRefused = false;
long ourBlocks = 0;

void* TakeMemory(std::size_t size_i) noexcept {
  if (ourCountdown > 0 && --ourCountdown == 0) {
    ourHasRefused = true;
    if (ourMemoryStaysGone) ourCountdown = 1;
    return nullptr;
  }
  ++ourBlocks;
  return std::malloc(size_i == 0 ? 1 : size_i);
}

void GiveBack(void* address_i) noexcept {
  if (address_i == nullptr) return;
  --ourBlocks;
  std::free(address_i);
}

}  // namespace

void* operator new(std::size_t size_i) {
  void* const address = TakeMemory(size_i);
  if (address == nullptr) throw std::bad_alloc();
  return address;
}
void operator delete(void* address_i) noexcept { GiveBack(address_i); }
void operator delete(void* address_i, std::size_t) noexcept { GiveBack(address_i); }

namespace {

// While it lives nothing is refused: for what a test does besides its work.
class Plenty {
 public:
  Plenty() : myCountdown(std::exchange(ourCountdown, 0)) {}
  ~Plenty() { ourCountdown = myCountdown; }
  Plenty(Plenty const&) = delete;
  Plenty& operator=(Plenty const&) = delete;

 private:
  long const myCountdown;
};

// Tells whether everything came out right; may be called again, whether it did or threw.
using Work = std::function<bool()>;

constexpr int kDone = 10;         // nothing was refused
constexpr int kDoneWithout = 11;  // it was done without what was refused
constexpr int kRepaired = 12;     // threw, and then succeeded
constexpr int kWrong = 13;
constexpr int kWrongAfterwards = 14;
constexpr int kForgotten = 15;  // memory that nobody gave back

int DoRefusing(std::function<Work()> const& prepare_i, long which_i, bool staysGone_i) {
  int outcome = kDone;
  long const before = ourBlocks;
  {
    Work work = prepare_i();
    ourCountdown = which_i;
    ourMemoryStaysGone = staysGone_i;
    bool isRight = false;
    bool hasThrown = false;
    try {
      isRight = work();
    } catch (std::bad_alloc const&) {
      hasThrown = true;
    } catch (PLXObject::MemoryAllocationFailure const&) {
      hasThrown = true;
    }
    ourCountdown = 0;
    if (hasThrown) {
      outcome = work() ? kRepaired : kWrongAfterwards;
    } else if (ourHasRefused) {
      outcome = isRight || work() ? kDoneWithout : kWrongAfterwards;
    } else if (!isRight) {
      outcome = kWrong;
    }
  }
  return outcome <= kRepaired && ourBlocks != before ? kForgotten : outcome;
}

struct Ending {
  int outcome = 0;
  std::string said;  // of the process that aborted
};

Ending DoInProcess(std::function<Work()> const& prepare_i, long which_i, bool staysGone_i) {
  int channel[2];
  if (pipe(channel) != 0) return {};
  pid_t const child = fork();
  if (child == 0) {
    dup2(channel[1], STDERR_FILENO);
    close(channel[0]);
    close(channel[1]);
    PLXObject::SetMemoryFunctions(&TakeMemory, &GiveBack);
    signal(SIGABRT, SIG_DFL);
    _exit(DoRefusing(prepare_i, which_i, staysGone_i));
  }
  close(channel[1]);
  Ending ending;
  char piece[512];
  for (ssize_t size; (size = read(channel[0], piece, sizeof piece)) > 0;)
    ending.said.append(piece, static_cast<std::size_t>(size));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  ending.outcome = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return ending;
}

void Refuse(char const* name_i, std::function<Work()> const& prepare_i) {
  std::set<std::string> const kLastWords = {
      "\tFILE: \"src/PLXString.cpp\"\nNULL POINTER ASSERTION: newStringRepresentation\n",
      "\tFILE: \"src/PLXBuffer.cpp\"\nNULL POINTER ASSERTION: newBufferData\n"};
  for (bool const staysGone : {false, true}) {
    for (long which = 1;; ++which) {
      Ending const ending = DoInProcess(prepare_i, which, staysGone);
      if (ending.outcome == kDone) break;
      bool const isAsPromised = ending.outcome == -SIGABRT
                                    ? kLastWords.count(ending.said) > 0
                                    : ending.outcome == kDoneWithout || ending.outcome == kRepaired;
      ASSERT_TRUE(isAsPromised) << name_i << ", memory " << which << (staysGone ? " and all after it" : "")
                                << ": outcome " << ending.outcome << "\n"
                                << ending.said;
      ASSERT_LT(which, 5000) << name_i;
    }
  }
}

PLXString const kLong('x', 100);

template <typename T>
std::function<Work()> On(T const& initial_i, bool (*work_i)(T&)) {
  return [=]() -> Work {
    auto const value = std::make_shared<T>(initial_i);
    return [=] { return work_i(*value); };
  };
}

std::function<Work()> Simply(bool (*work_i)()) {
  return [=]() -> Work { return work_i; };
}

}  // namespace

TEST(OutOfMemory, StringsAndContainers) {
  using Strings = TPLXArray<PLXString>;
  using Numbers = TPLXArray<unsigned>;
  using Pairs = TPLXNameValuePairList<PLXStringID, PLXString>;
  Strings strings;
  for (char const* text : {"a", "b"}) strings.Append(text);
  Numbers numbers;
  numbers.Append(1);
  Refuse("a string that is changed", On<PLXString>("abc", [](PLXString& text_io) {
           PLXString const copy(text_io);
           PLXString other(copy);
           other.Append(kLong).Prepend("more");
           other.Insert("inserted", 8, 3);
           other.ReplaceAll("x", "yy");
           other.ReserveToAppend(1000);
           other.Reverse();
           PLXString const part = other.GetSubstring(1, 50) + "end" + copy;
           return copy == "abc" && part.GetLength() == 56 && other.GetLength() == 215;
         }));
  Refuse("an array of strings", On<Strings>(strings, [](Strings& array_io) {
           bool const isAsBefore = array_io.GetElementCount() == 2 && array_io[1] == "b";
           Strings copy(array_io);
           copy.Insert(kLong, 1);
           Strings other;
           other.Append("old");
           other = copy;
           return isAsBefore && other.GetElementCount() == 3 && other[2] == "b";
         }));
  Refuse("an array that grows", On<Numbers>(numbers, [](Numbers& array_io) {
           PLXUInt32 const count = array_io.GetElementCount();
           array_io.Append(7);
           return count == 1 && array_io[0] == 1 && array_io[1] == 7;
         }));
  Refuse("a list of names and values", On<Pairs>(Pairs(), [](Pairs& list_io) {
           list_io.Add(PLXStringID("name", PLXStringID::kIgnoreCase), kLong);
           list_io.Add(PLXStringID("other", PLXStringID::kIgnoreCase), "value");
           PLXUInt32 const count = list_io.GetNameArray().GetElementCount();
           bool const isRight = list_io.GetValueArray()[count - 1] == "value";
           return isRight && count == list_io.GetValueArray().GetElementCount();
         }));
  Refuse("a text cut into tokens",
         On<PLXTokenizedString>(PLXTokenizedString("a,b,c", ","), [](PLXTokenizedString& tokens_io) {
           bool const isAsBefore = tokens_io.GetTokenCount() == 3 && tokens_io[2] == "c";
           tokens_io.Tokenize("1;2", ";");
           return isAsBefore && tokens_io.GetTokenCount() == 5 && tokens_io[4] == "2";
         }));
  Refuse("names", Simply([] {
           PLXTag const tag("plxNameThatIsLongerThanThirtyTwoCharacters");
           PLXIPAddress address;
           return tag == PLXTag("PLXNAMETHATISLONGERTHANTHIRTYTWOCHARACTERS") && address.Set("10.1.2.3") &&
                  address.GetText() == "10.1.2.3";
         }));
  Refuse("a buffer", On<PLXBuffer>(PLXBuffer(10), [](PLXBuffer& buffer_io) {
           PLXBuffer copy(buffer_io);
           copy.SetSize(100, PLXBuffer::kKeep);
           PLXBufferStream stream(copy.GetAddress(), copy.GetSize());
           return stream.GetRemainingBytes().GetLength() == 100;
         }));
}

TEST(OutOfMemory, EncodersAndNumbers) {
  Refuse("encoders", Simply([] {
           PLXString const text("<a href=\"x y\">\xE9\\\n</a>");
           PLXString const html = PLXStringUtility::GetHTMLEncodedString(text);
           PLXString const url = PLXStringUtility::GetURLEncodedString(text, true);
           PLXString const escaped = PLXStringUtility::GetEscapedString(text);
           PLXString const hex = PLXStringUtility::GetHexCodesFromString(text);
           PLXString matched;
           bool const isAllowed = PLXStringUtility::ValidateIP(
               "10.1.2.3", PLXTokenizedString("a:10.*.*.*,d:11.*.*.*", ","), &matched);
           PLXCRC32 sum;
           sum.Update(text.GetCStringAccess(), text.GetLength());
           return PLXStringUtility::GetHTMLDecodedString(html) == text && sum.GetValue() != 0 &&
                  PLXStringUtility::GetURLDecodedString(url) == text && isAllowed &&
                  PLXStringUtility::GetUnescapedString(escaped, true) == text &&
                  PLXStringUtility::GetStringFromHexCodes(hex) == text &&
                  PLXStringUtility::GetStringRepresentation(255, 16, 40).GetLength() == 40;
         }));
  Refuse("Base64, quoted-printable and the cipher", Simply([] {
           PLXStringStream stream(kLong);
           PLXString const encoded = PLXCryptor::Base64Encode(stream);
           PLXBuffer data;
           PLXStringStream back(encoded);
           PLXCryptor::Base64Decode(back, data);
           PLXString const quoted = PLXCryptor::QuotedPrintableEncode("\xFF " + kLong);
           PLXBuffer plain;
           PLXString const secret = PLXCryptor::CREncrypt(data, "key", 3);
           PLXCryptor::CRDecrypt(secret, plain, "key", 3);
           auto const cipher = std::make_unique<PLXCAST5>();
           return Std(plain) == Std(kLong) + std::string(4, 0) &&
                  PLXCryptor::QuotedPrintableDecode(quoted).GetLength() == 102;
         }));
  Refuse("decimals", Simply([] {
           PLXNumber const third = PLXNumber(50, 30, "1") / PLXNumber("3");
           PLXNumber sum = third * PLXNumber("3") + PLXNumber(0.5);
           sum -= PLXNumber("-12.25");
           return sum.GetStringRepresentation().GetLength() > 5 && third < PLXNumber(1);
         }));
  Refuse("dates", Simply([] {
           PLXTimestamp time("20020305140709");
           PLXTimestamp other;
           other.SetFromRFC1123(time.Get(PLXTimestamp::kFormatRFC1123, true, PLXNumber("5.5")), true);
           PLXJulianDay const day(2002, 3, 5, 14, 7, 9);
           return other.GetMonth() == 3 && other.GetStringRepresentation().GetLength() == 14 &&
                  day.GetDateTimeValue(kPLXJulianDay_LongDayName) == "Tuesday" &&
                  PLXJulianDay(day.GetRealValue()).GetValue() == day.GetValue();
         }));
  Refuse("a regular expression", []() -> Work {
    auto const expression = std::make_shared<PLXRegExp>();
    expression->Compile("old");
    return [expression] {
      // An expression that could not be compiled is the old one or none.
      bool const isConsistent = !expression->Execute("(", 0);
      bool const isCompiled = expression->Compile("^(\\w+)@([a-z.]{2,}|x)$") == 0;
      PLXRegExpMatch match;
      return isConsistent && isCompiled && expression->Execute("ada@test.org", 0, match) &&
             match.GetGroupCount() == 2;
    };
  });
}

namespace {

std::string const kMessage =
    "--B\r\nContent-Disposition: form-data; name=one\r\n\r\n1\r\n"
    "--B\r\nContent-Disposition: attachment; name=file; filename=f.txt\r\nContent-Transfer-Encoding: "
    "base64\r\n\r\n"
    "QUJD\r\n--B\r\n\r\nbody\r\n--B--";

std::filesystem::path PartsFolder() {
  static TemporaryFolder const folder;
  return folder / "parts";
}
PLXString Path() {
  Plenty const plenty;
  return PLXString(PartsFolder().c_str());
}
PLXTokenizedString Everything() { return {".*", ","}; }
void ForgetFiles() {
  Plenty const plenty;
  std::filesystem::remove_all(PartsFolder());
}
// One whole file, and nothing of those that were not finished.
bool HasFile() {
  Plenty const plenty;
  auto const files = Files(PartsFolder());
  return files.size() == 1 && files.count("f.txt") == 1 && files.at("f.txt") == "ABC";
}

}  // namespace

TEST(OutOfMemory, MessagesAndAnswers) {
  static_cast<void>(PartsFolder());
  Refuse("a message in parts", Simply([] {
           ForgetFiles();
           PLXStringUtility::MessagePartList list;
           PLXString body;
           PLXStringUtility::ParseMultipartMessage_ReturnBody(Plx(kMessage), "B", 0, kPLXWholeLength, Path(),
                                                              Everything(), 0, &list, body);
           return body == "body" && list.GetValueArray().GetElementCount() == 2 && HasFile();
         }));
  Refuse("a message that is read in blocks", Simply([] {
           ForgetFiles();
           PLXStringUtility::MessagePartList list;
           MessageSource source{kMessage, 0, 0, 20};
           PLXStringUtility::ParseMultipartMessageStream(MessageSource::Read, &source, "B", 0,
                                                         kPLXWholeLength, Path(), Everything(), 0, &list);
           return list.GetValueArray().GetElementCount() == 2 && HasFile();
         }));
  Refuse("an answer of a web server", Simply([] {
           PLXHTTPAnswer answer(true);
           answer.Append("HTTP/1.0 302 Found\r\nLocation: /elsewhere/and/further/than/that\r\n");
           answer.Append("Content-Length: 3\r\n\r\n");
           answer.Append("abc");
           PLXString url, headers, data;
           bool const isMoved = answer.IsComplete() && answer.FindLocation("host", url);
           answer.MoveTo(headers, data);
           return isMoved && url == "http://host/elsewhere/and/further/than/that" && data == "abc";
         }));
  Refuse("a message that goes out", Simply([] {
           class Message : public PLXEmailSendThread {
            public:
             using PLXEmailSendThread::BuildMessage;
             using PLXEmailSendThread::PLXEmailSendThread;
             using PLXEmailSendThread::PrepareMessageForOutput;
           };
           class Email : public PLXEmail {
            public:
             using PLXEmail::GetFields;
             using PLXEmail::PLXEmail;
           };
           Email email("", "");
           email.AddTo("nobody@test.org");
           email.AddCC("nobody@test.org");
           email.AddBCC("nobody@test.org");
           email.ClearTo();
           email.ClearCC();
           email.ClearBCC();
           email.SetMessage("none");
           email.ClearMessage();
           email.ClearAttachments();
           email.SetSubject("Hello");
           email.AddTo("ada@test.org");
           email.AddTo("bob@test.org");
           email.AppendContentHeader("Content-Type: text/plain");
           email.AppendMessage(".dots", PLXEmail::kLineEndAfter);
           PLXStringStream data("attached");
           email.AddAttachment(data, kAttachmentEncoding_Base64, "a.txt", -1);
           PLXString text = Message(email.GetFields()).BuildMessage();
           Message::PrepareMessageForOutput(text);
           return text.Contains("YXR0YWNoZWQ=") && text.Contains("\r\n..dots\r\n") &&
                  text.Contains("To: ada@test.org,bob@test.org\r\n");
         }));
}

TEST(OutOfMemory, Files) {
  static TemporaryFolder const folder;
  Refuse("a file", Simply([] {
           PLXFolderSpecification const at(Plx((folder / "files").string()));
           PLXFileSpecification const name(at, "file.txt");
           if (!PLXFile::WriteWhole(name, kLong, PLXFile::kReplaceExistingFile)) PLXFile(name).Create();
           if (!PLXFile::WriteWhole(name, kLong, PLXFile::kReplaceExistingFile)) return false;
           PLXFileSystemItemArray contents;
           PLXFileSystemItem other(at, "other.txt");
           bool const isListed = at.GetContents(contents) && contents.GetElementCount() == 1;
           PLXFileStream stream(name, 16);
           return isListed && stream.GetRemainingBytes() == kLong && name.GetName() == "file.txt" &&
                  name.GetParentFolder().GetName() == "files" && !other.Exists();
         }));
  Refuse("lines of a file", Simply([] {
           PLXFileSpecification const name(Plx((folder / "lines").string()));
           PLXFileSpecification(name).Delete();
           PLXTextFile file;
           bool isRight = file.Create(name) && file.Open(name, kPLXFilePermission_ReadWrite);
           isRight = isRight && file.WriteLine("first") && file.AppendLine(kLong) && file.Flush();
           PLXString line;
           isRight = isRight && file.SetFilePosition(0) && file.ReadLine(line) && line == "first";
           return isRight && file.ReadLine() == kLong;
         }));
}

namespace {

// A server that has said everything before it is asked: the connection waits in its queue, and ends behind
// what it says.
class Peer {
 public:
  explicit Peer(std::string const& says_i) {
    std::uint16_t port = 0;
    int const listener = OpenBoundSocket(port);
    listen(listener, 8);
    myAddress = "127.0.0.1:" + std::to_string(port);
    myProcess = fork();
    if (myProcess == 0) {
      for (int client; (client = accept(listener, nullptr, nullptr)) != -1; close(client)) {
        if (write(client, says_i.data(), says_i.size()) == -1) break;
        shutdown(client, SHUT_WR);
        char piece[512];
        while (read(client, piece, sizeof piece) > 0) {
        }
      }
      _exit(0);
    }
    close(listener);
  }
  ~Peer() {
    kill(myProcess, SIGKILL);
    waitpid(myProcess, nullptr, 0);
  }
  Peer(Peer const&) = delete;
  Peer& operator=(Peer const&) = delete;
  PLXString Address() const { return Plx(myAddress); }

 private:
  std::string myAddress;
  pid_t myProcess;
};

}  // namespace

TEST(OutOfMemory, Threads) {
  static std::atomic<int> ourRuns = 0;
  struct Thread : PLXThread {
    void Run() override {
      PLXString text(kLong);
      text += "changed";
      ++ourRuns;
    }
  };
  Refuse("a thread", Simply([] {
           auto thread = std::make_unique<Thread>();
           if (thread->Start()) static_cast<void>(thread.release());
           // What is refused inside the thread ends it and nothing else.
           return PLXThread::WaitUntilAllEnded(10000) && ourRuns <= 2;
         }));
}

TEST(OutOfMemory, Clients) {
  static Peer const web("HTTP/1.0 200 OK\r\nContent-Length: 4\r\n\r\ndata");
  static Peer const mail("+OK ready\r\n");
  Refuse("a web client", []() -> Work {
    auto const http = std::make_shared<PLXHTTP>();
    return [http] {
      http->SetURL("http://" + web.Address() + "/path?query");
      http->SetMethod(PLXHTTPMethod::POST);
      http->SetAuthorization(PLXHTTPAuthorization::Basic, "user", "password");
      http->ClearPostArguments();
      http->AddPostArgument("name", "a value");
      return http->Process(false) && http->GetResponseData() == "data";
    };
  });
  Refuse("a mail client", []() -> Work {
    auto const pop = std::make_shared<PLXPOP3>(mail.Address(), "user", "password");
    return [pop] {
      // A connection that was made before memory ran out stays.
      PLXUInt32 const result = pop->Connect();
      pop->SendPOPCommand("UIDL");
      pop->Disconnect();
      return result == kPOP3Result_Success || result == kPOP3Result_AlreadyConnected;
    };
  });
}
