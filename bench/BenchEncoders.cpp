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

// ---- Quoted-printable ----

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

}  // namespace
