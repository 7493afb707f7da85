// Enciphering and deciphering installation files, beside what nobody can do it without: SHA-1 and AES-CBC
// over the same bytes, and reading and writing them with the system's own calls.
//
// Compare the times of one size; whole ones are at most 1.43 times the bare ones. "peak_MB" is the most
// memory that the program has held so far: it must not grow with the size, and stays under 16.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <string>

#include "core/instance_creator.h"
#include "crypto/classic.h"
#include "keys/install_cipher.h"
#include "tests/support/temp_folder.h"

namespace {

constexpr char kKey[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
constexpr std::size_t kMegabyte = 1000 * 1000;
constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr double kKilobytesPerMegabyte = 1024;

using Piece = std::array<unsigned char, kPieceBytes>;

struct Files {
  explicit Files(std::size_t megabytes) {
    const int fd = ::open(clear.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string megabyte(kMegabyte, 'k');
    for (std::size_t i = 0; i < megabytes; ++i) {
      valid = valid && ::write(fd, megabyte.data(), megabyte.size()) == static_cast<ssize_t>(kMegabyte);
    }
    ::close(fd);
    cipher.InitCreate(&creator);
    valid = valid && cipher.Chiffrerfichier(clear.c_str(), sealed.c_str(), kKey) == 0;
  }

  kestrune::testing::TempFolder folder;
  std::string clear = folder.File("clear");
  std::string sealed = folder.File("sealed");
  std::string out = folder.File("out");
  TypV2InstanceCreatorUnix creator;
  TypV2AESInstallKeys cipher;
  bool valid = true;
};

void Report(benchmark::State& state) {
  rusage usage;
  ::getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MB"] = static_cast<double>(usage.ru_maxrss) / kKilobytesPerMegabyte;
  state.SetBytesProcessed(state.iterations() * state.range(0) * static_cast<long>(kMegabyte));
}

void BM_Encipher(benchmark::State& state) {
  Files files(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    if (!files.valid || files.cipher.Chiffrerfichier(files.clear.c_str(), files.out.c_str(), kKey) != 0) {
      state.SkipWithError("the file was not enciphered");
    }
  }
  Report(state);
}

void BM_Decipher(benchmark::State& state) {
  Files files(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    if (!files.valid || files.cipher.DeChiffrerfichier(files.sealed.c_str(), files.out.c_str(), kKey) != 0) {
      state.SkipWithError("the file was not deciphered");
    }
  }
  Report(state);
}

template <int kMode>
void BM_BarePrimitives(benchmark::State& state) {
  Files files(static_cast<std::size_t>(state.range(0)));
  static Piece piece;
  for (auto _ : state) {
    std::array<unsigned char, 32> key{};
    std::array<unsigned char, 16> iv{};
    aes_context aes;
    sha1_context sha1;
    sha1_starts(&sha1);
    const auto set_key = kMode == AES_ENCRYPT ? aes_setkey_enc : aes_setkey_dec;
    set_key(&aes, key.data(), 256);
    const int in = ::open(files.sealed.c_str(), O_RDONLY);
    const int out = ::open(files.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    for (ssize_t got = 0; (got = ::read(in, piece.data(), piece.size())) > 0;) {
      const auto count = static_cast<std::size_t>(got);
      sha1_update(&sha1, piece.data(), count);
      aes_crypt_cbc(&aes, kMode, count, iv.data(), piece.data(), piece.data());
      if (::write(out, piece.data(), count) != got) state.SkipWithError("writing failed");
    }
    std::array<unsigned char, 20> digest;
    sha1_finish(&sha1, digest.data());
    benchmark::DoNotOptimize(digest);
    ::close(in);
    ::close(out);
  }
  Report(state);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_BarePrimitives<AES_ENCRYPT>)->Apply(Sizes)->Name("BM_BareEncipher");
BENCHMARK(BM_Encipher)->Apply(Sizes);
BENCHMARK(BM_BarePrimitives<AES_DECRYPT>)->Apply(Sizes)->Name("BM_BareDecipher");
BENCHMARK(BM_Decipher)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
