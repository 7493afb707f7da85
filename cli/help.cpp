#include "cli/help.h"

#include <algorithm>
#include <vector>

#include "cli/console.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kTextColumn = 30;
constexpr std::size_t kLeastGap = 2;

std::size_t Width(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80; }));
}

// `text` in lines that end at kColumns, all but the first one indented.
std::string Wrapped(std::string_view text, std::size_t column, std::size_t indent) {
  std::string lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (column + Width(word) > kColumns && column > indent) {
      lines.pop_back();  // the blank before the word
      lines.append("\n").append(indent, ' ');
      column = indent;
    }
    lines.append(word).append(text.empty() ? "" : " ");
    column += Width(word) + 1;
  }
  return lines;
}

std::string Row(const std::string& left, const std::string& right) {
  std::string row = "  " + left;
  const std::size_t width = Width(row);
  if (width + kLeastGap > kTextColumn) {
    row.append("\n").append(kTextColumn, ' ');
  } else {
    row.append(kTextColumn - width, ' ');
  }
  return row + Wrapped(right, kTextColumn, kTextColumn) + "\n";
}

bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

std::string LeftOf(const CLI::Option& option) {
  if (option.get_positional()) return option.get_type_name();
  std::string names = option.get_name(false, true);
  // "-k,--keys" reads better with a blank; what has no short name stands below the long ones.
  const std::size_t comma = names.find(',');
  if (comma != std::string::npos) names.insert(comma + 1, " ");
  if (names.compare(0, 2, "--") == 0) names.insert(0, "    ");
  return TakesValue(option) ? names + " " + option.get_type_name() : names;
}

std::vector<const CLI::Option*> Options(const CLI::App& command, bool positional) {
  return command.get_options([positional](const CLI::Option* option) {
    return option->get_positional() == positional && !option->get_group().empty();
  });
}

std::string Heading(const char* text, int fd) {
  return "\n" + Painted(Paint::kStrong, text, fd) + "\n";
}

std::string UsageOf(const CLI::App& command) {
  std::string usage = WordsOf(command);
  usage.append(" ").append(_("[OPTIONS]"));
  if (!command.get_subcommands([](const CLI::App*) { return true; }).empty()) {
    usage.append(" ").append(_("COMMAND"));
  }
  for (const CLI::Option* option : Options(command, true)) {
    std::string word = option->get_type_name();
    if (option->get_items_expected_max() > 1) word += "...";
    usage += option->get_required() ? " " + word : " [" + word + "]";
  }
  return usage;
}

std::string OptionRows(const CLI::App& command) {
  std::string rows;
  for (const bool positional : {true, false}) {
    for (const CLI::Option* option : Options(command, positional)) {
      rows += Row(LeftOf(*option), option->get_description());
    }
  }
  return rows;
}

// The parser's messages begin with the option, "--name: ..." or "name is required".
std::string OptionIn(const CLI::ParseError& error) {
  const std::string message = error.what();
  return Printable(message.substr(0, message.find_first_of(": ")));
}

std::string Behind(const CLI::ParseError& error, std::string_view mark) {
  const std::string message = error.what();
  const std::size_t at = message.find(mark);
  return Printable(at == std::string::npos ? message : message.substr(at + mark.size()));
}

}  // namespace

std::string WordsOf(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return parent == nullptr ? command.get_name() : WordsOf(*parent) + " " + command.get_name();
}

std::string HelpOf(const CLI::App& command, const std::string& example, int fd) {
  std::string help = Painted(Paint::kStrong, _("Usage:"), fd) + " " + UsageOf(command) + "\n\n";
  help += Wrapped(command.get_description(), 0, 0) + "\n";
  const auto commands =
      command.get_subcommands([](const CLI::App* below) { return !below->get_group().empty(); });
  if (!commands.empty()) {
    help += Heading(_("Commands:"), fd);
    for (const CLI::App* below : commands) help += Row(below->get_name(), below->get_description());
  }
  help += Heading(_("Options:"), fd) + OptionRows(command);
  const CLI::App* top = &command;
  while (top->get_parent() != nullptr) top = top->get_parent();
  if (top != &command) {
    help += Heading(_("Options of every command:"), fd);
    for (const CLI::Option* option : Options(*top, false)) {
      if (option->get_name() != "--help" && option->get_name() != "--version") {
        help += Row(LeftOf(*option), option->get_description());
      }
    }
  }
  if (!example.empty()) help += Heading(_("Example:"), fd) + example + "\n";
  if (top == &command)
    help += std::string("\n") + _("kestrune COMMAND --help says more about a command.") + "\n";
  return help;
}

std::string UsageError(const CLI::ParseError& error, const CLI::App& command,
                       const std::vector<std::string>& rest) {
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return Fill(_("\"{1}\" is not understood here."),
                {rest.empty() ? Behind(error, ": ") : Printable(rest.front())});
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    const CLI::Option* option = command.get_option_no_throw(OptionIn(error));
    return option == nullptr ? _("A command is missing.") : Fill(_("{1} is missing."), {LeftOf(*option)});
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    return Fill(_("{1} wants one value."), {OptionIn(error)});
  }
  if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
    return Fill(_("A value that is not possible: {1}."), {Behind(error, "convert: ")});
  }
  if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
    return Fill(_("{1} cannot be used with {2}."), {OptionIn(error), Behind(error, "excludes ")});
  }
  if (dynamic_cast<const CLI::RequiresError*>(&error) != nullptr) {
    return Fill(_("{1} needs {2}."), {OptionIn(error), Behind(error, "requires ")});
  }
  return Printable(error.what());
}

}  // namespace kestrune::cli
