// kestrune keys: what a key folder holds.
#include <algorithm>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/key_choice.h"
#include "cli/key_report.h"
#include "cli/keys.h"
#include "cli/output.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kIndent = 2;

std::string RowsOf(const KeyList& list, const std::string& folder) {
  std::size_t columns = 0, kind_columns = 0;
  for (unsigned long long i = 0; i < list->keys; ++i) {
    columns = std::max(columns, ColumnsOf(Printable(list->key[i].file)));
    kind_columns = std::max(kind_columns, ColumnsOf(KindOf(list->key[i])));
  }
  std::string rows;
  for (unsigned long long i = 0; i < list->keys; ++i) {
    const kestrune_key& key = list->key[i];
    const std::string year = key.year == 0 ? "-   " : std::to_string(key.year);
    std::string row =
        Padded(Printable(key.file), columns + kIndent) + Padded(KindOf(key), kind_columns + kIndent) + year;
    const std::size_t indent = ColumnsOf(row) + kIndent;
    for (const std::string& remark : Remarks(key, folder + key.file)) {
      row = row.back() == '\n' ? row.append(indent, ' ') : row.append(kIndent, ' ');
      row.append(Printable(remark)).append("\n");
    }
    rows += row.back() == '\n' ? row : row + "\n";
  }
  return rows;
}

Status List(bool as_json, const Program& program) {
  const std::string folder = program.KeyFolder();
  const KeyList list = ListKeys(folder);
  std::string text;
  if (as_json) {
    for (unsigned long long i = 0; i < list->keys; ++i) {
      Json json{{"file", list->key[i].file}};
      json.update(JsonOf(list->key[i]));
      text += LineOf(json);
    }
  } else {
    text = RowsOf(list, folder);
  }
  if (list->keys == 0) Note(Fill(_("There is no key in {1}."), {Printable(folder)}));
  PrintText(text);
  return Status::kDone;
}

}  // namespace

void AddKeys(Program& program) {
  CLI::App& keys = program.Add("keys", _("Shows, checks, makes and carries keys"),
                               "  kestrune keys list\n  kestrune keys check && echo all is well", {});
  keys.require_subcommand(1);
  const auto as_json = std::make_shared<bool>(false);
  CLI::App& list = program.Add(
      "list", _("Shows what the key folder holds, and how far each pad is used"),
      "  kestrune keys list -k keys", [as_json, &program] { return List(*as_json, program); }, &keys);
  list.add_flag("--json", *as_json, _("A JSON object in each line"));
  AddKeysCheck(program, keys);
  AddKeysNew(program, keys);
  AddKeysPack(program, keys);
  AddKeysUnpack(program, keys);
}

}  // namespace kestrune::cli
