// Times whole runs of the tool beside the least program that could do its job and beside openssl, in turn, so
// that what else the machine does falls on all alike.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"

extern char** environ;

namespace {

constexpr int kDefaultRounds = 400;

struct Candidate {
  std::string name;
  std::vector<std::string> words;
  std::vector<double> milliseconds;

  double Quantile(double part) {
    std::sort(milliseconds.begin(), milliseconds.end());
    return milliseconds[static_cast<std::size_t>(part * static_cast<double>(milliseconds.size() - 1))];
  }
};

// One run with its output thrown away; ends the program when it fails.
double Run(const std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const auto begin = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = -1;
  if (::posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
    ::waitpid(child, &status, 0);
  }
  const auto end = std::chrono::steady_clock::now();
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) {
    std::fprintf(stderr, "%s failed\n", argv[0]);
    std::exit(1);
  }
  return std::chrono::duration<double, std::milli>(end - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultRounds;
  const kestrune::testing::KeyFolder folder;
  const std::string key = folder.File(folder.AddSigningKey("rsa2048", "cle") + ".key");
  kestrune::testing::WriteFile(folder.File("text"), "bonjour");
  Candidate candidates[] = {
      {"kestrunesign", {KESTRUNE_TOOL, "-x", "-i", "bonjour", "-s", "cle", "-k", folder.path()}, {}},
      {"least program", {KESTRUNE_LEAST_SIGNER, "bonjour", key}, {}},
      {"openssl pkeyutl", {"openssl", "pkeyutl", "-sign", "-inkey", key, "-in", folder.File("text")}, {}}};
  for (int round = 0; round < rounds; ++round) {
    for (Candidate& candidate : candidates) candidate.milliseconds.push_back(Run(candidate.words));
  }

  std::printf("%d runs of each, in turn; a 2048-bit key\n%-16s %10s %10s %22s\n", rounds, "", "median ms",
              "lower 10%", "kestrunesign's ratio");
  for (Candidate& candidate : candidates) {
    std::printf("%-16s %10.3f %10.3f %15.2f (%.2f)\n", candidate.name.c_str(), candidate.Quantile(0.5),
                candidate.Quantile(0.1), candidates[0].Quantile(0.5) / candidate.Quantile(0.5),
                candidates[0].Quantile(0.1) / candidate.Quantile(0.1));
  }
  return 0;
}
