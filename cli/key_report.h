// What is said of a key or certificate, by `keys list` and `inspect`.
#ifndef KESTRUNE_CLI_KEY_REPORT_H
#define KESTRUNE_CLI_KEY_REPORT_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "cli/failure.h"

namespace kestrune::cli {

using Json = nlohmann::ordered_json;

inline constexpr int kPadsOfKey = 2;  // of a personal key; a master key has the first alone

struct Pad {
  unsigned long long bytes, used, turns;

  // 0 to 100, and above where it began again: bytes were used twice.
  unsigned long long percent() const;
};
Pad PadOf(const kestrune_key& key, int number);

// "[####------] 40 %: 1.6 MB used, 2.4 MB left"
std::string Gauge(const Pad& pad);

// "5312 bytes", "1.6 MB"
std::string Bytes(unsigned long long count);

std::string KindOf(const kestrune_key& key);
// Its state, which is not 0, in words.
Failure WhyUnusable(const kestrune_key& key);

// What there is to say beside kind and year, a line each: pads, protection, why it cannot be read.
std::vector<std::string> Remarks(const kestrune_key& key, const std::string& path);
Json JsonOf(const kestrune_key& key);

// The command that converts a signing key whose protection the library does not read.
std::string ConvertingCommand(const std::string& path);
// One line of a shell's input that means this text.
std::string Quoted(const std::string& text);

// A line of JSON; what is no UTF-8 in it is replaced.
std::string LineOf(const Json& json);

// `text` and as many blanks as are missing to `columns`, one at least.
std::string Padded(const std::string& text, std::size_t columns);
std::size_t ColumnsOf(std::string_view text);

}  // namespace kestrune::cli

#endif
