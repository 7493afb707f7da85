// How key files are named after the calendar, and how large their IV area is.
#ifndef KESTRUNE_SIGN_KEY_UTILS_H
#define KESTRUNE_SIGN_KEY_UTILS_H

#include <cstddef>

#include "base/export.h"
#include "core/object.h"

class TypV2InstanceCreator;

namespace kestrune {

inline constexpr std::size_t kYearBytes = 12;
inline constexpr std::size_t kTimeStampBytes = 40;

}  // namespace kestrune

// All dates are those of the local clock. Texts out: `out` needs kYearBytes for a year, kTimeStampBytes for a
// time stamp.
class KESTRUNE_API TypKeyUtils : public kestrune::LibraryObject<TypKeyUtils> {
 public:
  // Keeps the factory, which must outlive the object. 0.
  virtual int InitCreate(TypV2InstanceCreator* creator);
  virtual int Kill();

  // Length in bytes of the IV area of a key file with pads of these lengths: 16 bytes for each whole 4096 of
  // their sum, plus 4096, rounded down to a multiple of 4096.
  virtual unsigned long long GetTailleIV(unsigned long long first_pad, unsigned long long second_pad);

  // Looks in `folder` (a prefix: it ends with the separator) for the signing key of the current year:
  // name.LETTER.YEAR.key, LETTER from 'z' down to 'a'. `found` (name's length + 18 bytes) gets the file name
  // without the folder, empty when there is none. -103: none. -96: no file object.
  virtual int GetSignPrivateKey(const char* name, const char* folder, char* found);

  // Years since 1900 (plus 100 below 90): the year in signing keys and certificates, 126 in 2026. Returns
  // the characters written.
  virtual int GetYearCert(char* out);

  // Years since 1900 plus 100 (200 below 90): the year in personal and master keys, 226 in 2026. Deliberate:
  // not the number of certificates; TypV2Utils::ExtractFileSuffix tells a personal key by it.
  virtual int GetYearKestruneKey(char* out);

  // name, ".", GetYearCert. Returns `out`, which needs the name's length + 13 bytes.
  virtual char* GetKestruneKeyName(const char* name, char* out);

  // "%d.%d.%ld": day of the year from 0, second of the day, a random number. Returns the characters written.
  virtual int GetTimeStamp(char* out);

 private:
  TypV2InstanceCreator* creator_ = nullptr;
};

#endif
