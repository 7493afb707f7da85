// kestrune bench: how fast this machine is.
#include <stdlib.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include <kestrune/kestrune.h>
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/ending.h"
#include "cli/input.h"
#include "cli/key_report.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "cli/trial_keys.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"

namespace kestrune::cli {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kEach{
    1500};  // of four: with the keys and the last round it stays below 10 seconds
constexpr std::size_t kAttachmentBytes = 1'000'000;
constexpr std::size_t kPadBytes = 16 << 20;
constexpr std::size_t kMostBlockBytes = 2048;
constexpr std::size_t kMostIdentifier = 128;
constexpr char kAttachment[] = "attachment";
constexpr char kName[] = "bench", kPhrase[] = "bench", kText[] = "Bonjour Docteur, le courrier est parti.";

// Rounds of `work` in a second.
double PerSecond(const std::function<void()>& work) {
  const auto begin = steady_clock::now();
  unsigned rounds = 0;
  std::chrono::duration<double> passed{};
  do {
    work();
    ++rounds;
    passed = steady_clock::now() - begin;
  } while (passed < kEach);
  return rounds / passed.count();
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

// A key folder that goes with this object.
class Workshop {
 public:
  Workshop() {
    std::string name = std::filesystem::temp_directory_path() / "kestrune-bench-XXXXXX";
    {
      const auto lock = FinishUndisturbed();
      if (::mkdtemp(name.data()) == nullptr) throw SystemFailure(errno, name);
      places_.emplace_back(name);
    }
    folder_ = name + "/";
    Secret phrase;
    if (!phrase.Allocate(sizeof kPhrase)) throw std::bad_alloc();
    std::memcpy(phrase.data(), kPhrase, sizeof kPhrase);
    const TrialKeys keys = MakeTrialKeys(kName, phrase, kPadBytes);
    Put(keys.signing_file, keys.signing_key.text());
    Put(keys.certificate_file, keys.certificate.text());
    Put(keys.personal_file, {keys.personal_key.text(), keys.personal_key.size()});
    Put(keys.master_file, {keys.master_key.text(), keys.master_key.size()});
    Put(kAttachment, std::string(kAttachmentBytes, 'x'));
  }
  ~Workshop() {
    while (!places_.empty()) places_.pop_back();  // the folder last
  }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  const std::string& folder() const { return folder_; }

 private:
  void Put(const std::string& name, std::string_view content) {
    places_.emplace_back(folder_ + name);
    Manner manner;
    manner.is_secret = true;
    WriteOutput(folder_ + name, content, manner);
  }

  std::vector<Pending> places_;
  std::string folder_;
};

void OrThrow(const char* entry_point, long code) {
  if (code != 0) throw LibraryFailure(entry_point, code, "");
}

class Bench {
 public:
  std::string Run() {
    std::string rows;
    rows += Row(_("signatures"), _("{1} per second"), Measure(_("signatures"), [this] { Sign(); }));
    rows += Row(_("verifications"), _("{1} per second"), Measure(_("verifications"), [this] { Verify(); }));
    constexpr double kMillion = 1e6;
    const double megabytes = kAttachmentBytes / kMillion;
    rows += Row(_("sealing"), _("{1} MB per second"), megabytes * Measure(_("sealing"), [this] { Seal(); }));
    rows += Row(_("opening"), _("{1} MB per second"), megabytes * Measure(_("opening"), [this] { Open(); }));
    return rows +
           Fill(_("RSA, {1} bits; messages of {2}; {3}"),
                {"2048", Bytes(kAttachmentBytes), kestrune_crypto_library()}) +
           "\n";
  }

 private:
  static std::string Row(const char* what, const char* pattern, double value) {
    constexpr std::size_t kColumns = 16;
    return Padded(what, kColumns) + Fill(pattern, {Number(value)}) + "\n";
  }

  double Measure(const char* what, const std::function<void()>& work) {
    progress_.Step(Fill(_("Measuring: {1}"), {what}));
    return PerSecond(work);
  }

  void Sign() {
    block_.fill(0);
    OrThrow("Api2GetSignatureXMLLight",
            Api2GetSignatureXMLLight(kText, kName, phrase_.data(), shop_.folder().c_str(), block_.data()));
  }

  void Verify() {
    std::array<char, TypApiV2SignatureVerify::kNameOutputBytes> name{};
    std::array<unsigned char, TypApiV2SignatureVerify::kDataOutputBytes> text{};
    unsigned long long length = 0;
    TypV2InstanceCreatorUnix creator;
    Owned<TypApiV2SignatureVerify> verifier(creator.newTypApiV2SignatureVerify());
    OrThrow("TypApiV2SignatureVerify", verifier.Init(&creator, shop_.folder().c_str()));
    OrThrow("TypApiV2SignatureVerify", verifier->VerifyXMLSignBlockAuthentificationData(
                                           block_.data(), name.data(), text.data(), &length));
  }

  void Seal() {
    std::array<char, kMostIdentifier> identifier{};
    const std::string attachment = shop_.folder() + kAttachment;
    unsigned char* made = nullptr;
    unsigned long long length = 0;
    OrThrow("Api2CrypterMem", Api2CrypterMem(kText, attachment.c_str(), kName, kName, kPhrase, phrase_.data(),
                                             shop_.folder().c_str(), "a@b.example", "", "", "", kName,
                                             "2026-01-31 23:59:59", &made, &length, identifier.data(), 0));
    sealed_.Adopt(made, static_cast<std::size_t>(length));
  }

  // What a recipient does: the transport's signature, the deciphering, and the signatures within.
  void Open() {
    unsigned char* made = nullptr;
    unsigned long long length = 0;
    OrThrow("Api2ExtractGrisFromHTTPSBlock",
            Api2ExtractGrisFromHTTPSBlock(sealed_.data(), sealed_.size(), shop_.folder().c_str(), &made,
                                          &length, nullptr));
    CBuffer grey;
    grey.Adopt(made, static_cast<std::size_t>(length));
    kestrune_message* message = nullptr;
    OrThrow("kestrune_open_message",
            kestrune_open_message(grey.data(), grey.size(), shop_.folder().c_str(), kPhrase, &message));
    kestrune_free_message(message);
  }

  Progress progress_;
  Workshop shop_;
  std::array<char, kMostBlockBytes> block_{};
  std::array<char, sizeof kPhrase> phrase_ =
      std::to_array(kPhrase);  // the library wants one that it may change
  CBuffer sealed_;
};

}  // namespace

void AddBench(Program& program) {
  program.Add(
      "bench",
      _("Measures signatures, verifications, sealing and opening on this machine, in 10 seconds at most"),
      "  kestrune bench", [] {
        PrintText(Bench().Run());
        return Status::kDone;
      });
}

}  // namespace kestrune::cli
