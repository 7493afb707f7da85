// What a long command is at, on a terminal.
#ifndef KESTRUNE_CLI_PROGRESS_H
#define KESTRUNE_CLI_PROGRESS_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kestrune::cli {

// From two seconds on, shows the step and the seconds in a line that goes away again. Does nothing with --quiet
// and where standard error is no terminal.
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // "Deciphering message.tr"; with `of`, how many steps of how many are done. Any thread may call it.
  void Step(std::string what, std::size_t done = 0, std::size_t of = 0);

 private:
  void Show();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::string line_;
  bool is_over_ = false;
  std::thread thread_;
};

}  // namespace kestrune::cli

#endif
