#include "cli/ending.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <thread>
#include <utility>

#include "cli/console.h"

namespace kestrune::cli {
namespace {

std::recursive_mutex final_steps;
std::set<std::string> pending_paths;
std::set<pid_t> children;
int terminal_fd = -1;
termios terminal_settings;

// Waits for one of the signals, cleans up and dies of it. Signals are taken here, and not by a handler, so that all
// this is ordinary code under an ordinary lock.
void WaitForEnd(sigset_t signals) {
  int signal = 0;
  if (::sigwait(&signals, &signal) != 0) return;
  const std::lock_guard<std::recursive_mutex> lock(final_steps);
  for (const pid_t child : children) ::kill(child, SIGKILL);
  if (terminal_fd >= 0) ::tcsetattr(terminal_fd, TCSAFLUSH, &terminal_settings);
  for (auto path = pending_paths.rbegin(); path != pending_paths.rend(); ++path)
    (void)std::remove(path->c_str());
  ShowPassing({});
  sigset_t mine;
  sigemptyset(&mine);
  sigaddset(&mine, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &mine, nullptr);
  ::kill(::getpid(), signal);
  ::_exit(128 + signal);  // a signal that ends nobody by itself
}

}  // namespace

std::unique_lock<std::recursive_mutex> FinishUndisturbed() {
  return std::unique_lock<std::recursive_mutex>(final_steps);
}

void WatchSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction action;
    // What was ignored when the program started (nohup) stays so.
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
      sigaddset(&signals, signal);
  }
  // A write says so itself, and what is pending goes as after any other failure.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(WaitForEnd, signals).detach();
}

Pending::Pending(std::string path) : path_(std::move(path)) {
  const auto lock = FinishUndisturbed();
  pending_paths.insert(path_);
}

Pending::Pending(Pending&& other) noexcept : path_(std::exchange(other.path_, {})) {}

Pending& Pending::operator=(Pending&& other) noexcept {
  if (this != &other) {
    Remove();
    path_ = std::exchange(other.path_, {});
  }
  return *this;
}

void Pending::Keep() {
  const auto lock = FinishUndisturbed();
  pending_paths.erase(path_);
  path_.clear();
}

void Pending::Remove() {
  if (path_.empty()) return;
  const auto lock = FinishUndisturbed();
  (void)std::remove(path_.c_str());
  Keep();
}

void RegisterChild(pid_t child) {
  const auto lock = FinishUndisturbed();
  children.insert(child);
}

void ForgetChild(pid_t child) {
  const auto lock = FinishUndisturbed();
  children.erase(child);
}

void RegisterTerminal(int fd, const termios& settings) {
  const auto lock = FinishUndisturbed();
  terminal_fd = fd;
  terminal_settings = settings;
}

void ForgetTerminal() {
  const auto lock = FinishUndisturbed();
  terminal_fd = -1;
}

}  // namespace kestrune::cli
