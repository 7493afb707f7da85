// Flattening, loading, killing and exporting trees, beside the digest, the Base64 and the copies that they
// cannot do without. Each line tells how many times the bare primitives it took, in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"

namespace {

using kestrune::CBuffer;
using kestrune::Owned;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kLargeForks = 4;
constexpr std::size_t kLargeForkBytes = 16 << 20;
constexpr std::size_t kSmallCells = 100'000;
constexpr std::size_t kSmallForkBytes = 100;
constexpr std::size_t kScaleFew = 100'000;
constexpr std::size_t kScaleMany = 1'000'000;

TypV2InstanceCreatorUnix factory;
using Cell = Owned<TypV2BlockCell>;

Cell NewCell() {
  Cell cell(factory.newTypV2BlockCell());
  if (cell.Init(&factory) != 0) std::abort();
  return cell;
}

void Require(int rc) {
  if (rc != 0) std::abort();
}

Cell FlatTree(std::size_t cells, std::size_t fork_bytes) {
  Cell root = NewCell();
  const std::vector<unsigned char> fork(fork_bytes, 'x');
  for (std::size_t i = 0; i < cells; ++i)
    Require(root->AddSubBlockWithData("PJ", "<AT/>", fork.data(), fork.size(), nullptr));
  return root;
}

CBuffer Flatten(const Cell& tree) {
  CBuffer flat;
  Require(flat.Receive([&](auto** out, auto* length) { return tree->GetFlatData(out, length, nullptr); }));
  return flat;
}

CBuffer NestedTree(std::size_t levels) {
  const Cell root = NewCell();
  TypV2BlockCell* lowest = root.get();
  while (--levels > 0) Require(lowest->AddSubBlockWithData("S", nullptr, nullptr, 0, &lowest));
  return Flatten(root);
}

template <class Work>
double Seconds(Work&& work) {
  const auto begin = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// The digest of the bytes, and a copy of them into fresh memory.
double DigestAndCopy(const CBuffer& flat) {
  return Seconds([&] {
    unsigned char digest[kSha512Bytes];
    sha4(flat.data(), flat.size(), digest, 0);
    void* copy = std::malloc(flat.size());
    if (copy == nullptr) std::abort();
    std::memcpy(copy, flat.data(), flat.size());
    benchmark::DoNotOptimize(copy);
    benchmark::DoNotOptimize(digest);
    benchmark::ClobberMemory();
    std::free(copy);
  });
}

// Reports an operation's best time and how many times the primitives' best one it is.
template <class Operation, class Primitives>
void Compare(benchmark::State& state, Operation&& operation, Primitives&& primitives) {
  double best = 1e9;
  double bare = 1e9;
  for (auto _ : state) {
    bare = std::min(bare, primitives());
    const double seconds = operation();
    best = std::min(best, seconds);
    state.SetIterationTime(seconds);
  }
  state.counters["bare_ms"] = bare * 1e3;
  state.counters["ratio"] = best / bare;
}

void Flattening(benchmark::State& state, std::size_t cells, std::size_t fork_bytes) {
  const Cell tree = FlatTree(cells, fork_bytes);
  const CBuffer flat = Flatten(tree);
  Compare(
      state, [&] { return Seconds([&] { Flatten(tree); }); }, [&] { return DigestAndCopy(flat); });
}

void Loading(benchmark::State& state, std::size_t cells, std::size_t fork_bytes) {
  const CBuffer flat = Flatten(FlatTree(cells, fork_bytes));
  const auto load = [&] {
    const Cell loaded = NewCell();
    return Seconds([&] { Require(loaded->LoadFlatData(flat.data(), flat.size())); });
  };
  Compare(state, load, [&] { return DigestAndCopy(flat); });
}

// Beside loading.
void Killing(benchmark::State& state, const CBuffer& flat) {
  double loading = 0;
  Cell loaded;
  const auto load = [&] {
    loaded = NewCell();
    loading = Seconds([&] { Require(loaded->LoadFlatData(flat.data(), flat.size())); });
    return loading;
  };
  Compare(
      state, [&] { return Seconds([&] { loaded.Reset(); }); }, load);
}

// Beside Base64 of the data and one copy of the text.
void Exporting(benchmark::State& state, std::size_t cells, std::size_t fork_bytes) {
  const Cell tree = FlatTree(cells, fork_bytes);
  const std::vector<unsigned char> fork(fork_bytes, 'x');
  std::vector<char> out(cells * (fork_bytes * 2 + 64) + 64);
  std::vector<char> copy(out.size());
  long long position = 0;
  const auto capacity = static_cast<long long>(out.size());
  const auto export_tree = [&] {
    position = 0;
    return Seconds([&] { Require(tree->ExportBlockAsXML(out.data(), &position, capacity, 1)); });
  };
  export_tree();
  const auto base64_and_copy = [&] {
    return Seconds([&] {
      for (std::size_t i = 0; i < cells; ++i) {
        std::size_t room = copy.size();
        Require(
            base64_encode(reinterpret_cast<unsigned char*>(copy.data()), &room, fork.data(), fork.size()));
      }
      std::memcpy(copy.data(), out.data(), static_cast<std::size_t>(position));
      benchmark::ClobberMemory();
    });
  };
  Compare(state, export_tree, base64_and_copy);
}

// A million cells beside a hundred thousand: load, measure, flatten, export and kill.
template <class Make>
void Growing(benchmark::State& state, Make&& make) {
  const CBuffer few = make(kScaleFew);
  const CBuffer many = make(kScaleMany);
  std::vector<char> out(64 * kScaleMany);
  const auto use = [&](const CBuffer& flat) {
    return Seconds([&] {
      const Cell tree = NewCell();
      Require(tree->LoadFlatData(flat.data(), flat.size()));
      benchmark::DoNotOptimize(tree->GetFlatDataLen());
      Flatten(tree);
      long long position = 0;
      Require(tree->ExportBlockAsXML(out.data(), &position, static_cast<long long>(out.size()), 1));
    });
  };
  Compare(
      state, [&] { return use(many); }, [&] { return use(few); });
}

template <class Work>
void Register(const char* name, Work work) {
  benchmark::RegisterBenchmark(name, work)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
}

}  // namespace

int main(int argc, char** argv) {
  using State = benchmark::State;
  Register("flatten/64MiB", [](State& s) { Flattening(s, kLargeForks, kLargeForkBytes); });
  Register("flatten/100000cells", [](State& s) { Flattening(s, kSmallCells, kSmallForkBytes); });
  Register("load/64MiB", [](State& s) { Loading(s, kLargeForks, kLargeForkBytes); });
  Register("load/100000cells", [](State& s) { Loading(s, kSmallCells, kSmallForkBytes); });
  Register("kill/64MiB", [](State& s) { Killing(s, Flatten(FlatTree(kLargeForks, kLargeForkBytes))); });
  Register("kill/100000cells", [](State& s) { Killing(s, Flatten(FlatTree(kSmallCells, kSmallForkBytes))); });
  Register("kill/1000000nested", [](State& s) { Killing(s, NestedTree(kScaleMany)); });
  Register("export/64MiB", [](State& s) { Exporting(s, kLargeForks, kLargeForkBytes); });
  Register("export/100000cells", [](State& s) { Exporting(s, kSmallCells, kSmallForkBytes); });
  Register("grow10x/siblings",
           [](State& s) { Growing(s, [](std::size_t cells) { return Flatten(FlatTree(cells, 1)); }); });
  Register("grow10x/nested", [](State& s) { Growing(s, NestedTree); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
