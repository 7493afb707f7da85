#include "keys/message_cipher.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/count.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/key_header.h"
#include "core/random.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "keys/aes.h"
#include "keys/kestrune_key.h"
#include "keys/mask.h"
#include "keys/master_key.h"
#include "keys/trap.h"
#include "sign/key_utils.h"

using namespace kestrune;

namespace {

constexpr Count kPasswordOffsetAt = 0;
constexpr Count kRunOffsetAt = 8;
constexpr Count kMasterOffsetAt = 16;
constexpr Count kHeadBytes = 24;
constexpr Count kEncipheredFrom = kRunOffsetAt;
constexpr Count kSpareBytes = 10000;  // zeros behind an opened body
constexpr Count kLongestRandomStrings = 58 + 48;
constexpr std::size_t kLongestR1 = 58;
constexpr std::size_t kLongestR2 = 48;
constexpr std::size_t kLongestStatedR1 = 255;  // what a foreign body may state
constexpr std::size_t kOneTimePasswordBytes = 32;
constexpr int kMostDraws = 100;

void StoreBigEndian(unsigned char* bytes, Count value) {
  for (int i = 7; i >= 0; --i, value >>= 8) bytes[i] = static_cast<unsigned char>(value);
}

Count LoadBigEndian(const unsigned char* bytes) {
  Count value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | bytes[i];
  return value;
}

char RandomNonZeroByte() {
  for (int draw = 0; draw < kMostDraws; ++draw) {
    const char byte = static_cast<char>(DrawRandom());
    if (byte != 0) return byte;
  }
  return 'E';
}

// Receives a run of a key: the buffer is ours whatever the status is.
template <class Key>
Result TakeRun(Key& key, Count length, SecretCBuffer* run, Count* offset) {
  unsigned char* bytes = nullptr;
  const Result rc = key->GetLineaKey(&bytes, length, offset);
  run->Adopt(bytes, length);
  return rc;
}

// Deciphers a body behind its first 8 bytes into `copy`. What AES does not take (all of it when it refuses,
// the part beyond its 32-bit count) stays as it was. -96 when it is without memory, which is no fault of the body.
Result Decipher(TypV2AES& aes, const unsigned char* body, Count length,
                const unsigned char* one_time_password, unsigned char* copy) {
  std::array<unsigned char, kAesBlockBytes> iv;
  (void)aes.zeroiv(iv.data());
  const Count count = length - kEncipheredFrom;
  const Result rc = aes.decrypter(body + kEncipheredFrom, static_cast<long long>(count), iv.data(),
                                  one_time_password, copy + kEncipheredFrom);
  const Count done = kEncipheredFrom + (rc == kOk ? static_cast<std::uint32_t>(count) : 0);
  std::memcpy(copy + done, body + done, length - done);
  return rc == kNoObject ? kNoObject : kOk;
}

// Takes the masks off a deciphered body, in its own buffer, which then begins with the clear text and holds
// zeros behind it. `personal` and `master` are the two runs. The three malformed codes, or kOk and the
// length.
Result Unmask(SecretCBuffer& body, Count length, const unsigned char* personal, const unsigned char* master,
              Count* clear_length) {
  unsigned char* const bytes = body.data();
  const auto clear = [&](Count i) {
    return static_cast<unsigned char>(bytes[i] ^ personal[i] ^ master[i - kHeadBytes]);
  };
  const std::int64_t r1_length = clear(kHeadBytes);
  const std::int64_t r2_length = clear(length - 1);
  const std::int64_t start = static_cast<std::int64_t>(kHeadBytes) + r1_length;
  const std::int64_t end = static_cast<std::int64_t>(length) - r2_length - 1;
  if (start == 0) return cipher::kNoStart;
  if (end == 0) return cipher::kNoEnd;
  if (end < start) return cipher::kEndBeforeStart;

  // From here on the body is known to hold all of R1 and a byte behind it.
  SecretArray<kLongestStatedR1> r1;
  for (Count i = 0; i < static_cast<Count>(r1_length); ++i) r1.data()[i] = clear(kHeadBytes + i);
  const CyclingMask mask(r1.data(), static_cast<std::size_t>(r1_length));
  const auto from = static_cast<Count>(start);
  *clear_length = static_cast<Count>(end - start) + 1;
  mask.Apply(bytes, bytes + from, personal + from, master + from - kHeadBytes, *clear_length);
  wipe(bytes + *clear_length, body.size() - *clear_length);
  return kOk;
}

bool IsMalformed(Result rc) {
  return rc == cipher::kNoStart || rc == cipher::kNoEnd || rc == cipher::kEndBeforeStart;
}

}  // namespace

int TypKestruneV2::InitCreate(TypV2InstanceCreator* creator, const char* key_name, const char* folder,
                              const char* hex_password) {
  creator_ = creator;
  Result rc = CopyTextThatFits(key_name_, key_name) ? kOk : cipher::kKeyName;
  // The folder is looked at whatever the name was, and its code wins.
  if (!CopyTextThatFits(folder_, folder)) rc = cipher::kFolder;
  SeedRandomWithTime();
  if (rc != kOk) return rc;
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  if (rc = utils_.Init(); rc != kOk) return rc;
  return *hex_password == 0 ? kOk : SetPassword(hex_password);
}

int TypKestruneV2::Kill() {
  utils_.Reset();
  return kOk;
}

int TypKestruneV2::SetPassword(const char* hex_password) {
  if (!IsShorterThan(hex_password, limits::kHexPassword + 1) ||
      std::strlen(hex_password) != limits::kHexPassword) {
    return cipher::kPassword;
  }
  std::memcpy(password_.data(), hex_password, limits::kHexPassword + 1);
  return kOk;
}

int TypKestruneV2::ZeroPassword() {
  password_.Wipe();
  return kOk;
}

int TypKestruneV2::Low_crypter(const unsigned char* in, unsigned long long length, unsigned char** out,
                               unsigned long long* out_length) {
  *out = nullptr;
  *out_length = 0;
  if (in == nullptr) return cipher::kNoInput;
  SecretCBuffer sealed;
  const Result rc = Seal(in, length, &sealed);
  if (rc != kOk) return rc;
  *out_length = sealed.size();
  *out = sealed.release();
  return kOk;
}

Result TypKestruneV2::Seal(const unsigned char* in, unsigned long long length, SecretCBuffer* out) {
  if (!utils_) return kNoObject;
  // Released in the reverse order: the personal key, the master run, the master key, the cipher.
  Owned<TypV2AES> aes(creator_->newTypV2AES());
  if (const Result rc = aes.Init(creator_); rc != kOk) return rc;
  Owned<TypV2MasterKey> master(creator_->newTypV2MasterKey());
  if (const Result rc = master.Init(creator_, folder_.data(), nullptr, kUpdateExisting); rc != kOk) return rc;

  if (length > kLargestCount - kHeadBytes - kLongestRandomStrings - kSpareBytes) return kNoObject;
  SecretArray<kLongestR1> r1;
  SecretArray<kLongestR2> r2;
  const auto r1_length = static_cast<Count>(loadRNstring(r1.text()));
  const Count r2_length = kLongestR2 - (r1_length + kAesBlockBytes + length) % kAesBlockBytes;
  loadRN2string(r2_length, r2.text());
  const Count total = kHeadBytes + r1_length + length + r2_length;

  SecretCBuffer master_run;
  Count master_offset = 0;
  if (const Result rc = TakeRun(master, total - kHeadBytes, &master_run, &master_offset); rc != kOk)
    return rc;

  Owned<TypV2KestruneKey> personal(creator_->newTypV2KestruneKey());
  if (const Result rc =
          personal.Init(creator_, key_name_.data(), 1L, folder_.data(), password_.text(), kUpdateExisting);
      rc != kOk) {
    return rc;
  }
  SecretArray<kOneTimePasswordBytes> one_time_password;
  Count password_offset = 0;
  if (const Result rc = personal->GetOTPassword(one_time_password.data(), &password_offset); rc != kOk) {
    return rc;
  }
  // The personal run becomes the sealed body.
  SecretCBuffer sealed;
  Count run_offset = 0;
  if (const Result rc = TakeRun(personal, total, &sealed, &run_offset); rc != kOk) return rc;

  unsigned char* const bytes = sealed.data();
  StoreBigEndian(bytes + kPasswordOffsetAt, password_offset);
  StoreBigEndian(bytes + kRunOffsetAt, run_offset);
  StoreBigEndian(bytes + kMasterOffsetAt, LoadBigEndian(bytes + kMasterOffsetAt) ^ master_offset);
  unsigned char* const body = bytes + kHeadBytes;
  const unsigned char* const mask = master_run.data();
  XorInto(body, mask, r1.data(), r1_length);
  CyclingMask(r1.data(), r1_length).Apply(body + r1_length, body + r1_length, mask + r1_length, in, length);
  const Count tail = r1_length + length;
  XorInto(body + tail, mask + tail, r2.data(), r2_length);

  std::array<unsigned char, kAesBlockBytes> iv;
  aes->zeroiv(iv.data());
  const Result rc = aes->crypter(bytes + kEncipheredFrom, static_cast<long long>(total - kEncipheredFrom),
                                 iv.data(), one_time_password.data(), bytes + kEncipheredFrom);
  if (rc == kOk) *out = std::move(sealed);
  return rc;
}

int TypKestruneV2::Low_decrypter(const unsigned char* in, unsigned long long length,
                                 const char* key_file_name, const char* hex_password, unsigned char** out,
                                 unsigned long long* out_length) {
  *out = nullptr;
  *out_length = 0;
  if (in == nullptr) return cipher::kNoInput;
  if (key_file_name == nullptr) return cipher::kKeyName;
  if (hex_password == nullptr) return cipher::kPassword;
  SecretCBuffer body;
  Count body_length = 0;
  const Result rc = Open(in, length, key_file_name, hex_password, &body, &body_length);
  // Whatever was opened, taken or deciphered is gone by now: what follows may last, so the password goes too.
  if (IsMalformed(rc)) {
    password_.Wipe();
    SleepForEver();
  }
  if (rc != kOk) return rc;
  *out = body.release();
  *out_length = body_length;
  return kOk;
}

Result TypKestruneV2::Open(const unsigned char* in, unsigned long long length, const char* key_file_name,
                           const char* hex_password, SecretCBuffer* out, unsigned long long* out_length) {
  if (!utils_) return kNoObject;
  // The copy that is deciphered becomes the clear body; it has the room behind it from the start.
  SecretCBuffer copy;
  if (length > kLargestCount - kSpareBytes || !copy.AllocateUncleared(length + kSpareBytes)) return kNoObject;
  Owned<TypV2AES> aes(creator_->newTypV2AES());
  if (const Result rc = aes.Init(creator_); rc != kOk) return rc;
  char year[4] = {};
  if (const Result rc = utils_->ExtractFileSuffix(key_file_name, year); rc != kOk) return rc;
  Owned<TypV2MasterKey> master(creator_->newTypV2MasterKey());
  if (const Result rc =
          master.Init(creator_, folder_.data(), BoundedPath{"Master.", year}.c_str(), kReadExisting);
      rc != kOk) {
    return rc;
  }
  // The name came with the message: it does not leave the folder.
  if (std::strchr(key_file_name, '/') != nullptr) return file::kOpen;
  Owned<TypV2KestruneKey> personal(creator_->newTypV2KestruneKey());
  if (const Result rc =
          personal.Init(creator_, key_file_name, 0L, folder_.data(), hex_password, kReadExisting);
      rc != kOk) {
    return rc;
  }
  if (length <= kHeadBytes) return cipher::kNoInput;

  // Kept so: a one-time password that cannot be had shows only as a wrong result (zeros stand in for it).
  SecretArray<kOneTimePasswordBytes> one_time_password;
  Count offset = 0;
  // Lack of memory is no fault of the body: it must not look like one, and above all not sleep like one.
  (void)personal->SetOffsetOTPassword(LoadBigEndian(in + kPasswordOffsetAt));
  if (personal->GetOTPassword(one_time_password.data(), &offset) == kNoObject) return kNoObject;
  if (Decipher(*aes.get(), in, length, one_time_password.data(), copy.data()) != kOk) return kNoObject;

  if (const Result rc = personal->SetOffsetOTPChiffrement(LoadBigEndian(copy.data() + kRunOffsetAt));
      rc != kOk) {
    return rc;
  }
  SecretCBuffer personal_run;
  if (const Result rc = TakeRun(personal, length, &personal_run, &offset); rc != kOk) return rc;
  (void)master->SetOffsetOTPChiffrement(LoadBigEndian(copy.data() + kMasterOffsetAt) ^
                                        LoadBigEndian(personal_run.data() + kMasterOffsetAt));
  SecretCBuffer master_run;
  if (const Result rc = TakeRun(master, length - kHeadBytes, &master_run, &offset); rc != kOk) return rc;

  const Result rc = Unmask(copy, length, personal_run.data(), master_run.data(), out_length);
  if (rc == kOk) *out = std::move(copy);
  return rc;
}

int TypKestruneV2::LoadLinearKey(TypV2KestruneKey* /*key*/, unsigned char** /*out*/,
                                 unsigned long long count) {
  CBuffer unused;
  if (!utils_ || !unused.Allocate(count)) return kNoObject;
  Owned<TypV2FileRef> file(creator_->newTypV2FileRef());
  if (const Result rc = file.Init(); rc != kOk) return rc;
  Owned<TypKeyUtils> key_utils(creator_->newTypKeyUtils());
  if (const Result rc = key_utils.Init(creator_); rc != kOk) return rc;
  std::array<char, limits::kKeyName + 1 + 13> name;
  key_utils->GetKestruneKeyName(key_name_.data(), name.data());
  if (const Result rc = file->SetFileName(name.data()); rc != kOk) return rc;
  if (const Result rc = file->OpenDF(kUpdateExisting); rc != kOk) return rc;
  if (const Result rc = file->SetFilePos(0); rc != kOk) return rc;
  TypV2KeyHeader header;
  if (const Result rc = file->Read(&header, sizeof header); rc != kOk) return rc;
  utils_->SwapHeader(&header);
  return kOk;
}

int TypKestruneV2::loadRNstring(char* buffer) {
  // 15 to 30 or 43 to 58.
  const int length = (DrawRandom() & 0x8F) % 100 + 15;
  buffer[0] = static_cast<char>(length);
  std::generate(buffer + 1, buffer + length, RandomNonZeroByte);
  return length;
}

int TypKestruneV2::loadRN2string(unsigned long long length, char* buffer) {
  if (length == 0) return kOk;
  std::generate(buffer, buffer + length - 1, RandomNonZeroByte);
  buffer[length - 1] = static_cast<char>(length);
  return kOk;
}
