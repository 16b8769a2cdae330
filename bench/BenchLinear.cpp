#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "BenchInput.h"
#include "PLXCryptor.h"
#include "PLXEmailSendThread.h"
#include "PLXRegExp.h"
#include "PLXStringUtility.h"

// Whether costs are linear: each work at n, 2n, 4n and 8n bytes, as time per doubling and as the most memory
// the process held beyond what it had before, in parts of the largest text. Every measurement is a process of
// its own, so that no run finds memory that another one left behind.

namespace {

typedef std::size_t (*Work)(std::size_t size_i, double& seconds_o);  // returns the largest text

// The processor's time, so that others on the machine do not count.
double GetSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class Clock {
 public:
  explicit Clock(double& seconds_o) : mySeconds(seconds_o) {}
  ~Clock() { mySeconds = GetSeconds() - myStart; }

 private:
  double& mySeconds;
  double const myStart = GetSeconds();
};

PLXString Lines(std::size_t size_i) {
  PLXString text;
  text.Reserve(static_cast<PLXUInt32>(size_i));
  while (text.GetLength() + 42 <= size_i) text.Append("a line of some forty characters, no more\r\n", 42);
  return text;
}

// Random bytes, written where they stay.
PLXString Bytes(std::size_t size_i) {
  PLXString text;
  char* const bytes = text.ReserveLength(static_cast<PLXUInt32>(size_i));
  std::mt19937 random(20240607);
  for (std::size_t index = 0; index < size_i; ++index) bytes[index] = static_cast<char>(random() & 255);
  return text;
}

std::size_t BuildString(std::size_t size_i, double& seconds_o) {
  Clock const clock(seconds_o);
  PLXString text;
  while (text.GetLength() < size_i) {
    text.ReserveToAppend(8);
    text.Append("piece of", 8);
  }
  return text.GetLength();
}

std::size_t Tokenize(std::size_t size_i, double& seconds_o) {
  PLXString const text = Lines(size_i);
  Clock const clock(seconds_o);
  PLXTokenizedString const lines(text, "\r\n");
  std::size_t total = 0;
  for (PLXUInt32 index = 0; index < lines.GetTokenCount(); ++index) total += lines[index].GetLength();
  return total < size_i ? size_i : total;
}

template <auto kEncode>
std::size_t Encode(std::size_t size_i, double& seconds_o) {
  PLXString const text = Bytes(size_i);
  Clock const clock(seconds_o);
  return kEncode(text).GetLength();
}
PLXString EncodeBase64(PLXString const& text_i) {
  PLXStringStream stream(text_i);
  PLXBufferStream bytes(text_i.GetCStringAccess(), text_i.GetLength());
  return PLXCryptor::Base64Encode(bytes);
}
PLXString EncodeQuotedPrintable(PLXString const& text_i) { return PLXCryptor::QuotedPrintableEncode(text_i); }
PLXString EncodeURL(PLXString const& text_i) { return PLXStringUtility::GetURLEncodedString(text_i); }
PLXString EncodeHTML(PLXString const& text_i) { return PLXStringUtility::GetHTMLEncodedString(text_i); }

std::size_t DecodeBase64(std::size_t size_i, double& seconds_o) {
  PLXString const text = EncodeBase64(Bytes(size_i * 3 / 4));
  Clock const clock(seconds_o);
  PLXStringStream stream(text);
  PLXBuffer data;
  PLXCryptor::Base64Decode(stream, data);
  return text.GetLength();
}

std::size_t SplitMessage(std::size_t size_i, double& seconds_o) {
  PLXString message(
      "--xyzzy\r\nContent-Type: text/plain\r\n\r\nHello\r\n--xyzzy\r\n"
      "Content-Type: application/octet-stream; name=\"a.bin\"\r\nContent-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"a.bin\"\r\n\r\n");
  {
    PLXString const data = EncodeBase64(Bytes(size_i * 3 / 4));
    message.ReserveToAppend(data.GetLength() + 32);
    message.Append(data).Append("\r\n--xyzzy--\r\n");
  }
  char name[] = "/tmp/plx-linear-XXXXXX";
  std::string const folder = ::mkdtemp(name);
  PLXTokenizedString const everything(".*", "\n");
  PLXString body;
  {
    Clock const clock(seconds_o);
    PLXStringUtility::ParseMultipartMessage_ReturnBody(message, "xyzzy", 0, message.GetLength(), Text(folder),
                                                       everything, 0, nullptr, body);
  }
  std::filesystem::remove_all(folder);
  return message.GetLength();
}

class Assembly : public PLXEmailSendThread {
 public:
  using PLXEmailSendThread::PLXEmailSendThread;
  PLXString Build() {
    PLXString text = BuildMessage();
    PrepareMessageForOutput(text);
    return text;
  }
};
class Email : public PLXEmail {
 public:
  using PLXEmail::GetFields;
  using PLXEmail::PLXEmail;
};

std::size_t AssembleMail(std::size_t size_i, double& seconds_o) {
  PLXString const bytes = Bytes(size_i * 3 / 4);
  Clock const clock(seconds_o);
  Email email("", "");
  email.SetFrom("a@test.org");
  email.AddTo("b@test.org");
  email.SetMessage("Hello\r\n");
  PLXBufferStream stream(bytes.GetCStringAccess(), bytes.GetLength());
  email.AddAttachment(stream, kAttachmentEncoding_Base64, "a.bin", static_cast<int>(bytes.GetLength()));
  Assembly assembly(email.GetFields());
  email.ClearAttachments();
  return assembly.Build().GetLength();
}

// Hard: from every place the repetitions run far before they fail.
std::size_t MatchHardText(std::size_t size_i, double& seconds_o) {
  PLXString const text('a', static_cast<PLXUInt32>(size_i));
  PLXRegExp expression("([a-z]+[a-z]*)+[.]a*b");
  Clock const clock(seconds_o);
  static_cast<void>(expression.Execute(text, 0));
  return text.GetLength();
}

struct Row {
  char const* name;
  Work work;
  std::size_t largest;
};
constexpr std::size_t kMegabyte = 1 << 20;
constexpr Row kRows[] = {
    {"string building", BuildString, 64 * kMegabyte},
    {"tokenizing into lines", Tokenize, 64 * kMegabyte},
    {"Base64 encoding", Encode<EncodeBase64>, 64 * kMegabyte},
    {"Base64 decoding", DecodeBase64, 64 * kMegabyte},
    {"quoted-printable encoding", Encode<EncodeQuotedPrintable>, 64 * kMegabyte},
    {"URL encoding", Encode<EncodeURL>, 64 * kMegabyte},
    {"HTML encoding", Encode<EncodeHTML>, 64 * kMegabyte},
    {"MIME split, attachment saved", SplitMessage, 64 * kMegabyte},
    {"mail assembly", AssembleMail, 64 * kMegabyte},
    {"expression on a hard text", MatchHardText, 8 * kMegabyte},
};

std::size_t ReadStatus(char const* field_i) {
  std::ifstream status("/proc/self/status");
  std::string const field(field_i);
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::strtoul(line.c_str() + field.size(), nullptr, 10) * 1024;
  }
  return 0;
}

struct Result {
  double seconds;
  double memory;  // parts of the largest text
};

// The work in a process of its own.
Result Measure(Row const& row_i, std::size_t size_i) {
  Result result{};
  int ends[2];
  if (::pipe(ends) != 0) std::exit(1);
  if (pid_t const child = ::fork(); child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak begins here
    std::size_t const before = ReadStatus("VmRSS:");
    auto const largest = static_cast<double>(row_i.work(size_i, result.seconds));
    result.memory = static_cast<double>(ReadStatus("VmHWM:") - before) / largest;
    bool const told = ::write(ends[1], &result, sizeof result) == sizeof result;
    std::_Exit(told ? 0 : 1);
  } else {
    int status = 0;
    ::waitpid(child, &status, 0);
    if (::read(ends[0], &result, sizeof result) != sizeof result) std::exit(1);
  }
  ::close(ends[0]);
  ::close(ends[1]);
  return result;
}

}  // namespace

int main() {
  std::printf("%-30s %10s %22s   %s\n", "work", "largest", "time per doubling", "memory / largest text");
  for (Row const& row : kRows) {
    double ratios[3];
    double last = 0;
    double memory = 0;
    for (int doubling = 0; doubling < 4; ++doubling) {
      Result best = Measure(row, row.largest >> (3 - doubling));
      for (int run = 1; run < 5; ++run) {
        Result const again = Measure(row, row.largest >> (3 - doubling));
        if (again.seconds < best.seconds) best = again;
      }
      if (doubling > 0) ratios[doubling - 1] = best.seconds / last;
      last = best.seconds;
      memory = best.memory;
    }
    std::printf("%-30s %7.1f ms %8.2f %6.2f %6.2f   %.2f\n", row.name, last * 1e3, ratios[0], ratios[1],
                ratios[2], memory);
    std::fflush(stdout);
  }
  return 0;
}
