// kestrune keys check: what is wrong with a key folder.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <set>

#include "cli/console.h"
#include "cli/key_choice.h"
#include "cli/key_report.h"
#include "cli/keys.h"
#include "cli/output.h"
#include "cli/text.h"
#include "crypto/classic.h"

namespace kestrune::cli {
namespace {

constexpr unsigned long long kNearlyUsed = 90;  // percent
constexpr int kNovember = 10;                   // as tm_mon counts
constexpr mode_t kOthersRights = 077, kOthersMayWrite = 022, kAllRights = 07777;

class Check {
 public:
  Check(std::string folder, PassPhrases& pass_phrases)
      : folder_(std::move(folder)), list_(ListKeys(folder_)), pass_phrases_(pass_phrases) {}

  Status Run() {
    CheckFolder();
    for (unsigned long long i = 0; i < list_->keys; ++i) CheckKey(list_->key[i]);
    CheckMasterKeys();
    CheckYears();
    PrintPainted(findings_);
    if (!unchecked_.empty()) {
      Note(Fill(_("Whether the certificate fits was not checked of: {1}; give the pass phrase with "
                  "--passphrase-file."),
                {unchecked_}));
    }
    if (findings_.empty()) Note(Painted(Paint::kGood, _("Nothing wrong was found.")));
    return findings_.empty() ? Status::kDone : Status::kNo;
  }

 private:
  void Find(const std::string& subject, const std::string& what, const std::string& remedy) {
    findings_ += Fill(_("{1}: {2}"), {Painted(Paint::kStrong, Printable(subject), 1), what}) + "\n  " +
                 Printable(remedy) + "\n";
  }

  void CheckFolder() {
    struct stat status {};
    if (list_->keys == 0) {
      Find(folder_, _("There is no key in this folder."),
           _("Put your key files there, or make some to try things out: kestrune keys new NAME."));
    }
    if (::stat(folder_.c_str(), &status) == 0 && (status.st_mode & kOthersMayWrite) != 0) {
      Find(folder_, _("Others may put certificates there, and so sign as anybody."),
           Fill("chmod 700 {1}", {Quoted(folder_)}));
    }
  }

  void CheckKey(const kestrune_key& key) {
    CheckRights(key);
    const std::string path = folder_ + key.file;
    if (key.kind == KESTRUNE_SIGNING_KEY && key.protection == 2) {
      Find(path, _("Its protection cannot be read here."),
           Fill(_("This converts it: {1} (without # $ & * - = @ in the new pass phrase)"),
                {ConvertingCommand(path)}));
    } else if (key.state != 0) {
      const Failure why = WhyUnusable(key);
      Find(path, why.what(), why.remedy());
    } else if (key.kind == KESTRUNE_SIGNING_KEY && key.year != 0) {
      CheckPair(key);
    }
    // Those of past years are sealed with no more.
    if (key.year >= ThisYear()) CheckPadsOfKey(key);
  }

  void CheckRights(const kestrune_key& key) {
    struct stat status {};
    const std::string path = folder_ + key.file;
    const mode_t forbidden = key.kind == KESTRUNE_CERTIFICATE ? kOthersMayWrite : kOthersRights;
    if (::stat(path.c_str(), &status) != 0 || (status.st_mode & forbidden) == 0) return;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%03o", static_cast<unsigned>(status.st_mode & kAllRights));
    Find(path,
         Fill(key.kind == KESTRUNE_CERTIFICATE ? _("Others may change this certificate (mode {1}).")
                                               : _("Others may read this key (mode {1})."),
              {mode}),
         Fill(key.kind == KESTRUNE_CERTIFICATE ? "chmod go-w {1}" : "chmod 600 {1}", {Quoted(path)}));
  }

  void CheckPadsOfKey(const kestrune_key& key) {
    for (int i = 0; i < kPadsOfKey; ++i) {
      const Pad pad = PadOf(key, i);
      if (pad.bytes == 0 || pad.percent() <= kNearlyUsed) continue;
      Find(folder_ + key.file,
           Fill(pad.turns > 0 ? _("Its pad began again, so that bytes are used twice: {1}.")
                              : _("Its pad is nearly used up: {1}."),
                {Gauge(pad)}),
           _("Ask the service for a new key."));
    }
  }

  // A pair belongs together when what the key signs holds with the certificate.
  void CheckPair(const kestrune_key& key) {
    const std::string path = folder_ + key.file;
    const std::string certificate_path = path.substr(0, path.size() - std::strlen("key")) + "pem";
    x509_cert certificate;
    const kestrune_key* entry = Entry(certificate_path.substr(folder_.size()));
    if (entry == nullptr) {
      Find(path, _("Its certificate is missing."),
           Fill(_("Put it beside the key: {1}."), {Printable(certificate_path)}));
      return;
    }
    if (entry->state != 0 || x509parse_crtfile(&certificate, certificate_path.c_str()) < 0)
      return;  // said of itself
    Secret phrase;
    if (key.protection != 0) {
      if (!pass_phrases_.is_given()) {
        unchecked_ += (unchecked_.empty() ? "" : ", ") + Printable(key.file);
        return;
      }
      phrase = pass_phrases_.Of(key.file);
      AsInKeys(phrase);
    }
    rsa_context rsa;
    const int rc = x509parse_keyfile(&rsa, path.c_str(), phrase.text());
    if (rc == ERR_X509_KEY_PASSWORD_MISMATCH) {
      Find(path, _("The pass phrase that was given does not open it."), _("Give the one of this key."));
    } else if (rc == 0 && !Fits(rsa, certificate.rsa)) {
      Find(certificate_path, _("This certificate is another key's: nobody could check what is signed."),
           _("Ask the service for the pair again."));
    }
  }

  static bool Fits(rsa_context& key, rsa_context& certificate) {
    constexpr unsigned char kText[] = "kestrune";
    if (key.len() != certificate.len()) return false;
    std::array<unsigned char, kRsaMostBytes> signature{};
    return rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW, sizeof kText, kText, signature.data()) == 0 &&
           rsa_pkcs1_verify(&certificate, RSA_PUBLIC, SIG_RSA_RAW, sizeof kText, kText, signature.data()) ==
               0;
  }

  const kestrune_key* Entry(const std::string& file) const {
    const kestrune_key* end = list_->key + list_->keys;
    const auto* found =
        std::find_if(list_->key, end, [&file](const kestrune_key& key) { return file == key.file; });
    return found == end ? nullptr : found;
  }

  // What a personal key of a year sealed needs the master key of that year.
  void CheckMasterKeys() {
    std::set<int> missing;
    for (unsigned long long i = 0; i < list_->keys; ++i) {
      if (list_->key[i].kind == KESTRUNE_PERSONAL_KEY) missing.insert(list_->key[i].year);
    }
    for (unsigned long long i = 0; i < list_->keys; ++i) {
      if (list_->key[i].kind == KESTRUNE_MASTER_KEY) missing.erase(list_->key[i].year);
    }
    constexpr int kYearsBefore = 1800;
    for (const int year : missing) {
      Find(folder_ + "Master." + std::to_string(year - kYearsBefore),
           Fill(_("The master key of {1} is missing: nothing of that year can be sealed or opened."),
                {std::to_string(year)}),
           _("Copy it from where it was installed, or ask the service."));
    }
  }

  // Of each kind that the folder has at all there is one for this year, and from November on one for the next.
  void CheckYears() {
    const std::time_t now = std::time(nullptr);
    std::tm date{};
    (void)::localtime_r(&now, &date);
    std::map<int, std::set<int>> years;
    for (unsigned long long i = 0; i < list_->keys; ++i) {
      if (list_->key[i].year != 0) years[list_->key[i].kind].insert(list_->key[i].year);
    }
    // That the master key of this year is missing was said where a personal key needs it.
    const bool was_said = years[KESTRUNE_PERSONAL_KEY].count(ThisYear()) > 0;
    for (const int kind : {KESTRUNE_PERSONAL_KEY, KESTRUNE_MASTER_KEY, KESTRUNE_SIGNING_KEY}) {
      const std::set<int>& has = years[kind];
      if (has.empty()) continue;
      kestrune_key key{};
      key.kind = kind;
      if (has.count(ThisYear()) == 0 && !(was_said && kind == KESTRUNE_MASTER_KEY)) {
        Find(folder_,
             Fill(_("There is no {1} of this year ({2})."), {KindOf(key), std::to_string(ThisYear())}),
             _("Ask the service for it; keys of past years only open and check."));
      }
      if (date.tm_mon >= kNovember && has.count(ThisYear()) > 0 && has.count(ThisYear() + 1) == 0) {
        Find(
            folder_,
            Fill(_("There is no {1} of next year ({2}) yet."), {KindOf(key), std::to_string(ThisYear() + 1)}),
            _("Ask the service for it before the year ends."));
      }
    }
  }

  const std::string folder_;
  const KeyList list_;
  PassPhrases& pass_phrases_;
  std::string findings_, unchecked_;
};

}  // namespace

void AddKeysCheck(Program& program, CLI::App& keys) {
  const auto pass_phrases = std::make_shared<PassPhrases>();
  CLI::App& command = program.Add(
      "check", _("Says what is wrong with the key folder; ends with 1 when something is"),
      "  kestrune keys check -k keys",
      [pass_phrases, &program] { return Check(program.KeyFolder(), *pass_phrases).Run(); }, &keys);
  pass_phrases->AddTo(command);
}

}  // namespace kestrune::cli
