// kestrune route: whom sealed messages are from and for, without any pass phrase.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "cli/sealed_file.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

struct Options {
  std::vector<std::string> files;
  bool json = false;
};

std::string Joined(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : ",") + name;
  return joined;
}

// Columns are separated by tabulators, of which none is left in what the block says.
std::string LineOf(const std::string& file, const SealedFile& sealed, const Routing& routing) {
  std::string line;
  for (const std::string& column :
       {file, sealed.signer.empty() ? std::string("-") : sealed.signer, routing.sender,
        Joined(routing.recipients), routing.key, routing.identifier}) {
    line += (line.empty() ? "" : "\t") + Printable(column);
  }
  return line + "\n";
}

std::string JsonOf(const std::string& file, const SealedFile& sealed, const Routing& routing) {
  nlohmann::ordered_json object;
  object["file"] = file;
  object["kind"] = sealed.is_transport ? "transport" : "grey";
  object["signer"] = sealed.is_transport ? nlohmann::ordered_json(sealed.signer) : nlohmann::ordered_json();
  object["sender"] = routing.sender;
  object["recipients"] = routing.recipients;
  object["key"] = routing.key;
  object["identifier"] = routing.identifier;
  object["date"] = routing.date;
  object["subject"] = routing.subject;
  // What is no UTF-8 is replaced: it came from outside.
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

Status Route(const Options& options, const Program& program) {
  Status worst = Status::kDone;
  Progress progress;
  for (std::size_t i = 0; i < options.files.size(); ++i) {
    const std::string& file = options.files[i];
    progress.Step(Fill(_("Looking at {1}"), {Printable(file)}), i, options.files.size());
    try {
      const SealedFile sealed = ReadSealedFile(file, [&program] { return program.KeyFolder(); });
      if (sealed.doubt) throw Failure(*sealed.doubt);
      const Routing routing(sealed.routing);
      PrintText(options.json ? JsonOf(file, sealed, routing) : LineOf(file, sealed, routing));
    } catch (const Failure& failure) {
      Complain(failure);
      worst = Worst(worst, failure.status());
    }
  }
  return worst;
}

}  // namespace

void AddRoute(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.Add(
      "route", _("Lists signer, sender, recipients, key and identifier of sealed messages, a line each"),
      "  kestrune route --json inbox/* | jq -r .sender",
      [options, &program] { return Route(*options, program); });
  command
      .add_option("file", options->files,
                  _("Transport blocks, whose signature is checked, and grey blocks (signer \"-\")"))
      ->type_name(_("FILE"))
      ->required();
  command.add_flag("--json", options->json, _("A JSON object for each message, a line each"));
}

}  // namespace kestrune::cli
