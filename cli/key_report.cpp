#include "cli/key_report.h"

#include <algorithm>
#include <cstdio>

#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr unsigned long long kWhole = 100;
constexpr std::size_t kGaugeColumns = 20;

std::string Scaled(unsigned long long count, double unit, const char* pattern) {
  char number[32];
  std::snprintf(number, sizeof number, "%.1f", static_cast<double>(count) / unit);
  return Fill(pattern, {number});
}

Json JsonOf(const Pad& pad) {
  return {{"bytes", pad.bytes},
          {"used", pad.used},
          {"left", pad.bytes - std::min(pad.used, pad.bytes)},
          {"turns", pad.turns}};
}

}  // namespace

unsigned long long Pad::percent() const {
  if (bytes == 0) return kWhole;
  const double part = static_cast<double>(used) / static_cast<double>(bytes);
  const auto now = static_cast<unsigned long long>(std::min(part, 1.0) * static_cast<double>(kWhole));
  return now + std::min(turns, kWhole) * kWhole;
}

Pad PadOf(const kestrune_key& key, int number) {
  return {key.pad[number], key.used[number], key.turns[number]};
}

std::string Bytes(unsigned long long count) {
  constexpr unsigned long long kReadable = 10'000, kThousand = 1000, kMillion = 1'000'000,
                               kThousandMillion = 1'000'000'000;
  if (count < kReadable) return Fill(_("{1} byte", "{1} bytes", count), {std::to_string(count)});
  if (count < kMillion) return Scaled(count, kThousand, _("{1} kB"));
  if (count < kThousandMillion) return Scaled(count, kMillion, _("{1} MB"));
  return Scaled(count, kThousandMillion, _("{1} GB"));
}

std::string Gauge(const Pad& pad) {
  const unsigned long long percent = pad.percent();
  const std::size_t filled = std::min<std::size_t>(kGaugeColumns, percent * kGaugeColumns / kWhole);
  const std::string bar = std::string(filled, '#') + std::string(kGaugeColumns - filled, '-');
  std::string gauge =
      Fill(_("[{1}] {2} %: {3} used, {4} left"),
           {bar, std::to_string(percent), Bytes(pad.used), Bytes(pad.bytes - std::min(pad.used, pad.bytes))});
  if (pad.turns == 0) return gauge;
  return gauge +
         Fill(_(", began again {1} time", ", began again {1} times", pad.turns), {std::to_string(pad.turns)});
}

std::string KindOf(const kestrune_key& key) {
  switch (key.kind) {
    case KESTRUNE_PERSONAL_KEY:
      return _("personal key");
    case KESTRUNE_MASTER_KEY:
      return _("master key");
    case KESTRUNE_SIGNING_KEY:
      return _("signing key");
    default:
      return _("certificate");
  }
}

Failure WhyUnusable(const kestrune_key& key) {
  constexpr const char* kReaders[] = {"TypV2KestruneKey", "TypV2MasterKey", "TypApiV2Signature",
                                      "TypApiV2SignatureVerify"};
  return LibraryFailure(kReaders[key.kind - KESTRUNE_PERSONAL_KEY], key.state, "");
}

std::vector<std::string> Remarks(const kestrune_key& key, const std::string& path) {
  std::vector<std::string> remarks;
  if (key.pad[0] > 0) remarks.push_back(Fill(_("pad {1}"), {Gauge(PadOf(key, 0))}));
  if (key.pad[1] > 0) remarks.push_back(Fill(_("second pad {1}"), {Gauge(PadOf(key, 1))}));
  if (key.kind == KESTRUNE_SIGNING_KEY && key.protection == 2) {
    remarks.emplace_back(_("protected in a way that is not read here"));
    remarks.push_back(Fill(_("this converts it: {1}"), {ConvertingCommand(path)}));
  } else if (key.state != 0) {
    remarks.push_back(Fill(_("cannot be used: {1}"), {WhyUnusable(key).what()}));
  } else if (key.kind == KESTRUNE_SIGNING_KEY) {
    remarks.emplace_back(key.protection == 0 ? _("without a pass phrase") : _("with a pass phrase"));
  }
  return remarks;
}

Json JsonOf(const kestrune_key& key) {
  constexpr const char* kKinds[] = {"personal key", "master key", "signing key", "certificate"};
  constexpr const char* kProtections[] = {"none", "pass phrase", "unreadable"};
  Json json{{"kind", kKinds[key.kind - KESTRUNE_PERSONAL_KEY]}, {"name", key.name}};
  if (key.year != 0) json["year"] = key.year;
  json["code"] = key.state;
  if (key.kind == KESTRUNE_SIGNING_KEY) json["protection"] = kProtections[key.protection];
  for (int i = 0; i < kPadsOfKey; ++i) {
    if (key.pad[i] > 0) json["pads"].push_back(JsonOf(PadOf(key, i)));
  }
  return json;
}

std::string Quoted(const std::string& text) {
  constexpr char kPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+-:@%,";
  if (!text.empty() && text[0] != '-' && text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') quoted += "'\\'";
    quoted += c;
  }
  return quoted + "'";
}

std::string ConvertingCommand(const std::string& path) {
  return Fill("openssl rsa -traditional -aes256 -in {1} -out {2}", {Quoted(path), Quoted(path + ".new")});
}

std::string LineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::size_t ColumnsOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80; }));
}

std::string Padded(const std::string& text, std::size_t columns) {
  const std::size_t width = ColumnsOf(text);
  return text + std::string(width < columns ? columns - width : 1, ' ');
}

}  // namespace kestrune::cli
