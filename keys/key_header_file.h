// The header of a key file, between the file and the object that holds it in host order.
#ifndef KESTRUNE_KEYS_KEY_HEADER_FILE_H
#define KESTRUNE_KEYS_KEY_HEADER_FILE_H

#include <algorithm>
#include <bit>
#include <cstdint>

#include "core/file_ref.h"
#include "core/key_header.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"

namespace kestrune {

// Reads the record at the file's start. *header is untouched on failure; kNoObject: nothing was opened.
inline Result ReadKeyHeader(const Owned<TypV2FileRef>& file, const Owned<TypV2Utils>& utils,
                            TypV2KeyHeader* header) {
  if (!file) return kNoObject;
  if (const Result rc = file->SetFilePos(0); rc != kOk) return rc;
  TypV2KeyHeader loaded;
  if (const Result rc = file->Read(&loaded, sizeof loaded); rc != kOk) return rc;
  utils->SwapHeader(&loaded);
  *header = loaded;
  return kOk;
}

// Writes it there, durably where the file is open for update. These 512 bytes are all of a key file that is
// ever rewritten.
inline Result StoreKeyHeader(const Owned<TypV2FileRef>& file, const Owned<TypV2Utils>& utils,
                             TypV2KeyHeader header) {
  if (!file) return kNoObject;
  if (const Result rc = file->SetFilePos(0); rc != kOk) return rc;
  utils->SwapHeader(&header);
  return file->Write(&header, sizeof header);
}

// The header as the check digest has it: its numbers little-endian on every machine.
inline TypV2KeyHeader ForCheckDigest(TypV2KeyHeader header) {
  if constexpr (std::endian::native == std::endian::big) {
    const auto turn = [](auto* number) {
      auto* const bytes = reinterpret_cast<unsigned char*>(number);
      std::reverse(bytes, bytes + sizeof *number);
    };
    for (std::int32_t* word : {&header.Word0, &header.Word4, &header.Word8, &header.Word44}) turn(word);
    for (std::uint64_t* quad : {&header.TailleOTPChiffrement, &header.TailleOTPassword, &header.Quad104})
      turn(quad);
  }
  return header;
}

}  // namespace kestrune

#endif
