#include "sign/key_utils.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/calendar.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/random.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr int kCenturyTurn = 90;  // smaller years since 1900 are taken for years since 2000
constexpr int kSecondsPerMinute = 60;
constexpr int kSecondsPerHour = 3600;
constexpr unsigned long long kChunkShift = 12;  // 4096-byte chunks of the pads ...
constexpr unsigned long long kIvShift = 4;      // ... have 16 bytes of IV each
constexpr unsigned long long kIvAreaGrain = 4096;
constexpr char kKeySuffix[] = ".key";

// The clock's year field is taken as a 16-bit number.
int YearsSince1900() {
  return static_cast<std::int16_t>(LocalCalendar().tm_year);
}

}  // namespace

int TypKeyUtils::InitCreate(TypV2InstanceCreator* creator) {
  creator_ = creator;
  return kOk;
}

int TypKeyUtils::Kill() {
  return kOk;
}

unsigned long long TypKeyUtils::GetTailleIV(unsigned long long first_pad, unsigned long long second_pad) {
  const unsigned long long ivs = (first_pad + second_pad) >> kChunkShift << kIvShift;
  return (ivs + kIvAreaGrain) / kIvAreaGrain * kIvAreaGrain;
}

int TypKeyUtils::GetSignPrivateKey(const char* name, const char* folder, char* found) {
  Owned<TypV2FileRef> file(creator_->newTypV2FileRef());
  if (const Result rc = file.Init(); rc != kOk) return rc;
  *found = 0;
  char year[kYearBytes];
  GetYearCert(year);
  // Later generations of a key take earlier letters, so the one nearest to 'z' is the first to be found.
  for (char letter = 'z'; letter >= 'a'; --letter) {
    const char generation[] = {'.', letter, '.', 0};
    // A path that is too long is no candidate; the reference would still name the one before.
    if (file->SetFileName(BoundedPath{folder, name, generation, year, kKeySuffix}.c_str()) != kOk) continue;
    if (file->Exists() == kOk) {
      std::strcpy(found, BoundedPath{name, generation, year, kKeySuffix}.c_str());
      return kOk;
    }
  }
  return signer::kNoKeyFile;
}

int TypKeyUtils::GetYearCert(char* out) {
  const int year = YearsSince1900();
  return std::sprintf(out, "%d", year < kCenturyTurn ? year + 100 : year);
}

int TypKeyUtils::GetYearKestruneKey(char* out) {
  const int year = YearsSince1900();
  return std::sprintf(out, "%d", year < kCenturyTurn ? year + 200 : year + 100);
}

char* TypKeyUtils::GetKestruneKeyName(const char* name, char* out) {
  std::strcpy(out, name);
  std::strcat(out, ".");
  GetYearCert(out + std::strlen(out));
  return out;
}

int TypKeyUtils::GetTimeStamp(char* out) {
  const std::tm now = LocalCalendar();
  const int second = now.tm_hour * kSecondsPerHour + now.tm_min * kSecondsPerMinute + now.tm_sec;
  return std::sprintf(out, "%d.%d.%ld", now.tm_yday, second, std::labs(static_cast<long>(DrawRandom())));
}
