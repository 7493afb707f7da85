#include "keys/kestrune_key.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "base/count.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "keys/aes.h"
#include "keys/key_header_file.h"

using namespace kestrune;

namespace {

constexpr Count kHeaderBytes = sizeof(TypV2KeyHeader);
constexpr Count kChunkBytes = 4096;              // of the pads, each enciphered by itself
constexpr Count kPieceBytes = 64 * kChunkBytes;  // deciphered while the processor still holds what it read
constexpr Count kOneTimePasswordBytes = 32;
constexpr Count kLeastRestOfPad = 8;  // the offset may not be set nearer to the end of the first pad
constexpr std::size_t kDigestedHeaderBytes = 112;  // everything before the offsets
constexpr std::size_t kDigestedIvBytes = 16384;
constexpr unsigned char kKeyMark = 0x20;
constexpr long kWithYear = 1;

Count RoundDown(Count position) {
  return position / kChunkBytes * kChunkBytes;
}

Owned<TypV2AES> NewAes() {
  return Owned<TypV2AES>(new (std::nothrow) TypV2AES);
}

// How often reading starts again at 0 when `bytes` bytes are read from `page` on.
Count Cycles(Count pad, Count page, Count bytes) {
  const Count rest = pad - page;
  return bytes < rest ? 0 : 1 + (bytes - rest) / pad;
}

// Where a hand-out of `length` bytes from `offset` on leaves the pad.
Count Advance(Count pad, Count offset, Count length) {
  const Count rest = pad - offset;
  return length < rest ? offset + length : (length - rest) % pad;
}

}  // namespace

int TypV2KestruneKey::InitCreate(TypV2InstanceCreator* creator, const char* name, long with_year,
                                 const char* folder, const char* hex_password, unsigned long long open_mode) {
  Release();
  creator_ = creator;
  open_mode_ = open_mode;
  const Result rc = Open(name, with_year, folder, hex_password);
  if (rc != kOk) Release();
  return rc;
}

Result TypV2KestruneKey::Open(const char* name, long with_year, const char* folder,
                              const char* hex_password) {
  // Kept so: a creator without an object for it ends the call with 0 and nothing opened.
  key_utils_ = Owned<TypKeyUtils>(creator_->newTypKeyUtils());
  if (!key_utils_) return kOk;
  if (const Result rc = key_utils_.Init(creator_); rc != kOk) return rc;
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  if (!utils_) return kOk;
  if (const Result rc = utils_.Init(); rc != kOk) return rc;

  if (!IsShorterThan(hex_password, 2 * kKeyBufferBytes + 1)) return key::kCheckFailed;
  Count key_length = 0;
  key_.Wipe();
  utils_->DeHexadecimalise(hex_password, key_.data(), &key_length);

  file_ = Owned<TypV2FileRef>(creator_->newTypV2FileRef());
  if (!file_) return kOk;
  if (const Result rc = file_.Init(); rc != kOk) return rc;
  if (const Result rc = OpenFile(name, with_year, folder); rc != kOk) return rc;
  if (const Result rc = LoadHeader(); rc != kOk) return rc;
  return LoadAndDecryptIV();
}

Result TypV2KestruneKey::OpenFile(const char* name, long with_year, const char* folder) {
  if (name == nullptr || folder == nullptr) return file::kBadName;
  std::array<char, kYearBytes> year{};
  if (with_year == kWithYear) key_utils_->GetYearKestruneKey(year.data());
  const BoundedPath path{folder, name, with_year == kWithYear ? "." : "", year.data()};
  if (const Result rc = file_->SetFileName(path.c_str()); rc != kOk) return rc;
  if (open_mode_ > kCreateOrEmpty) return key::kMode;
  if (const Result rc = file_->OpenDF(static_cast<int>(open_mode_)); rc != kOk) return rc;
  Count length = 0;
  return file_->GetLength(&length);
}

int TypV2KestruneKey::Kill() {
  // Kept so: two single bytes. The IV area is wiped as it is freed, the key as the object goes.
  if (iv_area_) {
    iv_area_.data()[0] = static_cast<unsigned char>(iv_area_.size());
    key_.data()[0] = kKeyMark;
  }
  Release();
  return kOk;
}

void TypV2KestruneKey::Release() {
  iv_area_.Clear();
  key_utils_.Reset();
  utils_.Reset();
  file_.Reset();
}

int TypV2KestruneKey::SetOffsetOTPChiffrement(unsigned long long offset) {
  if (!file_) return kNoObject;
  const Count pad = header_.TailleOTPChiffrement;
  if (pad < kLeastRestOfPad || offset > pad - kLeastRestOfPad) return key::kOffset;
  header_.OffsetOTPChiffrement = offset;
  return kOk;
}

int TypV2KestruneKey::SetOffsetOTPassword(unsigned long long offset) {
  if (!file_) return kNoObject;
  header_.OffsetOTPassword = offset;
  return kOk;
}

int TypV2KestruneKey::GetLineaKey(unsigned char** out, unsigned long long length,
                                  unsigned long long* offset_out) {
  *out = nullptr;
  *offset_out = header_.OffsetOTPChiffrement;
  if (!file_) return kNoObject;
  const Count pad = header_.TailleOTPChiffrement;
  const Count offset = header_.OffsetOTPChiffrement;
  if (offset >= pad) return key::kOffset;
  if (length > kLargestCount - 2 * kChunkBytes) return kNoObject;

  // Counted as read: whole chunks, and one more from an offset inside a chunk. Kept so: a cycle may thus be
  // counted by a hand-out that ends before the end of the pad.
  const Count page = RoundDown(offset);
  const Count counted = RoundDown(length + kChunkBytes - 1) + (offset == page ? 0 : kChunkBytes);
  SecretCBuffer run;
  if (!run.AllocateUncleared(counted)) return kNoObject;
  if (const Result rc = ReadRun(run.data(), length, counted); rc != kOk) return rc;
  wipe(run.data() + length, counted - length);

  TypV2KeyHeader advanced = header_;
  advanced.CycleCountOTPChiffrement += Cycles(pad, page, counted);
  advanced.OffsetOTPChiffrement = Advance(pad, offset, length);
  advanced.UseCountOTPChiffrement += 1;
  advanced.UsedBytesOTPChiffrement += length;
  if (const Result rc = Commit(advanced); rc != kOk) return rc;
  *out = run.release();
  return kOk;
}

// Reads the chunks of the first pad that hold the next `length` bytes, these at `to`, but never more than `room`
// bytes: behind the odd end of a pad that is no multiple of 4096, whole chunks may not fit any more.
Result TypV2KestruneKey::ReadRun(unsigned char* to, unsigned long long length, unsigned long long room) {
  const Count pad = header_.TailleOTPChiffrement;
  Count page = RoundDown(header_.OffsetOTPChiffrement);
  Count skip = header_.OffsetOTPChiffrement - page;  // bytes of the next piece that are not wanted
  Count wanted = length;
  while (wanted > 0) {
    Count bytes = std::min({RoundDown(skip + wanted + kChunkBytes - 1), pad - page, kPieceBytes, room});
    if (skip > 0) {
      // A chunk that is entered in its middle is read apart, so that all the others land in their place.
      bytes = std::min(bytes, kChunkBytes);
      SecretArray<kChunkBytes> chunk;
      const Count needed = std::min(bytes, skip + wanted);
      if (const Result rc = ReadPad(page, chunk.data(), bytes, needed); rc != kOk) return rc;
      std::memcpy(to, chunk.data() + skip, bytes - skip);
    } else if (const Result rc = ReadPad(page, to, bytes, std::min(bytes, wanted)); rc != kOk) {
      return rc;
    }
    to += bytes - skip;
    wanted -= std::min(wanted, bytes - skip);
    skip = 0;
    room -= bytes;
    page = pad - page == bytes ? 0 : page + bytes;
  }
  return kOk;
}

int TypV2KestruneKey::GetOTPassword(unsigned char* out, unsigned long long* offset_out) {
  *offset_out = header_.OffsetOTPassword;
  if (!file_) return kNoObject;
  const Count offset = header_.OffsetOTPassword;
  const Count page = RoundDown(offset);
  if (offset >= header_.TailleOTPassword || offset - page > kChunkBytes - kOneTimePasswordBytes ||
      page > kLargestCount - header_.TailleOTPChiffrement) {
    return key::kOffset;
  }
  SecretCBuffer chunk;
  if (!chunk.Allocate(kChunkBytes)) return kNoObject;
  const Result rc = ReadPad(header_.TailleOTPChiffrement + page, chunk.data(), kChunkBytes,
                            offset - page + kOneTimePasswordBytes);
  if (rc != kOk) return rc;
  TypV2KeyHeader advanced = header_;
  const bool at_end = header_.TailleOTPassword - offset <= kOneTimePasswordBytes;
  advanced.OffsetOTPassword = at_end ? 0 : offset + kOneTimePasswordBytes;
  if (const Result committed = Commit(advanced); committed != kOk) return committed;
  std::memcpy(out, chunk.data() + (offset - page), kOneTimePasswordBytes);
  return kOk;
}

// Reads `bytes` bytes from `first_byte` of the two pads together on and deciphers the whole chunks of them. A
// piece that ends inside a chunk (a pad whose length is no multiple of 4096) stays there as it is in the
// file. The first `needed` bytes are handed out, so the file must hold them.
Result TypV2KestruneKey::ReadPad(unsigned long long first_byte, unsigned char* to, unsigned long long bytes,
                                 unsigned long long needed) {
  const Count first_chunk = first_byte / kChunkBytes;
  if (!HasIvs(first_chunk, bytes / kChunkBytes)) return key::kOffset;
  const Count pads = kHeaderBytes + iv_area_.size();
  if (first_byte > kLargestCount - pads || file_->SetFilePos(pads + first_byte) != kOk) return file::kRead;
  if (file_->Read(to, bytes) != kOk) {
    if (const Result rc = ReadHeld(pads + first_byte, to, bytes, needed); rc != kOk) return rc;
  }
  return DecryptageAESChunk(to, first_chunk, bytes / kChunkBytes);
}

// Reads what a file that ends inside these bytes still holds of them; zeros behind it. The needed bytes must
// be there, with the whole AES block that the last one lies in: none are made up, since a pad of deciphered
// zeros repeats every 16 bytes.
Result TypV2KestruneKey::ReadHeld(unsigned long long position, unsigned char* to, unsigned long long bytes,
                                  unsigned long long needed) {
  Count end = 0;
  if (file_->GetLength(&end) != kOk || end < position) return file::kRead;
  const Count held = std::min(bytes, end - position);
  if (held < std::min(bytes, (needed + kAesBlockBytes - 1) / kAesBlockBytes * kAesBlockBytes)) {
    return file::kRead;
  }
  if (file_->SetFilePos(position) != kOk || file_->Read(to, held) != kOk) return file::kRead;
  std::memset(to + held, 0, bytes - held);
  return kOk;
}

// State before output: the object and the file move on together, or not at all.
Result TypV2KestruneKey::Commit(const TypV2KeyHeader& advanced) {
  const TypV2KeyHeader before = header_;
  header_ = advanced;
  const Result rc = open_mode_ == kReadExisting ? kOk : WriteHeader();
  if (rc != kOk) header_ = before;
  return rc;
}

int TypV2KestruneKey::LoadHeader() {
  return ReadKeyHeader(file_, utils_, &header_);
}

int TypV2KestruneKey::WriteHeader() {
  return StoreKeyHeader(file_, utils_, header_);
}

int TypV2KestruneKey::LoadAndDecryptIV() {
  if (!file_) return kNoObject;
  iv_area_.Clear();
  Count file_bytes = 0;
  if (const Result rc = file_->GetLength(&file_bytes); rc != kOk) return rc;
  const Count iv_bytes = key_utils_->GetTailleIV(header_.TailleOTPChiffrement, header_.TailleOTPassword);
  // Compared before anything is allocated: the lengths in a header may be anything.
  if (file_bytes < kHeaderBytes || iv_bytes > file_bytes - kHeaderBytes) return file::kRead;
  if (!iv_area_.AllocateUncleared(iv_bytes)) return kNoObject;
  if (const Result rc = file_->SetFilePos(kHeaderBytes); rc != kOk) return rc;
  if (const Result rc = file_->Read(iv_area_.data(), iv_bytes); rc != kOk) return rc;
  return DecryptageIV();
}

int TypV2KestruneKey::DecryptageIV() {
  if (!file_) return kNoObject;
  std::array<unsigned char, kAesBlockBytes> iv;
  Owned<TypV2AES> aes = NewAes();
  if (aes.Init(creator_) != kOk || aes->zeroiv(iv.data()) != kOk) return key::kCheckFailed;
  if (aes->decrypter(iv_area_.data(), static_cast<long long>(iv_area_.size()), iv.data(), key_.data(),
                     iv_area_.data()) != kOk) {
    return key::kCheckFailed;
  }
  const TypV2KeyHeader digested = ForCheckDigest(header_);
  sha4_context digest;
  std::array<unsigned char, kSha512Bytes> sha512;
  sha4_starts(&digest, 0);
  sha4_update(&digest, reinterpret_cast<const unsigned char*>(&digested), kDigestedHeaderBytes);
  sha4_update(&digest, iv_area_.data(), std::min(iv_area_.size(), kDigestedIvBytes));
  sha4_finish(&digest, sha512.data());
  std::array<unsigned char, kSha1Bytes> check;
  sha1(sha512.data(), sha512.size(), check.data());
  return equal_in_constant_time(check.data(), header_.CheckDigest, check.size()) ? kOk : key::kCheckFailed;
}

bool TypV2KestruneKey::HasIvs(unsigned long long first_chunk, unsigned long long chunk_count) const {
  const Count ivs = iv_area_.size() / kAesBlockBytes;
  return first_chunk <= ivs && chunk_count <= ivs - first_chunk;
}

int TypV2KestruneKey::DecryptageAESChunk(unsigned char* buffer, unsigned long long first_chunk,
                                         unsigned long long chunk_count) {
  if (!file_) return kNoObject;
  if (!HasIvs(first_chunk, chunk_count)) return key::kOffset;
  Owned<TypV2AES> aes = NewAes();
  if (!aes) return kNoObject;
  if (aes.Init(creator_) != kOk) return key::kCipher;
  return aes->decrypterchunks(buffer, chunk_count, iv_area_.data() + first_chunk * kAesBlockBytes,
                              key_.data());
}
