// What happens when the program is ended from outside: nothing half-done stays.
#ifndef KESTRUNE_CLI_ENDING_H
#define KESTRUNE_CLI_ENDING_H

#include <sys/types.h>
#include <termios.h>

#include <mutex>
#include <set>
#include <string>

namespace kestrune::cli {

// Held while something becomes final (a file renamed, a folder filled): a signal waits for its end.
std::unique_lock<std::recursive_mutex> FinishUndisturbed();

// From now on SIGINT, SIGTERM, SIGHUP and SIGQUIT are taken by a thread of their own, which removes what is
// pending, gives the terminal its echo back, ends the children, and then lets the signal do its work. Call it
// before any other thread starts.
void WatchSignals();

// A file or an empty folder that goes when the program ends, or this object does, before it is kept.
class Pending {
 public:
  Pending() = default;
  explicit Pending(std::string path);
  Pending(Pending&& other) noexcept;
  Pending& operator=(Pending&& other) noexcept;
  ~Pending() { Remove(); }

  const std::string& path() const { return path_; }
  void Keep();
  void Remove();

 private:
  std::string path_;
};

// A child that does not outlive the program.
void RegisterChild(pid_t child);
void ForgetChild(pid_t child);

// The terminal's own settings while it is kept from echoing.
void RegisterTerminal(int fd, const termios& settings);
void ForgetTerminal();

}  // namespace kestrune::cli

#endif
