// kestrune explain: what a result code means.
#include <charconv>
#include <memory>

#include <kestrune/kestrune.h>
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/output.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

// Codes are below 0, but who copies one often leaves the sign; an exit status shows the low 8 bits alone.
constexpr long kStatuses = 256;

long CodeOf(const std::string& text) {
  const char* begin = text.data() + (text.compare(0, 1, "-") == 0 ? 1 : 0);
  long number = 0;
  const auto [end, error] = std::from_chars(begin, text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) {
    throw Failure(Status::kCouldNot, Fill(_("{1} is no result code."), {Printable(text)}),
                  _("A code is a number, such as -73."));
  }
  return -number;
}

std::string MeaningsOf(long code) {
  std::string text;
  for (unsigned long n = 0;; ++n) {
    const kestrune_code_meaning* meaning = kestrune_code_list(code, n, Language());
    if (meaning == nullptr) return text;
    const std::string heading =
        Fill("{1}  {2} ({3})", {std::to_string(code), meaning->subsystem, meaning->name});
    text.append(Painted(Paint::kStrong, heading, 1)).append("\n  ");
    text.append(meaning->cause).append("\n  ").append(meaning->remedy).append("\n");
  }
}

Status Explain(const std::string& word) {
  const long code = CodeOf(word);
  std::string text =
      code == 0 ? std::string(_("0  The call did what it was asked.")) + "\n" : MeaningsOf(code);
  if (text.empty() && word[0] != '-' && -code < kStatuses) text = MeaningsOf(-code - kStatuses);
  if (text.empty()) {
    throw Failure(Status::kNo, Fill(_("No call of the library answers {1}."), {std::to_string(code)}),
                  _("kestrune-codes(7) lists them all."));
  }
  PrintPainted(text);
  return Status::kDone;
}

}  // namespace

void AddExplain(Program& program) {
  const auto code = std::make_shared<std::string>();
  CLI::App& command =
      program.Add("explain", _("Says what a result code means, and what to do"),
                  "  kestrune explain -73\n  kestrune explain 153     # an exit status of kestrunesign",
                  [code] { return Explain(*code); });
  command.add_option("code", *code, _("The code, or the exit status that a shell shows"))
      ->type_name(_("CODE"))
      ->required();
}

}  // namespace kestrune::cli
