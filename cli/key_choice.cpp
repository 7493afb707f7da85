#include "cli/key_choice.h"

#include <ctime>
#include <map>

#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

struct Kind {
  int kind;
  const char* option;
  const char* none;  // what is said where there is none, {1} the year and {2} the folder
  const char* many;  // where there are several, {1} their names
};

// What gettext looks for: translated where it is used.
constexpr const char* N_(const char* text) {
  return text;
}

constexpr Kind kSigning = {KESTRUNE_SIGNING_KEY, "--signer", N_("There is no signing key of {1} in {2}."),
                           N_("There are several signing keys: {1}.")};
constexpr Kind kPersonal = {KESTRUNE_PERSONAL_KEY, "--user", N_("There is no personal key of {1} in {2}."),
                            N_("There are several personal keys: {1}.")};

// A name as a file is called, "martin.z.126" or "martin.z.126.key", stands for that key too.
bool IsCalled(const kestrune_key& key, const std::string& name) {
  return name == key.name || name == key.file || name + ".key" == key.file;
}

// Of those of one name the letter nearest to 'z' counts, as in the library.
ChosenKey Choose(const Kind& kind, const std::string& wanted, const std::string& folder) {
  const KeyList list = ListKeys(folder);
  const int year = ThisYear();
  std::map<std::string, const kestrune_key*> found;
  for (unsigned long long i = 0; i < list->keys; ++i) {
    const kestrune_key& key = list->key[i];
    if (key.kind != kind.kind || key.year != year || (!wanted.empty() && !IsCalled(key, wanted))) continue;
    const kestrune_key*& best = found[key.name];
    if (best == nullptr || best->letter < key.letter) best = &key;
  }
  if (found.empty()) {
    const std::string none = Fill(_(kind.none), {std::to_string(year), Printable(folder)});
    if (!wanted.empty()) {
      throw Failure(Status::kCouldNot, Fill(_("{1}: {2}"), {Printable(wanted), none}),
                    _("kestrune keys list shows what there is; each year has keys of its own."));
    }
    throw Failure(Status::kCouldNot, none, _("Put your key files there, or name another folder with -k."));
  }
  if (found.size() > 1) {
    std::string names;
    for (const auto& [name, key] : found) names += (names.empty() ? "" : ", ") + Printable(name);
    throw Failure(Status::kCouldNot, Fill(_(kind.many), {names}),
                  Fill(_("Say which with {1} NAME."), {kind.option}));
  }
  const kestrune_key& key = *found.begin()->second;
  return {key.name, key.file, key.kind != KESTRUNE_SIGNING_KEY || key.protection != 0};
}

}  // namespace

KeyList ListKeys(const std::string& folder) {
  kestrune_key_folder* list = nullptr;
  const long code = kestrune_list_keys(folder.c_str(), &list);
  if (code != 0) throw LibraryFailure("kestrune_list_keys", code, folder);
  return {list, kestrune_free_key_folder};
}

int ThisYear() {
  const std::time_t now = std::time(nullptr);
  std::tm date{};
  (void)::localtime_r(&now, &date);
  constexpr int kFirstYear = 1900;
  return date.tm_year + kFirstYear;
}

void SignerOption::AddTo(CLI::App& command) {
  command
      .add_option("-s,--signer", name_, _("Signing key; not needed where the folder has one of this year"))
      ->type_name(_("NAME"));
}
ChosenKey SignerOption::Choose(const std::string& folder) const {
  return cli::Choose(kSigning, name_, folder);
}

void UserOption::AddTo(CLI::App& command) {
  command.add_option("-u,--user", name_, _("Personal key; not needed where the folder has one of this year"))
      ->type_name(_("NAME"));
}
ChosenKey UserOption::Choose(const std::string& folder) const {
  return cli::Choose(kPersonal, name_, folder);
}

}  // namespace kestrune::cli
