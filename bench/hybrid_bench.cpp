// Enciphering and deciphering a text of 10 MB under a password, beside what nobody can do it without: AES-CBC
// and Base64 over the same bytes. Whole ones are at most 1.3 times the bare ones.
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "crypto/classic.h"

namespace {

constexpr char kPassword[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
constexpr std::size_t kTextBytes = 10 * 1000 * 1000;  // a multiple of the cipher's block

void BM_BareEncipher(benchmark::State& state) {
  std::vector<unsigned char> text(kTextBytes, 't');
  std::vector<unsigned char> base64(2 * kTextBytes);
  for (auto _ : state) {
    std::array<unsigned char, 32> key{};
    std::array<unsigned char, 16> iv{};
    aes_context aes;
    aes_setkey_enc(&aes, key.data(), 256);
    aes_crypt_cbc(&aes, AES_ENCRYPT, text.size(), iv.data(), text.data(), text.data());
    std::size_t length = base64.size();
    base64_encode(base64.data(), &length, text.data(), text.size());
    benchmark::DoNotOptimize(base64.data());
  }
}

void BM_BareDecipher(benchmark::State& state) {
  const std::vector<unsigned char> base64(kTextBytes / 3 * 4, 'A');
  std::vector<unsigned char> text(kTextBytes);
  for (auto _ : state) {
    std::array<unsigned char, 32> key{};
    std::array<unsigned char, 16> iv{};
    std::size_t length = text.size();
    base64_decode(text.data(), &length, base64.data(), base64.size());
    aes_context aes;
    aes_setkey_dec(&aes, key.data(), 256);
    aes_crypt_cbc(&aes, AES_DECRYPT, length / 16 * 16, iv.data(), text.data(), text.data());
    benchmark::DoNotOptimize(text.data());
  }
}

void BM_Api2AesEncipher(benchmark::State& state) {
  const std::string text(kTextBytes, 't');
  std::string form(2 * kTextBytes, '\0');
  for (auto _ : state) {
    if (Api2Aes(text.c_str(), kPassword, 0, form.data(), 0) != 0) state.SkipWithError("not enciphered");
  }
}

void BM_Api2AesDecipher(benchmark::State& state) {
  std::string text(kTextBytes, 't');
  std::string form(2 * kTextBytes, '\0');
  Api2Aes(text.c_str(), kPassword, 0, form.data(), 0);
  for (auto _ : state) {
    if (Api2Aes(form.c_str(), kPassword, 1, text.data(), 0) != 0) state.SkipWithError("not deciphered");
  }
}

BENCHMARK(BM_BareEncipher)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Api2AesEncipher)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareDecipher)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Api2AesDecipher)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
