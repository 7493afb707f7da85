// The older message structure: a flat list of texts and attachments.
#ifndef KESTRUNE_BLOCKS_V1_STRUCTURE_H
#define KESTRUNE_BLOCKS_V1_STRUCTURE_H

#include "base/export.h"
#include "core/object.h"

// Type codes of attachments: four characters read as a big-endian number.
inline constexpr long long kTypeXmlFork = 0x584D4C53;     // "XMLS", the XML fork of a cell
inline constexpr long long kTypeAttachment = 0x504A2020;  // "PJ  " (pièce jointe), an attached file

// Callers read the fields; all buffers stay the structure's. It copies whatever is added.
//
// There is room for 100 texts and 100 attachments. Deliberate: one more of either is dropped without a word,
// so that a message with too many of them can still be shown.
class KESTRUNE_API TypV1SimpleStruc : public kestrune::LibraryObject<TypV1SimpleStruc> {
 public:
  static constexpr unsigned long long kMostTexts = 100;
  static constexpr unsigned long long kMostAttachments = 100;

  TypV1SimpleStruc() = default;
  TypV1SimpleStruc(const TypV1SimpleStruc&) = delete;
  TypV1SimpleStruc& operator=(const TypV1SimpleStruc&) = delete;

  // Nothing held; the first made-up name gets the number 555555. Returns 0.
  virtual int initCreate();

  // Wipes and frees what is held. The counts stay as they were. Returns 0.
  virtual int kill();

  // Adds a copy of `length` bytes under a copy of `name`. A null name becomes "NONAME%d.xml", an empty one
  // "NONAME%d.dat", %d counting upwards. -77: no data (0 bytes of it are allowed). -96: no memory, nothing
  // added.
  virtual int addpj(const unsigned char* data, const char* name, unsigned long long length, long long type);

  // Adds a copy of `length` bytes and a terminating zero. -77: no text. -96: no memory, nothing added.
  virtual int addtexte(const unsigned char* text, unsigned long long length);

  // Bytes of all texts, their terminators not counted, and of all attachments.
  virtual unsigned long long GetTotalDataSize() const;

  // The type of an attachment, counted from 0; 0 when there are not that many.
  virtual long long GetTypePJ(unsigned long long index) const;

  unsigned char* texts[kMostTexts] = {};             // each with a terminating zero
  unsigned long long text_lengths[kMostTexts] = {};  // terminators not counted
  unsigned long long text_count = 0;
  long long attachment_types[kMostAttachments] = {};  // kTypeXmlFork, kTypeAttachment, or the caller's own
  unsigned char* attachment_data[kMostAttachments] = {};
  unsigned long long attachment_lengths[kMostAttachments] = {};
  char* attachment_names[kMostAttachments] = {};
  unsigned long long attachment_count = 0;
  unsigned long long next_unnamed_number = 0;
};

#endif
