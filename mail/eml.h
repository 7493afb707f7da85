// The pieces of an Internet mail message made of an opened one (docs/mail.md), in the form that the library
// itself uses: each appends to a text that grows with it. Api2ConvertRedBlockToEml puts them together; the
// functions of kestrune/kestrune.h that make one piece are these behind bare pointers.
//
// In the names, PJ (pièce jointe) is an attachment and the red block the tree of an opened message.
// Without memory std::bad_alloc is thrown.
#ifndef KESTRUNE_MAIL_EML_H
#define KESTRUNE_MAIL_EML_H

#include <cstddef>
#include <string_view>

#include "blocks/block_cell.h"
#include "core/result.h"
#include "mail/text_buffer.h"

namespace kestrune::mail {

// The folded header block of a routing XML. Nothing is appended on failure: kNoObject, or utils::kTagMissing
// for <M> or <I>, without which there is no header block.
Result AppendHeader(std::string_view routing, TextBuffer* out);

// The texts of a tree's "TEXT" blocks. A line stands between two of them, and before the first when
// `follows_text`.
void AppendTexts(const TypV2BlockCell* tree, bool follows_text, TextBuffer* out);

// The parts that a tree's "PJ" blocks become, of which each block can be measured first.
class AttachmentParts {
 public:
  explicit AttachmentParts(std::string_view boundary) : boundary_(boundary) {}

  // Characters of all parts; 0 for a tree without attachments that have data.
  Result Measure(const TypV2BlockCell* tree, std::size_t* characters);
  Result Append(const TypV2BlockCell* tree, TextBuffer* out);

 private:
  Result WriteHead(const TypV2BlockCell& cell);

  std::string_view boundary_;
  TextBuffer head_;
};

// The names of the files in a tree's "PJ" blocks as the parts carry them, a line each.
Result AppendAttachmentNames(const TypV2BlockCell* tree, TextBuffer* out);

// A copy of a cell's XML fork, up to a zero byte; empty without one. kNoObject without memory.
Result CopyXml(const TypV2BlockCell& cell, TextBuffer* xml);

}  // namespace kestrune::mail

#endif
