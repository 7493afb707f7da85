// What is said to the user: everything on standard error, a line at a time.
#ifndef KESTRUNE_CLI_CONSOLE_H
#define KESTRUNE_CLI_CONSOLE_H

#include <string>
#include <string_view>

#include "cli/failure.h"

namespace kestrune::cli {

enum class Colour { kAuto, kAlways, kNever };
enum class Paint { kPlain, kGood, kBad, kStrong };

// --quiet and --color, for the whole run.
void SetQuiet(bool quiet);
bool IsQuiet();
void SetColour(Colour colour);

// `text` in colour where descriptor `fd` (1, 2) is to have it.
std::string Painted(Paint paint, std::string_view text, int fd = 2);

// A line for people; with --quiet none. What comes from a file goes through Printable() first.
void Note(std::string_view line);
// A line that --quiet does not silence.
void Complain(const Failure& failure);

// A line that the next thing said on the terminal replaces; an empty one takes it away. See cli/progress.h.
void ShowPassing(std::string_view line);

}  // namespace kestrune::cli

#endif
