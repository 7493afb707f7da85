// Enciphering and deciphering a text of 10 MB under a password, beside what nobody can do it without: AES-CBC
// and Base64 over the same bytes, by mbed TLS itself. Whole ones are at most 1.3 times the bare ones.
#include <benchmark/benchmark.h>
#include <mbedtls/aes.h>
#include <mbedtls/base64.h>

#include <array>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>

namespace {

constexpr char kPassword[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
constexpr std::size_t kTextBytes = 10 * 1000 * 1000;  // a multiple of the cipher's block

void BM_BareEncipher(benchmark::State& state) {
  std::vector<unsigned char> text(kTextBytes, 't');
  std::vector<unsigned char> base64(2 * kTextBytes);
  for (auto _ : state) {
    std::array<unsigned char, 32> key{};
    std::array<unsigned char, 16> iv{};
    mbedtls_aes_context aes;
    mbedtls_aes_init(&aes);
    mbedtls_aes_setkey_enc(&aes, key.data(), 256);
    mbedtls_aes_crypt_cbc(&aes, MBEDTLS_AES_ENCRYPT, text.size(), iv.data(), text.data(), text.data());
    std::size_t length = 0;
    mbedtls_base64_encode(base64.data(), base64.size(), &length, text.data(), text.size());
    benchmark::DoNotOptimize(base64.data());
    mbedtls_aes_free(&aes);
  }
}

void BM_BareDecipher(benchmark::State& state) {
  const std::vector<unsigned char> base64(kTextBytes / 3 * 4, 'A');
  std::vector<unsigned char> text(kTextBytes);
  for (auto _ : state) {
    std::array<unsigned char, 32> key{};
    std::array<unsigned char, 16> iv{};
    std::size_t length = 0;
    mbedtls_base64_decode(text.data(), text.size(), &length, base64.data(), base64.size());
    mbedtls_aes_context aes;
    mbedtls_aes_init(&aes);
    mbedtls_aes_setkey_dec(&aes, key.data(), 256);
    mbedtls_aes_crypt_cbc(&aes, MBEDTLS_AES_DECRYPT, length / 16 * 16, iv.data(), text.data(), text.data());
    benchmark::DoNotOptimize(text.data());
    mbedtls_aes_free(&aes);
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
