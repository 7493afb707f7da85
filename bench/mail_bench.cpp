// Opened messages into mail, beside the bare work that they cannot be made without, in one run:
//   Convert/N            at most 1.5 times EncodeAndCopyTwice/N; ten times N at most 11 times the cost
//   QuotedPrintable      at least 200 MB/s, or 0.3 times the speed of CopyAndTest, whichever is lower
//   Addresses..., Fold   ten times the length at most 12 times the cost
// PeakMemory shows what a conversion takes at its highest point, beyond the tree, per byte of mail made.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "bench/red_tree.h"
#include "crypto/classic.h"
#include "mail/mail_text.h"

namespace {

using kestrune::testing::AttachmentXml;
using kestrune::testing::RedTree;
using kestrune::testing::Routing;

constexpr std::int64_t kMegabyte = 1'000'000;
constexpr int kAttachment = 0, kText = 1, kRecipients = 2;

std::string Bytes(std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 2654435761U >> 13);
  return bytes;
}

// French prose: every tenth word or so has an accent, lines end in CR LF.
std::string Prose(std::size_t length) {
  std::string text;
  while (text.size() < length)
    text += "Le patient a \xC3\xA9t\xC3\xA9 revu en consultation ce jour, sans plainte nouvelle.\r\n";
  return text;
}

std::string Addresses(std::size_t length) {
  std::string list = "d0@ailleurs.example";
  while (list.size() < length) list += ",destinataire@cabinet.example,d1@ailleurs.example";
  return list;
}

RedTree Message(int kind, std::size_t size) {
  Routing routing;
  if (kind == kRecipients) routing.to = Addresses(size);
  RedTree tree;
  tree.Add("ROUT", routing.Xml(), "").Add("TEXT", "", kind == kText ? Prose(size) : "Voir");
  if (kind == kAttachment) tree.Add("PJ", AttachmentXml("YQ=="), Bytes(size));
  return tree;
}

void SetBytes(benchmark::State& state, std::size_t each) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(each));
}

void EncodeAndCopyTwice(benchmark::State& state) {
  const std::string data = Bytes(static_cast<std::size_t>(state.range(0)));
  std::vector<unsigned char> encoded(data.size() * 4 / 3 + 8);
  std::string first(data.size(), 'x'), second(data.size(), 'x');
  for (auto _ : state) {
    std::size_t length = encoded.size();
    benchmark::DoNotOptimize(base64_encode(encoded.data(), &length,
                                           reinterpret_cast<const unsigned char*>(data.data()), data.size()));
    std::memcpy(first.data(), data.data(), data.size());
    std::memcpy(second.data(), first.data(), data.size());
    benchmark::ClobberMemory();
  }
  SetBytes(state, data.size());
}
BENCHMARK(EncodeAndCopyTwice)->Arg(5 * kMegabyte)->Arg(50 * kMegabyte)->Unit(benchmark::kMillisecond);

void Convert(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    RedTree tree = Message(kAttachment, size);
    state.ResumeTiming();
    char* eml = nullptr;
    if (Api2ConvertRedBlockToEml(tree.release(), &eml) != 0) state.SkipWithError("refused");
    state.PauseTiming();
    std::free(eml);
    state.ResumeTiming();
  }
  SetBytes(state, size);
}
BENCHMARK(Convert)->Arg(5 * kMegabyte)->Arg(50 * kMegabyte)->Unit(benchmark::kMillisecond);

void CopyAndTest(benchmark::State& state) {
  const std::string text = Prose(10 * kMegabyte);
  std::string copy(text.size(), 'x');
  for (auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size());
    std::size_t printable = 0;
    for (const char byte : copy) {
      printable += byte >= 33 && byte <= 126 ? 1 : 0;
      benchmark::DoNotOptimize(printable);  // one after the other, as an encoder must
    }
  }
  SetBytes(state, text.size());
}
BENCHMARK(CopyAndTest)->Unit(benchmark::kMillisecond);

void QuotedPrintable(benchmark::State& state) {
  const std::string text = state.range(0) == 0 ? Prose(10 * kMegabyte) : Bytes(10 * kMegabyte);
  for (auto _ : state) {
    char* out = nullptr;
    unsigned long long length = 0;
    benchmark::DoNotOptimize(api2encodeQuotedPrintable(text.data(), text.size(), &out, &length));
    std::free(out);
  }
  SetBytes(state, text.size());
}
BENCHMARK(QuotedPrintable)->ArgName("random")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// In a buffer that holds the largest result of any of them.
template <class Function>
void InPlace(benchmark::State& state, Function function) {
  const std::string text = Addresses(static_cast<std::size_t>(state.range(0)));
  std::vector<char> buffer(4 * text.size());
  for (auto _ : state) {
    std::memcpy(buffer.data(), text.data(), text.size() + 1);
    function(buffer.data());
  }
  SetBytes(state, text.size());
}

void AddressesToGateway(benchmark::State& state) {
  InPlace(state, [](char* text) { convertaddressestomss(text, text); });
}
void AddressesPerLine(benchmark::State& state) {
  InPlace(state, limiteemails);
}
void Fold(benchmark::State& state) {
  InPlace(state, limite78);
}
BENCHMARK(AddressesToGateway)->Arg(100'000)->Arg(kMegabyte)->Unit(benchmark::kMicrosecond);
BENCHMARK(AddressesPerLine)->Arg(100'000)->Arg(kMegabyte)->Unit(benchmark::kMicrosecond);
BENCHMARK(Fold)->Arg(100'000)->Arg(kMegabyte)->Unit(benchmark::kMicrosecond);

// Forgets what the process once needed: the peak becomes what it holds now.
void ResetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

double PeakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

// In a process of its own, whose peak nothing else has raised.
double PeakPerMailByte(int kind, std::size_t size) {
  int channel[2];
  if (pipe(channel) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    RedTree tree = Message(kind, size);
    ResetPeak();
    const double before = PeakBytes();
    char* eml = nullptr;
    Api2ConvertRedBlockToEml(tree.release(), &eml);
    const double ratio = (PeakBytes() - before) / static_cast<double>(std::strlen(eml));
    _exit(write(channel[1], &ratio, sizeof ratio) == static_cast<ssize_t>(sizeof ratio) ? 0 : 1);
  }
  double ratio = -1;
  if (read(channel[0], &ratio, sizeof ratio) != static_cast<ssize_t>(sizeof ratio)) ratio = -1;
  waitpid(child, nullptr, 0);
  close(channel[0]);
  close(channel[1]);
  return ratio;
}

void PeakMemory(benchmark::State& state) {
  double ratio = 0;
  for (auto _ : state) ratio = PeakPerMailByte(static_cast<int>(state.range(0)), 20 * kMegabyte);
  state.counters["times_mail"] = ratio;
}
BENCHMARK(PeakMemory)->ArgName("kind")->Arg(kAttachment)->Arg(kText)->Arg(kRecipients)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
