// Does one thing as often as it is told, in a process of its own, so that its time and its peak memory can be
// told from everybody else's. Prints a line "NAME SECONDS PROCESSOR-SECONDS BYTES" for each thing that it
// measured and last "peak 0 0 BYTES".
//
//   plx-bench-once http URL TIMES                         ours: a fetch by HTTP/1.0 into one string
//   plx-bench-once curl URL TIMES                         libcurl's
//   plx-bench-once retr SERVER USER PASSWORD NUMBER       one message by POP3
//   plx-bench-once send SERVER FROM TO TIMES              messages by SMTP, one behind the other
//   plx-bench-once mailbox FOLDER COUNT                   a mailbox of so many messages: added, counted,
//   listed

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#ifdef PLX_BENCH_CURL
#include <curl/curl.h>
#endif

#include "../plx-modules/network/EmailClient/MailboxIndex.h"
#include "PLXEmailSendThread.h"
#include "PLXHTTP.h"
#include "PLXPOP3.h"

namespace {

[[noreturn]] void Fail(char const* sentence_i) {
  std::fprintf(stderr, "plx-bench-once: %s\n", sentence_i);
  std::exit(1);
}

struct Time {
  double clock = 0;
  double processor = 0;
};

// Of the work once, on the average of so many times.
Time Measure(int times_i, std::function<void()> const& work_i) {
  auto const begun = std::chrono::steady_clock::now();
  std::clock_t const used = std::clock();
  for (int turn = 0; turn < times_i; ++turn) work_i();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count() / times_i,
          static_cast<double>(std::clock() - used) / CLOCKS_PER_SEC / times_i};
}

void Tell(char const* name_i, Time const& time_i, unsigned long bytes_i) {
  std::printf("%s %.9f %.9f %lu\n", name_i, time_i.clock, time_i.processor, bytes_i);
}

// Of this program alone: getrusage would count what its parent had before.
void TellPeak() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) Tell("peak", {}, std::strtoul(line.c_str() + 6, nullptr, 10) * 1024);
  }
}

void Fetch(char const* url_i, int times_i) {
  unsigned long bytes = 0;
  Time const time = Measure(times_i, [&] {
    PLXHTTP client;
    client.SetURL(url_i);
    if (!client.Process(false)) Fail("the address cannot be fetched");
    bytes = client.GetResponseData().GetLength();
  });
  Tell("http", time, bytes);
}

#ifdef PLX_BENCH_CURL
std::size_t Take(char* bytes_i, std::size_t size_i, std::size_t count_i, void* text_io) {
  static_cast<std::string*>(text_io)->append(bytes_i, size_i * count_i);
  return size_i * count_i;
}

// The handle is kept, which is how libcurl is fastest; the connection cannot be.
void FetchByCurl(char const* url_i, int times_i) {
  CURL* const handle = curl_easy_init();
  std::string text;
  curl_easy_setopt(handle, CURLOPT_URL, url_i);
  curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_0));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, Take);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &text);
  Time const time = Measure(times_i, [&] {
    std::string().swap(text);
    if (curl_easy_perform(handle) != CURLE_OK) Fail("libcurl cannot fetch the address");
  });
  Tell("curl", time, text.size());
  curl_easy_cleanup(handle);
}
#endif

void Retrieve(char** arguments_i) {
  PLXPOP3 client(arguments_i[0], arguments_i[1], arguments_i[2]);
  if (client.Connect() != kPOP3Result_Success) Fail("the mailbox cannot be opened");
  PLXUInt32 length = 0;
  Time const time =
      Measure(1, [&] { length = client.SendPOPCommand(PLXString("RETR ") + arguments_i[3]).GetLength(); });
  client.Disconnect();
  Tell("retr", time, length);
}

void Send(char** arguments_i, int times_i) {
  PLXEmailFields fields;
  fields.mailServer = arguments_i[0];
  fields.from = arguments_i[1];
  fields.to = arguments_i[2];
  fields.subject = "A message";
  fields.message = "Good morning.\n";
  Time const time = Measure(times_i, [&] { PLXEmailSendThread(fields).RunHere(); });
  Tell("send", time, fields.message.GetLength());
}

void FillAndRead(std::string const& folder_i, int count_i) {
  PLXFileSpecification const index(PLXString((folder_i + "/in.idx").c_str()));
  PLXFileSpecification const texts(PLXString((folder_i + "/in.mbx").c_str()));
  for (char const* name : {"/in.idx", "/in.mbx"}) std::ofstream(folder_i + name);
  std::string const body(1000, 'x');
  Time const add = Measure(1, [&] {
    EmailClient_Mailbox mailbox(index, texts);
    if (mailbox.Open(kPLXFilePermission_ReadWrite) != EmailClient_Mailbox::Outcome::Done) Fail("no mailbox");
    for (int number = 0; number < count_i; ++number) {
      std::string const text = "From: ada@example.com\r\nSubject: Number " + std::to_string(number) +
                               "\r\nDate: Mon, 6 Jul 2026 10:00:00 +0000\r\n\r\n" + body + "\r\n";
      mailbox.Add(PLXString(text.data(), static_cast<PLXUInt32>(text.size())));
    }
  });
  auto const read = [&](auto const& look_i) {
    EmailClient_Mailbox mailbox(index, texts);
    mailbox.Open(kPLXFilePermission_ReadOnly);
    EmailClient_MessageRecord record;
    while (mailbox.ReadNext(record)) look_i(record);
  };
  unsigned long count = 0;
  unsigned long sizes = 0;
  Time const counted = Measure(1, [&] { read([&](auto const&) { ++count; }); });
  // A list shows a part of each text, so it reads them as well.
  Time const listed = Measure(1, [&] {
    std::ifstream file(folder_i + "/in.mbx", std::ios::binary);
    std::string head(200, ' ');
    read([&](auto const& record) {
      file.seekg(record.textOffset);
      file.read(head.data(), static_cast<std::streamsize>(head.size()));
      sizes += head.find("Subject: ");
    });
  });
  if (sizes == 0) Fail("nothing was listed");
  Tell("add", add, count);
  Tell("count", counted, count);
  Tell("list", listed, count);
}

}  // namespace

int main(int count_i, char** arguments_i) {
  auto const is = [&](char const* name, int count) {
    return count_i == count + 2 && std::strcmp(arguments_i[1], name) == 0;
  };
  if (is("http", 2)) {
    Fetch(arguments_i[2], std::atoi(arguments_i[3]));
#ifdef PLX_BENCH_CURL
  } else if (is("curl", 2)) {
    FetchByCurl(arguments_i[2], std::atoi(arguments_i[3]));
#endif
  } else if (is("retr", 4)) {
    Retrieve(arguments_i + 2);
  } else if (is("send", 4)) {
    Send(arguments_i + 2, std::atoi(arguments_i[5]));
  } else if (is("mailbox", 2)) {
    FillAndRead(arguments_i[2], std::atoi(arguments_i[3]));
  } else {
    Fail("see the comment at the top of its source");
  }
  TellPeak();
}
