// The block container: a tree of named cells and its flat form (docs/flat_block.md). Every layer of every
// message is such a tree.
#ifndef KESTRUNE_BLOCKS_BLOCK_CELL_H
#define KESTRUNE_BLOCKS_BLOCK_CELL_H

#include <cstdint>
#include <string_view>

#include "base/export.h"
#include "blocks/fork.h"
#include "core/object.h"

class TypV1SimpleStruc;
class TypV2InstanceCreator;
namespace kestrune {
class LentData;
class TreeLinks;
struct FlatDigests;
struct NothingToLeave;
}  // namespace kestrune

// A cell has a name, a text fork that holds XML, and either a data fork (a leaf) or a chain of sub-blocks
// (a super block). It owns its forks, its first sub-block and its next block, and with them the whole tree.
//
//   Owned<TypV2BlockCell> red(creator->newTypV2BlockCell());
//   if (Result rc = red.Init(creator); rc != kOk) return rc;
//   rc = red->SetBlockName("RED");
//   if (rc == kOk) rc = red->AddSubBlockWithData("TEXT", xml, text, text_length, nullptr);
//
// Lengths are in bytes. Names are compared by length and bytes; several blocks may share one. Buffers handed
// out come from malloc() and are the caller's, to be given to free(). Every operation that can fail returns 0
// or a code of core/result.h.
//
// Trees come from outside and may be a million cells long or deep: no operation recurses, each takes time
// linear in the cells and bytes that it visits (printing: in the bytes printed), and lengths never wrap.
// No exception leaves one.
//
// Any number of threads may read one tree at once: what is const writes nothing into a cell. What is not
// const wants the tree to itself, the export as tagged text too.
//
// Subclasses: an operation on a tree calls its own slots on the cell it was called for (`GetFlatData` calls
// that cell's `GetDataLen` and `PushDataInPtr`, `LoadFlatData` its `LoadFromFlatData`), but visits the cells
// below and beside it by their content. Of these cells' slots it calls `InitCreate` on the cells that it
// makes, `Kill` (with the links taken away), and `GetDataLen` and `displayindent` while displaying.
class KESTRUNE_API TypV2BlockCell : public kestrune::LibraryObject<TypV2BlockCell> {
 public:
  TypV2BlockCell() = default;
  TypV2BlockCell(const TypV2BlockCell&) = delete;
  TypV2BlockCell& operator=(const TypV2BlockCell&) = delete;

  // An empty leaf without a name. `creator` makes the cells of the tree and what their operations need; it
  // must outlive the tree, or `MoveToCreator` must be called in time. Returns 0.
  virtual int InitCreate(TypV2InstanceCreator* creator);

  // Wipes and frees the forks; kills and deletes the next blocks and the sub-blocks. This cell itself is its
  // owner's to delete. Needs neither memory nor the factory. Returns 0.
  virtual int Kill();

  // Makes this a leaf with these contents. A null xml or data leaves that fork as it is, an empty one clears
  // it; what a fork held before is wiped. The bytes are copied and may be the cell's own.
  //   name    at most 4 characters, one fewer than SetBlockName takes (kept so)
  //   xml     terminated text
  //   data    `length` bytes
  // -80: it has sub-blocks. -82: name missing or too long. -96: no memory, the fork is as it was.
  // Kept so: the super flag becomes 0 even when the call is refused.
  virtual int SetData(const char* name, const char* xml, const unsigned char* data,
                      unsigned long long length);

  // -77: no name. -93: 6 characters or more.
  virtual int SetBlockName(const char* name);

  // `out` has 6 bytes. -77: no output. -93: the name came from outside and states more than 5 characters.
  virtual int GetBlockName(char* out) const;

  // The first sub-block of that name (of this level only), or null.
  virtual TypV2BlockCell* FindSubBlock(const char* name) const;
  virtual TypV2BlockCell* GetNextBlock() const;
  virtual TypV2BlockCell* GetSubBlock() const;

  // The tree from this cell on in its flat form, sealed with a SHA-512 trailer.
  //   *out         new buffer of *out_length bytes (GetDataLen() + 64); null on failure
  //   digest_out   null, or 64 bytes that get a copy of the trailer; untouched on failure
  // -89: out or out_length missing. -77: a leaf has data but no XML (see PushDataInPtr). -78: this cell has
  // next blocks; only a single cell can be the root. -76, -96 as for PushDataInPtr.
  virtual int GetFlatData(unsigned char** out, unsigned long long* out_length,
                          unsigned char* digest_out) const;

  // Checks the trailer of a flat tree and rebuilds it into this freshly initialised cell. The buffer is only
  // read and not needed afterwards.
  // -75: fewer than 64 bytes, or no buffer. -73: the trailer is not the digest of the bytes before it.
  // Otherwise as LoadFromFlatData, of which a tree of whatever shape under a right trailer meets the checks.
  virtual int LoadFlatData(const unsigned char* buffer, unsigned long long length);

  // Copies of the forks; the texts are terminated. An absent or empty fork is 0 with null (and length 0).
  // -89: an output is missing. -96: no memory.
  virtual int GetDataForkCopy(unsigned char** out, unsigned long long* out_length) const;
  virtual int GetXMLForkCopy(char** out) const;

  // The data fork itself, still the cell's.
  virtual unsigned char* GetDataForkPtr() const;
  virtual unsigned long long GetDataForkLen() const;

  virtual int GetTextFromData(char** out) const;

  virtual bool issuperblock() const;

  // Bytes of the records of this cell, its next blocks and all that is below them. 2^64 - 1 for more.
  virtual unsigned long long GetFlatDataLen() const;

  // Parses one record and all that follows it up to `end` into this cell, its sub-blocks and its next blocks.
  // *position is where to begin and becomes where it ended. Forks and sub-blocks that the cell held are
  // released; its next blocks come behind those read.
  // -77: no buffer or position. -75: fewer than 24 bytes left for a record. -74: the announced lengths run
  // past the end. -79: data under a super flag other than 0 and 1. -96: no memory or object.
  // After a failure the cell holds what was read of its own record, and its sub-blocks if the failure lies
  // behind them; the caller kills it.
  virtual int LoadFromFlatData(const unsigned char* buffer, unsigned long long* position,
                               unsigned long long end);

  // Bytes of the records of this cell and all that is below it. 2^64 - 1 for more.
  virtual unsigned long long GetDataLen() const;

  // Writes the records of this cell, what is below it, and its next blocks into a buffer of `end` bytes,
  // beginning at *position, which becomes where it ended.
  // -77: no buffer or position; or a leaf has data but no XML. Deliberate: every block of a message
  // carries XML. -78: not enough room. -76: an XML length without an XML fork.
  // -96: no memory or object. What a failure has written so far is no tree.
  virtual int PushDataInPtr(unsigned char* buffer, unsigned long long* position,
                            unsigned long long end) const;

  // Prints the tree from this cell on, next blocks included. `level` 0: names and lengths; 1: the XML forks
  // too, up to a zero byte; 2: also the data forks in hexadecimal. `indent` is 0 for a root.
  virtual void DisplayBlockInfoFull(long indent, long level) const;
  virtual void DisplayBlockInfo(long indent) const;
  virtual void displayindent(long indent) const;

  // Appends a cell, or a chain of them, behind the last sub-block (of this cell) or the last next block. It
  // passes into the ownership of the tree. Appending one cell takes constant time (linear only behind a cell
  // in the middle of a chain that has no parent). The caller sees to it that the child has no parent yet and is neither this cell nor above it: a cell that
  // hangs in two places is freed twice, a ring has no end.
  // -81: no child. -80: this cell holds data; the child is still the caller's.
  int addsubblock(TypV2BlockCell* child);
  int addnextblock(TypV2BlockCell* child);

  // Appends a new sub-block with these contents; see SetData. *out, if there is an out, gets it; it stays
  // the tree's. Codes of SetData and addsubblock; -96: no object or memory. Nothing is added on failure.
  int AddSubBlockWithData(const char* name, const char* xml, const unsigned char* data,
                          unsigned long long length, TypV2BlockCell** out);

  // Appends the tree from this cell on, next blocks included, to a structure: XML forks as attachments
  // without a name, the data of "TEXT" blocks as texts, that of "PJ" blocks as attachments under their own
  // name. -102: no structure. -71: a name is not Base64. -96: no memory or object. What was added before a
  // failure stays.
  int ExportBlockAsV1Struct(TypV1SimpleStruc* structure) const;

  // Appends the tree from this cell on, next blocks included, as tagged text.
  //   out        buffer of `capacity` bytes; the text is terminated, and nothing is written past it
  //   *position  where to begin; becomes where the text ends
  //   flags      bit 0: with the data forks in Base64, of the cells that carry XML; else their elements are
  //              empty. On a "TEXT" block its data element then holds text and XML together.
  // Line feeds in the exported XML forks become carriage returns, in the cells themselves.
  // Returns -96 when an object or memory was missing anywhere: the text ends there. Otherwise the result of
  // the last piece written, which is the closing tag of this cell or of its last sibling reached: -109 when it
  // did not fit (an earlier piece that did not fit may thus go unreported: kept so), -105: no out, -62: no
  // position, -89: negative position.
  int ExportBlockAsXML(char* out, long long* position, long long capacity, long flags);

  // Bytes of the XML fork, and with one more those of a GetXMLForkCopy: the text may end before.
  unsigned long long GetXMLForkLen() const;

  // Hands the tree from this cell on, next blocks included, over to another factory, for a tree that outlives
  // the one that it was made with.
  void MoveToCreator(TypV2InstanceCreator* creator);

 private:
  friend class kestrune::LentData;
  friend class kestrune::TreeLinks;

  static constexpr std::uint8_t kVersion = 2;
  static constexpr std::uint8_t kLeaf = 0;
  static constexpr std::uint8_t kSuper = 1;
  static constexpr unsigned kNameBytes = 5;

  // The first bytes of a record, as they lie in memory.
  struct Head {
    std::uint8_t version;
    std::uint8_t super_flag;
    std::uint8_t name_length;
    char name[kNameBytes];
  };
  static_assert(sizeof(Head) == 8);

  class FlatWriter;
  class FlatReader;
  class Printer;
  class V1Export;
  class XmlExport;

  template <class Cell, class Enter, class Leave = kestrune::NothingToLeave>
  static void Walk(Cell* start, bool with_next_blocks, Enter&& enter, Leave&& leave = {});

  void StoreName(std::string_view name);
  bool HasName(std::string_view name) const;
  std::string_view PrintedName() const;
  bool IsSuper() const { return head_.super_flag == kSuper; }
  bool IsFirstOfChain() const {
    return up_ != nullptr ? up_->sub_ == this : prev_ == nullptr || prev_->next_ != this;
  }
  TypV2BlockCell* FirstOfChain();
  TypV2BlockCell* EndOfChain();
  static TypV2BlockCell* HangChain(TypV2BlockCell* first, TypV2BlockCell* parent);
  static void KillTree(TypV2BlockCell* first);
  int LendData(const char* name, const char* xml, const unsigned char* data, unsigned long long length);
  int AddSubBlockWithLentData(const char* name, const char* xml, const unsigned char* data,
                              unsigned long long length);
  int LoadLentFlatData(const unsigned char* buffer, unsigned long long length,
                       const kestrune::FlatDigests& digests);
  template <class Fill>
  int AddSubBlock(TypV2BlockCell** out, Fill&& fill);
  unsigned long long RecordBytes() const;
  unsigned long long Measure(bool with_next_blocks) const;

  TypV2InstanceCreator* creator_ = nullptr;
  TypV2BlockCell* next_ = nullptr;
  TypV2BlockCell* sub_ = nullptr;
  TypV2BlockCell* up_ = nullptr;    // the cell that this one is a sub-block of
  TypV2BlockCell* prev_ = nullptr;  // the block before; of the first: one in its chain, to seek the end from
  Head head_ = {kVersion, kLeaf, 0, {}};
  kestrune::Fork xml_;
  kestrune::Fork data_;
};

#endif
