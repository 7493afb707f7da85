// Flattening, loading, killing and exporting trees, beside the digest, the Base64 and the copies that they
// cannot do without. Each line tells how many times the bare primitives it took, in the same run.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"

namespace {

using kestrune::CBuffer;
using kestrune::Owned;
using kestrune::bench::Seconds;

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

// One operation on a million cells beside the same on a hundred thousand: `Run` gives the seconds it took.
template <class Make, class Run>
void Growing(benchmark::State& state, Make&& make, Run&& run) {
  const CBuffer few = make(kScaleFew);
  const CBuffer many = make(kScaleMany);
  Compare(
      state, [&] { return run(many); }, [&] { return run(few); });
}

// Into fresh memory, so that a tree does not depend on what the one before it left behind.
Cell Load(const CBuffer& flat) {
  malloc_trim(0);
  Cell tree = NewCell();
  Require(tree->LoadFlatData(flat.data(), flat.size()));
  return tree;
}

double LoadOnce(const CBuffer& flat) {
  malloc_trim(0);
  const Cell tree = NewCell();
  return Seconds([&] { Require(tree->LoadFlatData(flat.data(), flat.size())); });
}

double MeasureOnce(const CBuffer& flat) {
  const Cell tree = Load(flat);
  return Seconds([&] { benchmark::DoNotOptimize(tree->GetFlatDataLen()); });
}

double FlattenOnce(const CBuffer& flat) {
  const Cell tree = Load(flat);
  return Seconds([&] { Flatten(tree); });
}

double ExportOnce(const CBuffer& flat) {
  const Cell tree = Load(flat);
  std::vector<char> out(flat.size() * 3);
  long long position = 0;
  const auto capacity = static_cast<long long>(out.size());
  return Seconds([&] { Require(tree->ExportBlockAsXML(out.data(), &position, capacity, 1)); });
}

double KillOnce(const CBuffer& flat) {
  Cell tree = Load(flat);
  return Seconds([&] { tree.Reset(); });
}

template <class Work>
void Register(const std::string& name, Work work) {
  benchmark::RegisterBenchmark(name.c_str(), work)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(kestrune::bench::Turns(10));
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
  const auto siblings = [](std::size_t cells) { return Flatten(FlatTree(cells, 1)); };
  const struct {
    std::string name;
    double (*run)(const CBuffer&);
  } operations[] = {{"load", LoadOnce},
                    {"measure", MeasureOnce},
                    {"flatten", FlattenOnce},
                    {"export", ExportOnce},
                    {"kill", KillOnce}};
  for (const auto& [name, run] : operations) {
    Register("grow10x/siblings/" + name, [siblings, run](State& s) { Growing(s, siblings, run); });
    Register("grow10x/nested/" + name, [run](State& s) { Growing(s, NestedTree, run); });
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
