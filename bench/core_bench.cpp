// The Base64 step of a signature block beside the bare call, and whether the readers of foreign text take
// time in proportion to its length. Each line tells how many times its yardstick it took, in the same run.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "bench/measure.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "sign/signature_block.h"

namespace {

using kestrune::bench::Compare;

constexpr std::size_t kFew = 1 << 18;
constexpr std::size_t kMany = 1 << 22;
constexpr int kBlocksAtATime = 1000;

void SignatureBlock(benchmark::State& state, std::size_t bytes) {
  const std::vector<unsigned char> signature(bytes, 'x');
  std::vector<char> out(4096);
  Compare(
      state, kBlocksAtATime,
      [&] {
        for (int i = 0; i < kBlocksAtATime; ++i) {
          if (kestrune::WriteSignatureBlock("cle.z.126.key", signature.data(), bytes, out.data()) != 0)
            std::abort();
          benchmark::ClobberMemory();
        }
      },
      [&] {
        for (int i = 0; i < kBlocksAtATime; ++i) {
          std::size_t room = out.size();
          if (base64_encode(reinterpret_cast<unsigned char*>(out.data()), &room, signature.data(), bytes) !=
              0)
            std::abort();
          benchmark::ClobberMemory();
        }
      });
}

// Time per byte of a long input beside that of a short one: 1 where the work is linear.
template <class Work>
void Growing(benchmark::State& state, Work&& work) {
  constexpr double kScale = static_cast<double>(kMany) / kFew;
  Compare(
      state, kMany, [&] { work(kMany); }, [&] { work(kFew); }, kScale);
}

std::string Repeated(std::string_view piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text.append(piece);
  return text;
}

void LightXml(benchmark::State& state, std::string_view piece) {
  const std::string few = Repeated(piece, kFew);
  const std::string many = Repeated(piece, kMany);
  TypV2Utils utils;
  char out[8];
  Growing(state, [&](std::size_t bytes) {
    const char* xml = bytes == kFew ? few.c_str() : many.c_str();
    benchmark::DoNotOptimize(utils.ExtractSmallValueFromXMLLight(xml, "A", 1000, out, 0, 0));
  });
}

void Hexadecimal(benchmark::State& state) {
  const std::vector<unsigned char> bytes(kMany, 0x9C);
  std::vector<char> out(2 * kMany + 1);
  TypV2Utils utils;
  Growing(state, [&](std::size_t count) {
    utils.Hexadecimalise(bytes.data(), count, out.data());
    benchmark::ClobberMemory();
  });
}

void Searching(benchmark::State& state) {
  const std::vector<unsigned char> bytes(kMany, 'a');
  const std::string nearly = std::string(30, 'A') + 'b';
  TypV2Utils utils;
  Growing(state, [&](std::size_t count) {
    benchmark::DoNotOptimize(utils.possubstringsimplenocase(bytes.data(), count, 0, nearly.c_str()));
  });
}

template <class Work>
void Register(const char* name, Work work) {
  benchmark::RegisterBenchmark(name, work)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(kestrune::bench::Turns(20));
}

}  // namespace

int main(int argc, char** argv) {
  using State = benchmark::State;
  Register("signature_block/256bytes", [](State& s) { SignatureBlock(s, 256); });
  Register("signature_block/512bytes", [](State& s) { SignatureBlock(s, 512); });
  Register("grow16x/xml/opening_tags", [](State& s) { LightXml(s, "<A>"); });
  Register("grow16x/xml/broken_tags", [](State& s) { LightXml(s, "<A></"); });
  Register("grow16x/xml/text", [](State& s) { LightXml(s, "0123456789"); });
  Register("grow16x/hexadecimalise", Hexadecimal);
  Register("grow16x/search_without_case", Searching);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
