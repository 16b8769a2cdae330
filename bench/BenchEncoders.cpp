#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#ifdef PLX_BENCH_OPENSSL
#include <openssl/evp.h>
#endif
#ifdef PLX_BENCH_POCO
#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#include <Poco/StreamCopier.h>
#include <Poco/URI.h>
#include <sstream>
#endif

#ifdef PLX_BENCH_GLIB
#include <glib.h>
#endif
#ifdef PLX_BENCH_GMIME
#include <gmime/gmime.h>
#endif
#ifdef PLX_BENCH_VMIME
#include <vmime/utility/encoder/qpEncoder.hpp>
#include <vmime/utility/inputStreamStringAdapter.hpp>
#include <vmime/utility/outputStreamStringAdapter.hpp>
#endif

#include "BenchInput.h"
#include "PLXCryptor.h"
#include "PLXStringUtility.h"

namespace {

// Characters of the set, so that how much there is to encode is known.
std::string RandomText(std::size_t size_i, std::string const& set_i) {
  std::mt19937 random(20240607);
  std::string text(size_i, 0);
  for (char& character : text) character = set_i[random() % set_i.size()];
  return text;
}

char const kProse[] = "etaoinshrdlu etaoin shrdlu,.\n";
char const kMarkup[] = "etaoin<>&\"\xE9\xFC=/ ";

PLXBuffer Buffer(std::string const& text_i) { return Text(text_i); }

void Sizes(benchmark::internal::Benchmark* benchmark_io) {
  for (int const size : {64, 4 << 10, 256 << 10, 16 << 20}) benchmark_io->Arg(size);
}

void CountBytes(benchmark::State& state_io) {
  state_io.SetBytesProcessed(state_io.iterations() * state_io.range(0));
}

std::size_t Size(benchmark::State const& state_i) { return static_cast<std::size_t>(state_i.range(0)); }

// ---- Base64 ----

void BM_Base64Encode_Buffer(benchmark::State& state_io) {
  PLXBuffer const data = Buffer(RandomBytes(Size(state_io)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXCryptor::Base64Encode(data));
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Encode_Buffer)->Apply(Sizes);

void BM_Base64Encode_Stream(benchmark::State& state_io) {
  std::string const data = RandomBytes(Size(state_io));
  for (auto _ : state_io) {
    PLXBufferStream stream(data.data(), static_cast<PLXUInt32>(data.size()));
    benchmark::DoNotOptimize(PLXCryptor::Base64Encode(stream));
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Encode_Stream)->Apply(Sizes);

// Folded as mail carries it: at every line end the decoder leaves its fast path.
void BM_Base64Decode_Folded(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::Base64Encode(Buffer(RandomBytes(Size(state_io))));
  PLXBuffer data;
  for (auto _ : state_io) {
    PLXStringStream stream(text);
    PLXCryptor::Base64Decode(stream, data);
    benchmark::DoNotOptimize(data.GetAddress());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Decode_Folded)->Apply(Sizes);

// Padding in every group: the decoder never comes to its fast path.
void BM_Base64Decode_AllPadded(benchmark::State& state_io) {
  PLXString text;
  for (PLXUInt32 left = static_cast<PLXUInt32>(Size(state_io)); left > 0; --left) {
    text.ReserveToAppend(4);
    text += "QQ==";
  }
  PLXBuffer data;
  for (auto _ : state_io) {
    PLXStringStream stream(text);
    PLXCryptor::Base64Decode(stream, data);
    benchmark::DoNotOptimize(data.GetAddress());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Decode_AllPadded)->Apply(Sizes);

#ifdef PLX_BENCH_OPENSSL
void BM_Base64Encode_OpenSSL(benchmark::State& state_io) {
  std::string const data = RandomBytes(Size(state_io));
  for (auto _ : state_io) {
    std::vector<unsigned char> text(data.size() / 3 * 4 + 8);
    EVP_EncodeBlock(text.data(), reinterpret_cast<unsigned char const*>(data.data()),
                    static_cast<int>(data.size()));
    benchmark::DoNotOptimize(text.data());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Encode_OpenSSL)->Apply(Sizes);

void BM_Base64Decode_OpenSSL(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::Base64Encode(Buffer(RandomBytes(Size(state_io))));
  EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
  for (auto _ : state_io) {
    std::vector<unsigned char> decoded(text.GetLength());
    int length = 0;
    EVP_DecodeInit(context);
    EVP_DecodeUpdate(context, decoded.data(), &length,
                     reinterpret_cast<unsigned char const*>(text.GetCStringAccess()),
                     static_cast<int>(text.GetLength()));
    benchmark::DoNotOptimize(decoded.data());
  }
  EVP_ENCODE_CTX_free(context);
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Decode_OpenSSL)->Apply(Sizes);
#endif

#ifdef PLX_BENCH_POCO
void BM_Base64Encode_Poco(benchmark::State& state_io) {
  std::string const data = RandomBytes(Size(state_io));
  for (auto _ : state_io) {
    std::ostringstream text;
    Poco::Base64Encoder encoder(text);
    encoder.write(data.data(), static_cast<std::streamsize>(data.size()));
    encoder.close();
    benchmark::DoNotOptimize(text.str());
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Encode_Poco)->Apply(Sizes);

void BM_Base64Decode_Poco(benchmark::State& state_io) {
  PLXString const folded = PLXCryptor::Base64Encode(Buffer(RandomBytes(Size(state_io))));
  std::string const text(folded.GetCStringAccess(), folded.GetLength());
  for (auto _ : state_io) {
    std::istringstream source(text);
    Poco::Base64Decoder decoder(source);
    std::string data;
    Poco::StreamCopier::copyToString(decoder, data);
    benchmark::DoNotOptimize(data);
  }
  CountBytes(state_io);
}
BENCHMARK(BM_Base64Decode_Poco)->Apply(Sizes);
#endif

#ifdef PLX_BENCH_GLIB
void BM_Base64Encode_GLib(benchmark::State& state_io) {
  std::string const data = RandomBytes(Size(state_io));
  for (auto _ : state_io) {
    gchar* const text = g_base64_encode(reinterpret_cast<guchar const*>(data.data()), data.size());
    benchmark::DoNotOptimize(text);
    g_free(text);
  }
}
BENCHMARK(BM_Base64Encode_GLib)->Apply(Sizes);

void BM_Base64Decode_GLib(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::Base64Encode(Buffer(RandomBytes(Size(state_io))));
  for (auto _ : state_io) {
    gsize size = 0;
    guchar* const data = g_base64_decode(text.GetCStringAccess(), &size);
    benchmark::DoNotOptimize(data);
    g_free(data);
  }
}
BENCHMARK(BM_Base64Decode_GLib)->Apply(Sizes);
#endif

// The limit: as much memory written as the encoder writes.
void BM_Base64Encode_Copy(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::Base64Encode(Buffer(RandomBytes(Size(state_io))));
  for (auto _ : state_io) benchmark::DoNotOptimize(std::string(text.GetCStringAccess(), text.GetLength()));
}
BENCHMARK(BM_Base64Encode_Copy)->Apply(Sizes);

void BM_Base64Decode_Copy(benchmark::State& state_io) {
  std::string const data = RandomBytes(Size(state_io));
  for (auto _ : state_io) benchmark::DoNotOptimize(std::string(data.data(), data.size()));
}
BENCHMARK(BM_Base64Decode_Copy)->Apply(Sizes);

// ---- Quoted-printable ----

#ifdef PLX_BENCH_GMIME
void WithGMime(benchmark::State& state_io, std::string const& text_i, bool encodes_i) {
  for (auto _ : state_io) {
    GMimeEncoding encoding;
    if (encodes_i) {
      g_mime_encoding_init_encode(&encoding, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
    } else {
      g_mime_encoding_init_decode(&encoding, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
    }
    std::string result(g_mime_encoding_outlen(&encoding, text_i.size()), 0);
    result.resize(g_mime_encoding_flush(&encoding, text_i.data(), text_i.size(), result.data()));
    benchmark::DoNotOptimize(result);
  }
}
#endif
#ifdef PLX_BENCH_VMIME
void WithVMime(benchmark::State& state_io, std::string const& text_i, bool encodes_i) {
  for (auto _ : state_io) {
    vmime::utility::encoder::qpEncoder encoder;
    encoder.getProperties()["maxlinelength"] = 76;
    std::string result;
    vmime::utility::inputStreamStringAdapter in(text_i);
    vmime::utility::outputStreamStringAdapter out(result);
    if (encodes_i) {
      encoder.encode(in, out);
    } else {
      encoder.decode(in, out);
    }
    benchmark::DoNotOptimize(result);
  }
}
#endif
std::string Encoded(std::string const& text_i) {
  PLXString const encoded = PLXCryptor::QuotedPrintableEncode(Text(text_i));
  return std::string(encoded.GetCStringAccess(), encoded.GetLength());
}

#define QUOTED_PRINTABLE_PEER(peer)                                           \
  void BM_QuotedPrintableEncode_Prose_##peer(benchmark::State& state_io) {    \
    With##peer(state_io, RandomText(Size(state_io), kProse), true);           \
  }                                                                           \
  BENCHMARK(BM_QuotedPrintableEncode_Prose_##peer)->Apply(Sizes);             \
  void BM_QuotedPrintableEncode_Bytes_##peer(benchmark::State& state_io) {    \
    With##peer(state_io, RandomBytes(Size(state_io)), true);                  \
  }                                                                           \
  BENCHMARK(BM_QuotedPrintableEncode_Bytes_##peer)->Apply(Sizes);             \
  void BM_QuotedPrintableDecode_Prose_##peer(benchmark::State& state_io) {    \
    With##peer(state_io, Encoded(RandomText(Size(state_io), kProse)), false); \
  }                                                                           \
  BENCHMARK(BM_QuotedPrintableDecode_Prose_##peer)->Apply(Sizes);             \
  void BM_QuotedPrintableDecode_Bytes_##peer(benchmark::State& state_io) {    \
    With##peer(state_io, Encoded(RandomBytes(Size(state_io))), false);        \
  }                                                                           \
  BENCHMARK(BM_QuotedPrintableDecode_Bytes_##peer)->Apply(Sizes)
#ifdef PLX_BENCH_GMIME
QUOTED_PRINTABLE_PEER(GMime);
#endif
#ifdef PLX_BENCH_VMIME
QUOTED_PRINTABLE_PEER(VMime);
#endif

void BM_QuotedPrintableEncode_Prose(benchmark::State& state_io) {
  PLXString const text = Text(RandomText(Size(state_io), kProse));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXCryptor::QuotedPrintableEncode(text));
  CountBytes(state_io);
}
BENCHMARK(BM_QuotedPrintableEncode_Prose)->Apply(Sizes);

// Every second byte has to be escaped, in no order that a branch predictor could learn.
void BM_QuotedPrintableEncode_Bytes(benchmark::State& state_io) {
  PLXString const text = Text(RandomBytes(Size(state_io)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXCryptor::QuotedPrintableEncode(text));
  CountBytes(state_io);
}
BENCHMARK(BM_QuotedPrintableEncode_Bytes)->Apply(Sizes);

void BM_QuotedPrintableDecode_Prose(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::QuotedPrintableEncode(Text(RandomText(Size(state_io), kProse)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXCryptor::QuotedPrintableDecode(text));
  CountBytes(state_io);
}
BENCHMARK(BM_QuotedPrintableDecode_Prose)->Apply(Sizes);

void BM_QuotedPrintableDecode_Bytes(benchmark::State& state_io) {
  PLXString const text = PLXCryptor::QuotedPrintableEncode(Text(RandomBytes(Size(state_io))));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXCryptor::QuotedPrintableDecode(text));
  CountBytes(state_io);
}
BENCHMARK(BM_QuotedPrintableDecode_Bytes)->Apply(Sizes);

// ---- URLs and HTML ----

void BM_URLEncode_Markup(benchmark::State& state_io) {
  PLXString const text = Text(RandomText(Size(state_io), kMarkup));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetURLEncodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_URLEncode_Markup)->Apply(Sizes);

void BM_URLDecode_Markup(benchmark::State& state_io) {
  PLXString const text = PLXStringUtility::GetURLEncodedString(Text(RandomText(Size(state_io), kMarkup)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetURLDecodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_URLDecode_Markup)->Apply(Sizes);

// Signs of an escape without one: each is looked at and stays.
void BM_URLDecode_PercentsOnly(benchmark::State& state_io) {
  PLXString const text('%', static_cast<PLXUInt32>(Size(state_io)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetURLDecodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_URLDecode_PercentsOnly)->Apply(Sizes);

#ifdef PLX_BENCH_POCO
void BM_URLEncode_Poco(benchmark::State& state_io) {
  std::string const text = RandomText(Size(state_io), kMarkup);
  for (auto _ : state_io) {
    std::string encoded;
    Poco::URI::encode(text, "<>&\"= ", encoded);
    benchmark::DoNotOptimize(encoded);
  }
  CountBytes(state_io);
}
BENCHMARK(BM_URLEncode_Poco)->Apply(Sizes);

void BM_URLDecode_Poco(benchmark::State& state_io) {
  std::string encoded;
  Poco::URI::encode(RandomText(Size(state_io), kMarkup), "<>&\"= ", encoded);
  for (auto _ : state_io) {
    std::string text;
    Poco::URI::decode(encoded, text);
    benchmark::DoNotOptimize(text);
  }
  CountBytes(state_io);
}
BENCHMARK(BM_URLDecode_Poco)->Apply(Sizes);
#endif

void BM_HTMLEncode_Markup(benchmark::State& state_io) {
  PLXString const text = Text(RandomText(Size(state_io), kMarkup));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLEncodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLEncode_Markup)->Apply(Sizes);

void BM_HTMLEncode_Prose(benchmark::State& state_io) {
  PLXString const text = Text(RandomText(Size(state_io), kProse));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLEncodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLEncode_Prose)->Apply(Sizes);

void BM_HTMLDecode_Markup(benchmark::State& state_io) {
  PLXString const text = PLXStringUtility::GetHTMLEncodedString(Text(RandomText(Size(state_io), kMarkup)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLDecodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLDecode_Markup)->Apply(Sizes);

// Every "&" has its ";" at the far end of the text.
void BM_HTMLDecode_FarSemicolon(benchmark::State& state_io) {
  PLXString const text = PLXString('&', static_cast<PLXUInt32>(Size(state_io) - 1)) + ';';
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLDecodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLDecode_FarSemicolon)->Apply(Sizes);

#ifdef PLX_BENCH_GLIB
// Its texts are UTF-8, so these are ASCII.
char const kASCIIMarkup[] = "etaoin<>&\"xyz=/ ";

void BM_URLEncode_GLib(benchmark::State& state_io) {
  std::string const text = RandomText(Size(state_io), kMarkup);
  for (auto _ : state_io) {
    char* const encoded =
        g_uri_escape_bytes(reinterpret_cast<guint8 const*>(text.data()), text.size(), nullptr);
    benchmark::DoNotOptimize(encoded);
    g_free(encoded);
  }
}
BENCHMARK(BM_URLEncode_GLib)->Apply(Sizes);

void BM_URLDecode_GLib(benchmark::State& state_io) {
  std::string const text = RandomText(Size(state_io), kMarkup);
  char* const encoded =
      g_uri_escape_bytes(reinterpret_cast<guint8 const*>(text.data()), text.size(), nullptr);
  std::size_t const length = std::strlen(encoded);
  for (auto _ : state_io) {
    GBytes* const decoded = g_uri_unescape_bytes(encoded, static_cast<gssize>(length), nullptr, nullptr);
    benchmark::DoNotOptimize(decoded);
    g_bytes_unref(decoded);
  }
  g_free(encoded);
}
BENCHMARK(BM_URLDecode_GLib)->Apply(Sizes);

void BM_HTMLEncode_ASCII(benchmark::State& state_io) {
  PLXString const text = Text(RandomText(Size(state_io), kASCIIMarkup));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLEncodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLEncode_ASCII)->Apply(Sizes);

void BM_HTMLEncode_ASCII_GLib(benchmark::State& state_io) {
  std::string const text = RandomText(Size(state_io), kASCIIMarkup);
  for (auto _ : state_io) {
    char* const encoded = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
    benchmark::DoNotOptimize(encoded);
    g_free(encoded);
  }
}
BENCHMARK(BM_HTMLEncode_ASCII_GLib)->Apply(Sizes);

// The peer has no decoder of its own; its parser of markup reads a text in one element.
void KeepText(GMarkupParseContext* /*context_i*/, char const* text_i, gsize length_i, gpointer result_io,
              GError** /*error_o*/) {
  static_cast<std::string*>(result_io)->append(text_i, length_i);
}
void BM_HTMLDecode_ASCII(benchmark::State& state_io) {
  PLXString const text =
      PLXStringUtility::GetHTMLEncodedString(Text(RandomText(Size(state_io), kASCIIMarkup)));
  for (auto _ : state_io) benchmark::DoNotOptimize(PLXStringUtility::GetHTMLDecodedString(text));
  CountBytes(state_io);
}
BENCHMARK(BM_HTMLDecode_ASCII)->Apply(Sizes);

void BM_HTMLDecode_ASCII_GLib(benchmark::State& state_io) {
  PLXString const encoded =
      PLXStringUtility::GetHTMLEncodedString(Text(RandomText(Size(state_io), kASCIIMarkup)));
  PLXString const text = PLXString("<a>") + encoded + "</a>";
  GMarkupParser const parser{nullptr, nullptr, KeepText, nullptr, nullptr};
  for (auto _ : state_io) {
    std::string result;
    GMarkupParseContext* const context =
        g_markup_parse_context_new(&parser, GMarkupParseFlags(0), &result, nullptr);
    g_markup_parse_context_parse(context, text.GetCStringAccess(), text.GetLength(), nullptr);
    g_markup_parse_context_free(context);
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(BM_HTMLDecode_ASCII_GLib)->Apply(Sizes);
#endif

}  // namespace
