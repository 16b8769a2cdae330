#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdlib.h>
#include <string>
#include <unistd.h>

#ifdef PLX_BENCH_GMIME
#include <gmime/gmime.h>
#endif
#ifdef PLX_BENCH_GCRYPT
#include <gcrypt.h>
#endif
#ifdef PLX_BENCH_NETTLE
#include <nettle/cast128.h>
#endif
#ifdef PLX_BENCH_VMIME
#include <vmime/vmime.hpp>
#endif

#include "BenchInput.h"
#include "PLXCAST5.h"
#include "PLXCryptor.h"
#include "PLXEmailSendThread.h"
#include "PLXStringUtility.h"

// Mail: a message taken apart with its attachment saved, and the cipher of stored passwords.

namespace {

constexpr char kHeader[] =
    "From: a@test.org\r\nTo: b@test.org\r\nSubject: A file\r\nMIME-Version: 1.0\r\n"
    "Content-Type: multipart/mixed; boundary=\"xyzzy\"";

// A text and one attachment; the whole message has about this size.
std::string Message(std::size_t size_i) {
  std::string const bytes = RandomBytes(size_i * 3 / 4);
  PLXBufferStream stream(bytes.data(), static_cast<PLXUInt32>(bytes.size()));
  PLXString const data = PLXCryptor::Base64Encode(stream);
  return std::string("--xyzzy\r\nContent-Type: text/plain\r\n\r\nHello\r\n--xyzzy\r\n") +
         "Content-Type: application/octet-stream; name=\"a.bin\"\r\nContent-Transfer-Encoding: base64\r\n"
         "Content-Disposition: attachment; filename=\"a.bin\"\r\n\r\n" +
         std::string(data.GetCStringAccess(), data.GetLength()) + "\r\n--xyzzy--\r\n";
}

// Where the attachments go, emptied outside the time that counts.
class Folder {
 public:
  Folder() {
    char name[] = "/tmp/plx-bench-XXXXXX";
    myPath = ::mkdtemp(name);
  }
  ~Folder() { std::filesystem::remove_all(myPath); }
  void Clear() const {
    for (auto const& entry : std::filesystem::directory_iterator(myPath)) std::filesystem::remove(entry);
  }
  std::string const& Path() const { return myPath; }

 private:
  std::string myPath;
};

void Sizes(benchmark::internal::Benchmark* benchmark_io) {
  for (int const size : {1 << 10, 64 << 10, 1 << 20, 16 << 20, 50 << 20}) benchmark_io->Arg(size);
}
void CountBytes(benchmark::State& state_io) {
  state_io.SetBytesProcessed(state_io.iterations() * state_io.range(0));
}

void BM_MIMESplit_OneAttachment(benchmark::State& state_io) {
  Folder const folder;
  PLXString const message = Text(Message(static_cast<std::size_t>(state_io.range(0))));
  PLXString const path = Text(folder.Path());
  PLXTokenizedString const everything(".*", "\n");
  for (auto _ : state_io) {
    PLXString body;
    PLXStringUtility::ParseMultipartMessage_ReturnBody(message, "xyzzy", 0, message.GetLength(), path,
                                                       everything, 0, nullptr, body);
    benchmark::DoNotOptimize(body);
    state_io.PauseTiming();
    folder.Clear();
    state_io.ResumeTiming();
  }
  CountBytes(state_io);
}
BENCHMARK(BM_MIMESplit_OneAttachment)->Apply(Sizes);

// The peers' files go to the disk for good, as ours do: a mail server forgets a message that was collected.
// What the disk takes is not counted, what the processor takes for it is.

#ifdef PLX_BENCH_GMIME
void SaveWithGMime(GMimeObject* /*parent_i*/, GMimeObject* part_i, gpointer folder_i) {
  if (!GMIME_IS_PART(part_i)) return;
  auto* const part = GMIME_PART(part_i);
  GMimeDataWrapper* const content = g_mime_part_get_content(part);
  if (g_mime_part_get_filename(part) == nullptr) return;
  std::string const path = *static_cast<std::string const*>(folder_i) + "/" + g_mime_part_get_filename(part);
  GMimeStream* const file = g_mime_stream_fs_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600, nullptr);
  g_mime_data_wrapper_write_to_stream(content, file);
  if (g_mime_stream_flush(file) != 0) std::abort();  // calls fsync
  g_object_unref(file);
}

void BM_MIMESplit_OneAttachment_GMime(benchmark::State& state_io) {
  g_mime_init();
  Folder const folder;
  std::string const message =
      std::string(kHeader) + "\r\n\r\n" + Message(static_cast<std::size_t>(state_io.range(0)));
  std::string path = folder.Path();
  for (auto _ : state_io) {
    GMimeStream* const stream = g_mime_stream_mem_new_with_buffer(message.data(), message.size());
    GMimeParser* const parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage* const parsed = g_mime_parser_construct_message(parser, nullptr);
    g_mime_message_foreach(parsed, SaveWithGMime, &path);
    g_object_unref(parsed);
    g_object_unref(parser);
    g_object_unref(stream);
    state_io.PauseTiming();
    folder.Clear();
    state_io.ResumeTiming();
  }
  CountBytes(state_io);
}
BENCHMARK(BM_MIMESplit_OneAttachment_GMime)->Apply(Sizes);
#endif

#ifdef PLX_BENCH_VMIME
void BM_MIMESplit_OneAttachment_VMime(benchmark::State& state_io) {
  Folder const folder;
  std::string const message =
      std::string(kHeader) + "\r\n\r\n" + Message(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    auto const parsed = vmime::make_shared<vmime::message>();
    parsed->parse(message);
    for (auto const& attachment : vmime::attachmentHelper::findAttachmentsInMessage(parsed)) {
      std::string const path = folder.Path() + "/" + attachment->getName().getBuffer();
      {
        std::ofstream file(path, std::ios::binary);
        vmime::utility::outputStreamAdapter out(file);
        attachment->getData()->extract(out);
      }
      int const file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
      if (::fsync(file) != 0) std::abort();
      ::close(file);
    }
    state_io.PauseTiming();
    folder.Clear();
    state_io.ResumeTiming();
  }
  CountBytes(state_io);
}
BENCHMARK(BM_MIMESplit_OneAttachment_VMime)->Apply(Sizes);
#endif

// ---- Assembly ----

// Access to the text that a sending thread builds.
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

// One message with one attachment, as it goes over the wire.
void BM_MailAssembly(benchmark::State& state_io) {
  std::string const bytes = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    Email email("", "");
    email.SetFrom("a@test.org");
    email.AddTo("b@test.org");
    email.SetSubject("A file");
    email.SetMessage("Hello\r\n");
    PLXBufferStream stream(bytes.data(), static_cast<PLXUInt32>(bytes.size()));
    email.AddAttachment(stream, kAttachmentEncoding_Base64, "a.bin", static_cast<int>(bytes.size()));
    Assembly assembly(email.GetFields());
    email.ClearAttachments();
    benchmark::DoNotOptimize(assembly.Build());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_MailAssembly)->Arg(64 << 10)->Arg(10 << 20);

#ifdef PLX_BENCH_GMIME
void BM_MailAssembly_GMime(benchmark::State& state_io) {
  g_mime_init();
  std::string const bytes = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    GMimeMessage* const message = g_mime_message_new(TRUE);
    g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, nullptr, "a@test.org");
    g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, nullptr, "b@test.org");
    g_mime_message_set_subject(message, "A file", nullptr);
    GMimeMultipart* const parts = g_mime_multipart_new_with_subtype("mixed");
    GMimeTextPart* const text = g_mime_text_part_new_with_subtype("plain");
    g_mime_text_part_set_text(text, "Hello\r\n");
    g_mime_multipart_add(parts, GMIME_OBJECT(text));
    GMimePart* const part = g_mime_part_new_with_type("application", "octet-stream");
    GMimeStream* const source = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
    GMimeDataWrapper* const content =
        g_mime_data_wrapper_new_with_stream(source, GMIME_CONTENT_ENCODING_DEFAULT);
    g_mime_part_set_content(part, content);
    g_mime_part_set_content_encoding(part, GMIME_CONTENT_ENCODING_BASE64);
    g_mime_part_set_filename(part, "a.bin");
    g_mime_multipart_add(parts, GMIME_OBJECT(part));
    g_mime_message_set_mime_part(message, GMIME_OBJECT(parts));
    GMimeStream* const result = g_mime_stream_mem_new();
    g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, result);
    benchmark::DoNotOptimize(result);
    for (gpointer object : {gpointer(result), gpointer(content), gpointer(source), gpointer(part),
                            gpointer(text), gpointer(parts), gpointer(message)}) {
      g_object_unref(object);
    }
  }
}
BENCHMARK(BM_MailAssembly_GMime)->Arg(64 << 10)->Arg(10 << 20);
#endif

#ifdef PLX_BENCH_VMIME
void BM_MailAssembly_VMime(benchmark::State& state_io) {
  std::string const bytes = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    vmime::messageBuilder builder;
    builder.setExpeditor(vmime::mailbox("a@test.org"));
    builder.getRecipients().appendAddress(vmime::make_shared<vmime::mailbox>("b@test.org"));
    builder.setSubject(vmime::text("A file"));
    builder.getTextPart()->setText(vmime::make_shared<vmime::stringContentHandler>("Hello\r\n"));
    builder.attach(vmime::make_shared<vmime::defaultAttachment>(
        vmime::make_shared<vmime::stringContentHandler>(bytes), vmime::encoding("base64"),
        vmime::mediaType("application/octet-stream"), vmime::text(), vmime::word("a.bin")));
    std::string text;
    vmime::utility::outputStreamStringAdapter out(text);
    builder.construct()->generate(out);
    benchmark::DoNotOptimize(text);
  }
  CountBytes(state_io);
}
BENCHMARK(BM_MailAssembly_VMime)->Arg(64 << 10)->Arg(10 << 20);
#endif

// ---- CAST5 ----

constexpr char kKey[] = "0123456789abcdef";

void CipherSizes(benchmark::internal::Benchmark* benchmark_io) {
  for (int const size : {64, 4 << 10, 1 << 20}) benchmark_io->Arg(size);
}

void BM_CAST5_Encipher(benchmark::State& state_io) {
  std::string const plain = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    PLXBuffer data = Text(plain);
    PLXCryptor::CAST5Cipher(data, kKey, 16, false);
    benchmark::DoNotOptimize(data.GetAddress());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_CAST5_Encipher)->Apply(CipherSizes);

#ifdef PLX_BENCH_GCRYPT
void BM_CAST5_Encipher_Gcrypt(benchmark::State& state_io) {
  gcry_check_version(nullptr);
  gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  std::string const plain = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    std::string data = plain;
    gcry_cipher_hd_t cipher;
    gcry_cipher_open(&cipher, GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CFB, GCRY_CIPHER_ENABLE_SYNC);
    gcry_cipher_setkey(cipher, kKey, 16);
    gcry_cipher_setiv(cipher, nullptr, 0);
    gcry_cipher_encrypt(cipher, data.data(), data.size(), nullptr, 0);
    gcry_cipher_close(cipher);
    benchmark::DoNotOptimize(data.data());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_CAST5_Encipher_Gcrypt)->Apply(CipherSizes);
#endif

#ifdef PLX_BENCH_NETTLE
// In feedback mode by hand: the library has the block alone.
void BM_CAST5_Encipher_Nettle(benchmark::State& state_io) {
  std::string const plain = RandomBytes(static_cast<std::size_t>(state_io.range(0)));
  for (auto _ : state_io) {
    std::string data = plain;
    cast128_ctx context;
    cast128_set_key(&context, reinterpret_cast<std::uint8_t const*>(kKey));
    std::uint8_t feedback[8] = {};
    for (std::size_t at = 0; at + 8 <= data.size(); at += 8) {
      cast128_encrypt(&context, 8, feedback, feedback);
      for (std::size_t byte = 0; byte < 8; ++byte) {
        feedback[byte] ^= static_cast<std::uint8_t>(data[at + byte]);
        data[at + byte] = static_cast<char>(feedback[byte]);
      }
    }
    benchmark::DoNotOptimize(data.data());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_CAST5_Encipher_Nettle)->Apply(CipherSizes);
#endif

}  // namespace
