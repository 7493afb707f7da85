// kestrune inspect: what files are, and what is in them.
#include "cli/inspect.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/file_kind.h"
#include "cli/input.h"
#include "cli/memory_file.h"
#include "cli/output.h"
#include "cli/text.h"
#include "crypto/classic.h"

namespace kestrune::cli {

void Report::Object(const std::string& what) {
  Say(Painted(Paint::kBad, what, 1));
  json["problems"].push_back(what);
  status = Worst(status, Status::kNo);
}

namespace {

constexpr unsigned kBitsPerByte = 8;
constexpr std::size_t kMostText = 65536;  // of texts in which values are looked for

std::string_view Between(std::string_view text, std::string_view begin, std::string_view end) {
  const std::size_t at = text.find(begin);
  if (at == std::string_view::npos) return {};
  text.remove_prefix(at + begin.size());
  return text.substr(0, text.find(end));
}

// The year in NAME.LETTER.126 and in NAME.226; 0: none.
int YearOf(const std::string& stem) {
  const std::string digits = std::filesystem::path(stem).extension();
  if (digits.size() != 4 || digits.find_first_not_of("0123456789", 1) != std::string::npos) return 0;
  constexpr int kFirstYear = 1900, kFirstPadYear = 1800, kPadYears = 200;
  const int number = std::stoi(digits.substr(1));
  return number + (number >= kPadYears ? kFirstPadYear : kFirstYear);
}

void SayYear(int year, Report& report) {
  if (year == 0) return;
  report.json["year"] = year;
  report.Say(Fill(_("of {1}"), {std::to_string(year)}));
}

void InspectPads(const FileKind& kind, const std::string& path, Report& report) {
  kestrune_key key = kind.key;
  const std::string name = std::filesystem::path(path).filename();
  const std::string stem = IsPadName(name) ? std::string(std::filesystem::path(name).stem()) : name;
  key.name = stem.c_str();
  key.year = IsPadName(name) ? YearOf(name) : 0;
  report.heading = KindOf(key);
  report.json.update(JsonOf(key));
  if (key.year != 0) report.Say(Fill(_("of {1}"), {std::to_string(key.year)}));
  const bool is_usable = key.state == 0;
  const std::string why = is_usable ? std::string() : WhyUnusable(key).what();
  key.state = 0;
  for (const std::string& remark : Remarks(key, path)) report.Say(Printable(remark));
  if (!is_usable) report.Object(why);
}

void SayModulus(const rsa_context& key, Report& report) {
  const std::string bits = std::to_string(key.len() * kBitsPerByte);
  report.json["bits"] = key.len() * kBitsPerByte;
  report.Say(Fill(_("RSA, {1} bits"), {bits}));
}

void InspectPrivateKey(const std::string& path, const std::string& shown, std::string_view text,
                       Report& report) {
  report.heading = _("signing key");
  report.json["kind"] = "signing key";
  SayYear(YearOf(std::filesystem::path(shown).stem()), report);
  rsa_context key;
  // In DER, nothing but trying a pass phrase tells whether it is one.
  const bool is_protected_der = IsProtectedDer(text);
  const int rc = x509parse_keyfile(&key, path.c_str(), is_protected_der ? "?" : nullptr);
  if (rc == ERR_NO_MEMORY) throw std::bad_alloc();
  const bool is_protected = text.find("ENCRYPTED") != std::string_view::npos || is_protected_der;
  report.json["protection"] = rc == ERR_X509_KEY_PASSWORD_MISMATCH ? "pass phrase"
                              : rc != 0 && is_protected            ? "unreadable"
                                                                   : "none";
  if (rc == ERR_X509_KEY_PASSWORD_MISMATCH) {
    report.Say(_("with a pass phrase, in a way that is read here"));
  } else if (rc == 0) {
    SayModulus(key, report);
    report.Say(_("without a pass phrase"));
    if (rsa_check_privkey(&key) != 0)
      report.Object(_("Its numbers do not belong together: it signs nothing."));
  } else if (is_protected) {
    report.Object(_("It is protected in a way that is not read here."));
    report.Say(Fill(_("this converts it: {1}"), {Printable(ConvertingCommand(shown))}));
  } else if (text.find("EC PRIVATE KEY") != std::string_view::npos) {
    report.Object(_("It is an elliptic-curve key; only RSA keys sign here."));
  } else {
    report.Object(_("It cannot be read as an RSA key."));
  }
}

void InspectCertificate(const std::string& path, const std::string& shown, Report& report) {
  x509_cert certificate;
  const int rc = x509parse_crtfile(&certificate, path.c_str());
  if (rc == ERR_NO_MEMORY) throw std::bad_alloc();
  report.heading = _("certificate");
  report.json["kind"] = "certificate";
  SayYear(YearOf(std::filesystem::path(shown).stem()), report);
  if (rc >= 0) {
    SayModulus(certificate.rsa, report);
  } else {
    report.Object(_("It cannot be read, or its key is no RSA key."));
  }
}

// Texts with values between tags.
void InspectTagged(What what, std::string_view text, Report& report) {
  constexpr std::size_t kBase64Group = 4, kGroupBytes = 3;
  const auto bytes_of = [](std::string_view base64) {
    const auto characters = static_cast<std::size_t>(std::count_if(
        base64.begin(), base64.end(), [](char c) { return c != '\n' && c != '\r' && c != '='; }));
    return static_cast<unsigned long long>(characters * kGroupBytes / kBase64Group);
  };
  const auto say = [&report](const char* key, const char* pattern, std::string_view value) {
    report.json[key] = Printable(value.substr(0, kMostText));
    report.Say(Fill(pattern, {Printable(value.substr(0, kMostText))}));
  };
  const std::string_view name = Between(text, "<N>", "</N>");
  if (what == What::kUnderPassword) {
    report.heading = _("short text under a password");
    report.json["kind"] = "text under a password";
    report.Say(Fill(_("enciphered: {1}"), {Bytes(bytes_of(Between(text, "<AE>", "</AE>")))}));
  } else if (what == What::kForCertificate) {
    report.heading = _("short text for a certificate's holder");
    report.json["kind"] = "text for a certificate";
    say("certificate", _("for {1}"), name);
    report.Say(Fill(_("enciphered: {1}"), {Bytes(bytes_of(Between(text, "<AED>", "</AED>")))}));
  } else {
    const unsigned long long bytes = bytes_of(Between(text, "<S>", "</S>"));
    report.heading = _("signature block");
    report.json["kind"] = "signature block";
    say("signer", _("signature by {1}, not checked here"), name);
    report.json["bits"] = bytes * kBitsPerByte;
    report.Say(Fill(_("RSA, {1} bits"), {std::to_string(bytes * kBitsPerByte)}));
    if (name.empty() || bytes == 0) report.Object(_("It names no signer, or holds no signature."));
  }
}

void InspectBlockFile(const std::string& path, Report& report) {
  const Content content = ReadFile(path);
  const std::string_view first = content.view().substr(3, static_cast<unsigned char>(content.view()[2]));
  struct Layer {
    std::string_view name;
    const char* kind;
    const char* heading;
  };
  const Layer layers[] = {{"AUTH", "transport block", _("transport block")},
                          {"DATA", "grey block", _("grey block")},
                          {"KEST", "opened block", _("opened block, in clear")},
                          {"RED", "red block", _("red block, in clear")},
                          {first, "block", _("block")}};
  const Layer& layer = *std::find_if(std::begin(layers), std::end(layers),
                                     [first](const Layer& l) { return l.name == first; });
  report.heading = layer.heading;
  report.json["kind"] = layer.kind;
  InspectBlock(content.view(), report);
}

Report Inspect(const std::string& path, const std::string& shown) {
  const FileKind kind = KindOfFile(path);
  Report report;
  report.json["file"] = shown;
  report.json["bytes"] = kind.bytes;
  Content text;
  const bool is_text =
      kind.what != What::kPads && kind.what != What::kBlock && kind.what != What::kInstallation;
  if (is_text && kind.bytes <= 1 << 20) text = ReadFile(path);
  switch (kind.what) {
    case What::kPads:
      InspectPads(kind, shown, report);
      break;
    case What::kBlock:
      InspectBlockFile(path, report);
      break;
    case What::kPrivateKey:
      InspectPrivateKey(path, shown, text.size() > 0 ? text.view() : "", report);
      break;
    case What::kCertificate:
      InspectCertificate(path, shown, report);
      break;
    case What::kInstallation:
      report.heading = _("perhaps a packed key file");
      report.json["kind"] = "packed key file";
      report.Say(_("its length is right; only the transport key tells: kestrune keys unpack"));
      break;
    case What::kEmpty:
      report.heading = _("empty file");
      report.json["kind"] = "empty";
      report.Object(_("There is nothing in it."));
      break;
    case What::kUnknown:
      report.heading = _("unknown");
      report.json["kind"] = "unknown";
      report.Object(_("It is nothing that kestrune knows."));
      break;
    default:
      InspectTagged(kind.what, text.size() > 0 ? text.view() : "", report);
  }
  report.heading += ", " + Bytes(kind.bytes);
  return report;
}

// "-" is read into memory first: the readers of keys take files.
Report InspectNamed(const std::string& name) {
  if (name != kStandard) return Inspect(name, name);
  MemoryFile file;
  file.Fill(ReadFile(name).view());
  return Inspect(file.path(), NameOf(name));
}

Status InspectAll(const std::vector<std::string>& names, bool as_json) {
  Status worst = Status::kDone;
  for (const std::string& name : names) {
    try {
      const Report report = InspectNamed(name);
      const std::string shown = Painted(Paint::kStrong, Printable(NameOf(name)), 1);
      if (as_json) {
        PrintText(LineOf(report.json));
      } else {
        PrintPainted(shown + ": " + report.heading + "\n" + report.lines);
      }
      worst = Worst(worst, report.status);
    } catch (const Failure& failure) {
      Complain(failure);
      if (as_json) PrintText(LineOf({{"file", name}, {"error", failure.what()}}));
      worst = Worst(worst, failure.status());
    }
  }
  return worst;
}

}  // namespace

void AddInspect(Program& program) {
  struct Options {
    std::vector<std::string> files;
    bool as_json = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      program.Add("inspect", _("Shows what files are and what is in them; needs no pass phrase"),
                  "  kestrune inspect message.block keys/*\n  kestrune inspect --json inbox/* | jq .kind",
                  [options] { return InspectAll(options->files, options->as_json); });
  command
      .add_option("files", options->files,
                  _("Blocks, keys, certificates, signatures, short texts; - is standard input"))
      ->type_name(_("FILE"))
      ->required();
  command.add_flag("--json", options->as_json, _("A JSON object in each line"));
}

}  // namespace kestrune::cli
