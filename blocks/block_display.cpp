// The console display of a tree.
#include <cstdio>
#include <cstring>

#include "blocks/block_cell.h"
#include "blocks/tree_walk.h"
#include "blocks/utils_of_cells.h"
#include "core/entry_point.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr char kIndentation[] = "       ";
constexpr char kNoXmlColumn[] = "               ";  // as wide as the length that is not there
constexpr long kForkIndent = 2;
constexpr long kLevelXml = 1;
constexpr long kLevelData = 2;

}  // namespace

class TypV2BlockCell::Printer {
 public:
  Printer(long indent, long level) : indent_(indent), level_(level) {}

  void Enter(const TypV2BlockCell& cell) {
    if (indent_ == 0) std::fputs("\n", stdout);
    PrintLine(cell);
    if (level_ >= kLevelXml) PrintXml(cell);
    if (level_ >= kLevelData) PrintData(cell);
    ++indent_;
  }

  void Leave(const TypV2BlockCell& cell) {
    --indent_;
    if (indent_ != 0) return;
    // A root's closing line follows its next blocks.
    ++open_roots_;
    if (cell.next_ != nullptr) return;
    for (; open_roots_ > 0; --open_roots_) std::fputs("\n", stdout);
  }

 private:
  void PrintLine(const TypV2BlockCell& cell) const {
    cell.displayindent(indent_);
    const char mark = cell.IsSuper() ? '*' : ' ';
    std::printf("%c[%.*s", mark, static_cast<int>(kNameBytes), cell.head_.name);
    if (cell.xml_.length() != 0) {
      std::printf(" (xmllen =%llu)", cell.xml_.length());
    } else {
      std::fputs(kNoXmlColumn, stdout);
    }
    if (cell.data_.length() != 0) std::printf(" (datalen=%llu)", cell.data_.length());
    std::printf("] %llu\n", cell.GetDataLen());
  }

  void PrintXml(const TypV2BlockCell& cell) const {
    if (cell.xml_.length() == 0) {
      std::fputs(kNoXmlColumn, stdout);
      return;
    }
    std::fputs("\n", stdout);
    cell.displayindent(indent_ + kForkIndent);
    if (cell.xml_.HasBytes()) {
      const auto* text = reinterpret_cast<const char*>(cell.xml_.data());
      std::fwrite(text, 1, ::strnlen(text, cell.xml_.length()), stdout);
    }
    std::fputs("\n\n", stdout);
  }

  void PrintData(const TypV2BlockCell& cell) {
    if (!cell.data_.HasBytes()) return;
    TypV2Utils* const utils = utils_.Of(cell.creator_);
    if (utils != nullptr) utils->hexdump2(cell.data_.data(), cell.data_.length(), indent_ + kForkIndent);
  }

  long indent_;  // of the cell at hand
  const long level_;
  unsigned long long open_roots_ = 0;
  UtilsOfCells utils_;
};

// Nobody is told of a failure: what cannot be printed is left out.
void TypV2BlockCell::DisplayBlockInfoFull(long indent, long level) const {
  (void)EntryPoint([&]() -> Result {
    Printer printer(indent, level);
    Walk(
        this, true,
        [&printer](const TypV2BlockCell& cell) {
          printer.Enter(cell);
          return true;
        },
        [&printer](const TypV2BlockCell& cell) {
          printer.Leave(cell);
          return true;
        });
    return kOk;
  });
}

void TypV2BlockCell::DisplayBlockInfo(long indent) const {
  DisplayBlockInfoFull(indent, 0);
}

void TypV2BlockCell::displayindent(long indent) const {
  for (long i = 0; i < indent; ++i) std::fputs(kIndentation, stdout);
}
