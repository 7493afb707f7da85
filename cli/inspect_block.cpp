// A block as a tree. Blocks come from anywhere: a million cells beside or below each other are counted, and a few
// hundred shown; nothing here recurses by cell.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "blocks/block_cell.h"
#include "cli/console.h"
#include "cli/inspect.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kTrailerBytes = 64;
constexpr std::size_t kHeadBytes = 24;
constexpr unsigned kMostShown = 200;  // cells of a file
constexpr unsigned kMostWithin = 8;   // blocks in blocks, each of which is digested anew
constexpr std::size_t kMostIndent = 20;
constexpr std::size_t kMostValue = 80;
constexpr std::size_t kNameColumns = 6;

// What gettext looks for: translated where it is used.
constexpr const char* N_(const char* text) {
  return text;
}

// Text between tags, made fit to be shown; "" where there is none.
std::string ValueOf(std::string_view xml, const std::string& tag) {
  const std::size_t begin = xml.find("<" + tag + ">");
  if (begin == std::string_view::npos) return {};
  xml.remove_prefix(begin + tag.size() + 2);
  const std::size_t end = xml.find("</" + tag + ">");
  if (end == std::string_view::npos) return {};
  const std::string value = Printable(xml.substr(0, std::min(end, kMostValue)));
  return end > kMostValue ? value + "..." : value;
}

unsigned long long NumberAt(std::string_view bytes, std::size_t at) {
  unsigned long long number = 0;
  for (std::size_t i = 0; i < sizeof number; ++i)
    number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

// Whether data are a block of their own: the head of one, whose lengths make up all that is there.
bool IsWholeBlock(std::string_view data) {
  constexpr std::size_t kXmlLengthAt = 8, kDataLengthAt = 16;
  if (data.size() < kHeadBytes + kTrailerBytes || data[0] != 2 || (data[1] != 0 && data[1] != 1) ||
      data[2] > 5 || data[2] < 1)
    return false;
  const unsigned long long room = data.size() - kHeadBytes - kTrailerBytes;
  const unsigned long long xml = NumberAt(data, kXmlLengthAt);
  return xml <= room && NumberAt(data, kDataLengthAt) == room - xml;
}

class BlockInspector {
 public:
  explicit BlockInspector(Report& report) : report_(report) {}

  void Inspect(std::string_view block, std::size_t level, unsigned within) {
    Owned<TypV2BlockCell> root(creator_.newTypV2BlockCell());
    if (root.Init(&creator_) != kOk) throw std::bad_alloc();
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.data());
    Result rc = root->LoadFlatData(bytes, block.size());
    const bool holds = rc == kOk;
    const bool is_digest_wrong = rc == block::kDigestMismatch;
    // What there is in it is shown nevertheless.
    if (is_digest_wrong) rc = LoadDamaged(bytes, block.size(), &root);
    if (rc == kNoObject) throw std::bad_alloc();
    Json json{{"digest", holds ? "holds" : "does not hold"}};
    if (is_digest_wrong) {
      json["code"] = block::kDigestMismatch;
      report_.status = Status::kNo;
    }
    if (rc != kOk) {
      json["code"] = rc;
      report_.Object(LibraryFailure("TypV2BlockCell", rc, "").what());
    }
    report_.lines +=
        Indent(level) +
        (holds ? Painted(Paint::kGood, _("the digest holds"), 1)
               : Painted(Paint::kBad, _("the digest does not hold: damaged or altered (code -73)"), 1)) +
        "\n";
    json["level"] = level;
    report_.json["blocks"].push_back(std::move(json));
    const std::size_t place = report_.json["blocks"].size() - 1;
    const unsigned long long cells = Show(*root.get(), level, within);
    report_.json["blocks"][place]["cells"] = cells;
  }

 private:
  Result LoadDamaged(const unsigned char* bytes, std::size_t size, Owned<TypV2BlockCell>* root) {
    *root = Owned<TypV2BlockCell>(creator_.newTypV2BlockCell());
    if (root->Init(&creator_) != kOk) return kNoObject;
    unsigned long long position = 0;
    return (*root)->LoadFromFlatData(bytes, &position, size - kTrailerBytes);
  }

  static std::string Indent(std::size_t level) {
    return std::string(2 + 2 * std::min(level, kMostIndent), ' ');
  }

  // All cells are visited, the first ones shown. Gives how many there are.
  unsigned long long Show(const TypV2BlockCell& root, std::size_t level, unsigned within) {
    std::vector<const TypV2BlockCell*> above;
    unsigned long long count = 0, left_out = 0;
    for (const TypV2BlockCell* cell = &root; cell != nullptr;) {
      ++count;
      if (shown_ < kMostShown) {
        ++shown_;
        ShowCell(*cell, level + above.size(), within);
      } else {
        ++left_out;
      }
      if (const TypV2BlockCell* below = cell->GetSubBlock(); below != nullptr) {
        above.push_back(cell);
        cell = below;
        continue;
      }
      while (cell->GetNextBlock() == nullptr && !above.empty()) {
        cell = above.back();
        above.pop_back();
      }
      cell = cell->GetNextBlock();
    }
    if (left_out > 0) {
      report_.lines +=
          Indent(level) +
          Fill(_("... and {1} more block", "... and {1} more blocks", left_out), {std::to_string(left_out)}) +
          "\n";
    }
    return count;
  }

  void ShowCell(const TypV2BlockCell& cell, std::size_t level, unsigned within) {
    std::array<char, 8> name{};
    if (cell.GetBlockName(name.data()) != kOk) name = {'?'};
    const std::string shown = Printable(name.data());
    SecretCBuffer copy;
    char* text = nullptr;
    if (cell.GetXMLForkCopy(&text) != kOk) throw std::bad_alloc();
    copy.AdoptText(text);
    const std::string_view xml = copy.text() == nullptr ? std::string_view() : copy.text();
    const unsigned long long xml_bytes = cell.GetXMLForkLen(), data_bytes = cell.GetDataForkLen();
    const std::string_view data(reinterpret_cast<const char*>(cell.GetDataForkPtr()),
                                static_cast<std::size_t>(data_bytes));
    const bool is_block = IsWholeBlock(data) && within < kMostWithin;

    Json json{{"level", level}, {"name", name.data()}, {"xml_bytes", xml_bytes}};
    std::string line = Indent(level) + Padded(Painted(Paint::kStrong, shown, 1), kNameColumns);
    std::vector<std::string> facts;
    if (xml_bytes > 0) facts.push_back(Fill(_("XML {1}"), {Bytes(xml_bytes)}));
    for (const auto& [tag, key, pattern] : kFacts) {
      const std::string value = ValueOf(xml, tag);
      // <N> is a signer's name in a signature alone.
      if (value.empty() || (*tag == 'N' && xml.find("<SIGN>") == std::string_view::npos)) continue;
      json[key] = value;
      facts.push_back(Fill(_(pattern), {value}));
    }
    if (cell.issuperblock()) {
      json["bytes"] = cell.GetDataLen();
      facts.push_back(Fill(_("blocks below it, {1} in all"), {Bytes(cell.GetDataLen())}));
    } else {
      json["data_bytes"] = data_bytes;
      const bool is_enciphered = !is_block && std::strcmp(name.data(), "DATA") == 0;
      facts.push_back(Fill(is_block        ? _("data {1}: a block")
                           : is_enciphered ? _("data {1}, enciphered")
                                           : _("data {1}"),
                           {Bytes(data_bytes)}));
    }
    for (const std::string& fact : facts) line += (&fact == facts.data() ? "" : "; ") + fact;
    report_.lines += line + "\n";
    report_.json["tree"].push_back(std::move(json));
    if (is_block) Inspect(data, level + 1, within + 1);
  }

  struct Fact {
    const char* tag;
    const char* key;
    const char* pattern;
  };
  static constexpr Fact kFacts[] = {{"N", "signer", N_("signature by {1}, not checked here")},
                                    {"F", "from", N_("from {1}")},
                                    {"C", "key", N_("key {1}")}};

  Report& report_;
  TypV2InstanceCreatorUnix creator_;
  unsigned shown_ = 0;
};

}  // namespace

void InspectBlock(std::string_view block, Report& report) {
  report.json["blocks"] = Json::array();
  report.json["tree"] = Json::array();
  BlockInspector(report).Inspect(block, 0, 0);
}

}  // namespace kestrune::cli
