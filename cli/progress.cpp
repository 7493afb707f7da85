#include "cli/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>

#include "cli/console.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{2};
constexpr std::chrono::milliseconds kBetween{250};
constexpr std::size_t kUsualColumns = 80;

// What fits on the terminal's line: a longer one could not be taken away again.
std::string Fitting(std::string line) {
  winsize size{};
  const bool is_known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  const std::size_t columns = (is_known ? size.ws_col : kUsualColumns) - 1;
  if (line.size() <= columns) return line;
  std::size_t end = columns;
  while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xc0U) == 0x80) --end;
  line.resize(end);
  return line;
}

}  // namespace

Progress::Progress() {
  if (!IsQuiet() && ::isatty(STDERR_FILENO) == 1) thread_ = std::thread(&Progress::Show, this);
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Progress::Step(std::string what, std::size_t done, std::size_t of) {
  if (of > 0) what = Fill(_("{1} ({2} of {3})"), {what, std::to_string(done), std::to_string(of)});
  const std::lock_guard<std::mutex> lock(mutex_);
  line_ = std::move(what);
}

void Progress::Show() {
  const auto begin = steady_clock::now();
  std::unique_lock<std::mutex> lock(mutex_);
  for (std::chrono::milliseconds pause = kPatience;
       !changed_.wait_for(lock, pause, [this] { return is_over_; }); pause = kBetween) {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - begin).count();
    ShowPassing(Fitting(Fill(_("{1} s  {2}"), {std::to_string(seconds), line_})));
  }
  ShowPassing({});
}

}  // namespace kestrune::cli
