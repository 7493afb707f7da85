#include "cli/program.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <kestrune/kestrune.h>
#include "cli/console.h"
#include "cli/help.h"
#include "cli/output.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::string DefaultKeyFolder() {
  std::string data = Environment("XDG_DATA_HOME");
  // What is no absolute path does not count there.
  if (data.empty() || data[0] != '/') data = Environment("HOME") + "/.local/share";
  return data + "/kestrune/keys";
}

}  // namespace

Program::Program()
    : app_(_("Signs, seals, opens and examines messages of the secure messaging service."), "kestrune") {
  app_.set_help_flag("-h,--help", _("Shows this help"));
  app_.require_subcommand(1);
  app_.add_option("-k,--keys", key_folder_,
                  _("Key folder; else KESTRUNE_KEYS, else kestrune/keys in your data folder"))
      ->type_name(_("FOLDER"));
  app_.add_flag("-q,--quiet", quiet_, _("Says nothing but errors"));
  app_.add_option("--color", colour_, _("auto (on a terminal, without NO_COLOR), always or never"))
      ->type_name(_("WHEN"));
  app_.add_flag("--version", version_, _("Shows the versions of program and library"));
}

CLI::App& Program::Add(const char* name, const char* what, const char* example, Work work, CLI::App* below) {
  CLI::App& command = *(below != nullptr ? below : &app_)->add_subcommand(name, what);
  command.fallthrough();
  commands_[&command] = {example, std::move(work)};
  return command;
}

CLI::App& Program::Chosen() {
  CLI::App* command = &app_;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return *command;
}

void Program::SetColourChoice() const {
  if (colour_ != "auto" && colour_ != "always" && colour_ != "never") {
    throw Failure(Status::kCouldNot, Fill(_("--color {1} is not known."), {Printable(colour_)}),
                  _("Say auto, always or never."));
  }
  SetColour(colour_ == "always" ? Colour::kAlways : colour_ == "never" ? Colour::kNever : Colour::kAuto);
}

Status Program::Run(int argc, char** argv) {
  std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (words.empty()) {
    Note(HelpOf(app_, "", 2));
    return Status::kCouldNot;
  }
  // "help sign" is what other tools have taught people to type.
  if (words[0] == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  // CLI11 wants them the other way round.
  const bool wants_version = words[0] == "--version" || words[0] == "version";
  try {
    if (!wants_version) app_.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::CallForHelp&) {
    SetColourChoice();
    const CLI::App& command = Chosen();
    PrintText(HelpOf(command, commands_[&command].example, 1));
    return Status::kDone;
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(error);
  }
  SetColourChoice();
  SetQuiet(quiet_);
  if (version_ || wants_version) {
    PrintText(Fill("kestrune {1}\nlibkestrune {2}, {3}\n",
                   {KESTRUNE_VERSION_TEXT, kestrune_version(), kestrune_crypto_library()}));
    return Status::kDone;
  }
  return commands_[&Chosen()].work();
}

Failure Program::UsageFailure(const CLI::ParseError& error) {
  const CLI::App& command = Chosen();
  const std::vector<std::string> rest = app_.remaining(true);
  if (&command == &app_ && !rest.empty() && rest[0][0] != '-') {
    return {Status::kCouldNot, Fill(_("\"{1}\" is no command."), {Printable(rest[0])}),
            _("kestrune --help names them.")};
  }
  return {Status::kCouldNot, UsageError(error, command, rest),
          Fill(_("See {1} --help."), {WordsOf(command)})};
}

std::string Program::NewKeyFolder() const {
  std::string folder = key_folder_;
  if (folder.empty()) folder = Environment("KESTRUNE_KEYS");
  if (folder.empty()) folder = DefaultKeyFolder();
  if (folder.back() != '/') folder += '/';
  return folder;
}

std::string Program::KeyFolder() const {
  std::string folder = NewKeyFolder();
  struct stat status {};
  const bool is_there = ::stat(folder.c_str(), &status) == 0;
  if (!is_there || !S_ISDIR(status.st_mode)) {
    const Failure failure = SystemFailure(is_there ? ENOTDIR : errno, folder);
    throw Failure(
        failure.status(), Fill(_("Key folder {1}"), {failure.what()}),
        _("Name yours with -k FOLDER or in KESTRUNE_KEYS; kestrune keys new NAME makes keys for trials."));
  }
  return folder;
}

}  // namespace kestrune::cli
