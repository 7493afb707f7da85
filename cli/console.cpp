#include "cli/console.h"

#include <unistd.h>

#include <cstdlib>
#include <mutex>

#include "cli/descriptor.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

bool is_quiet = false;
Colour colour_choice = Colour::kAuto;
std::mutex standard_error;
bool has_passing_line = false;

bool HasColour(int fd) {
  if (colour_choice != Colour::kAuto) return colour_choice == Colour::kAlways;
  const char* no_color = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (no_color == nullptr || *no_color == 0) && ::isatty(fd) == 1 && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

// One write for each, so that what several say at a time stays whole lines. There is nobody to tell when it fails.
void Write(std::string_view text) {
  (void)WriteAll(STDERR_FILENO, text);
}

constexpr std::string_view kTakeLineAway = "\r\033[K";

void WriteLine(std::string_view line) {
  const std::lock_guard<std::mutex> lock(standard_error);
  std::string text(has_passing_line ? kTakeLineAway : std::string_view());
  has_passing_line = false;
  Write(text.append(line).append("\n"));
}

}  // namespace

void SetQuiet(bool quiet) {
  is_quiet = quiet;
}
bool IsQuiet() {
  return is_quiet;
}
void SetColour(Colour colour) {
  colour_choice = colour;
}

std::string Painted(Paint paint, std::string_view text, int fd) {
  if (paint == Paint::kPlain || !HasColour(fd)) return std::string(text);
  const char* code = paint == Paint::kGood ? "\033[32m" : paint == Paint::kBad ? "\033[1;31m" : "\033[1m";
  return std::string(code).append(text).append("\033[0m");
}

void Note(std::string_view line) {
  if (!is_quiet) WriteLine(line);
}

void Complain(const Failure& failure) {
  std::string text = Painted(Paint::kBad, "kestrune:") + " " + failure.what();
  if (!failure.remedy().empty()) text.append("\n  ").append(failure.remedy());
  WriteLine(text);
}

void ShowPassing(std::string_view line) {
  const std::lock_guard<std::mutex> lock(standard_error);
  if (line.empty() && !has_passing_line) return;
  Write(std::string(kTakeLineAway).append(line));
  has_passing_line = !line.empty();
}

}  // namespace kestrune::cli
