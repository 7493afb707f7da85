#include "keys/install_cipher.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/regular_file.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "keys/aes.h"
#include "keys/output_file.h"

using namespace kestrune;

namespace {

constexpr std::size_t kGrainBytes = 32;  // bodies are filled up to a multiple of it
constexpr std::size_t kTrailerBytes = 32;
constexpr unsigned char kFiller = ' ';

// Files pass in pieces of this size. A multiple of the grain, so that only the last piece is filled up and
// the trailer lies wholly in the last one.
constexpr std::size_t kPieceBytes = 64UL * 1024;
static_assert(kPieceBytes % kGrainBytes == 0 && kTrailerBytes == kGrainBytes);

// One file on its way into another: Prepare, OpenInput, OpenOutput, then one of the two directions.
class Transit {
 public:
  Transit(TypV2InstanceCreator* creator, Readers output_readers, FirstSector first_sector)
      : creator_(creator), output_(output_readers, first_sector) {}

  Result Prepare(const char* hex_key);
  // An input whose length is no multiple of `length_grain` is refused.
  Result OpenInput(const char* path, const char* output_path, std::size_t length_grain);
  Result OpenOutput(const char* path);
  Result Encipher();
  Result Decipher();

 private:
  Result ReadKey(const char* hex_key);
  Result ReadPiece(std::size_t* count);
  Result WriteEnciphered(unsigned char* bytes, std::size_t count);
  Result EncipherBody();
  Result DecipherBody(unsigned char* trailer);

  TypV2InstanceCreator* creator_;
  SecretArray<kAes256KeyBytes> key_;
  std::array<unsigned char, kAesBlockBytes> iv_{};  // carries the state of the stream
  SecretCBuffer piece_;
  unsigned long long left_ = 0;  // bytes of the input that were not read yet
  sha1_context digest_;
  Owned<TypV2AES> aes_;
  Owned<TypV2FileRef> input_;
  OutputFile output_;
};

Result Transit::ReadKey(const char* hex_key) {
  Owned<TypV2Utils> utils(creator_->newTypV2Utils());
  if (const Result rc = utils.Init(); rc != kOk) return rc;
  // Compared first: a longer text would not fit. 63 characters give 32 bytes too.
  constexpr std::size_t kMostCharacters = 2 * kAes256KeyBytes;
  if (!IsShorterThan(hex_key, kMostCharacters + 1)) return install::kKey;
  unsigned long long count = 0;
  utils->DeHexadecimalise(hex_key, key_.data(), &count);
  return count == kAes256KeyBytes ? kOk : install::kKey;
}

Result Transit::Prepare(const char* hex_key) {
  if (creator_ == nullptr) return kNoObject;
  if (const Result rc = ReadKey(hex_key); rc != kOk) return rc;
  if (!piece_.Allocate(kPieceBytes)) return kNoObject;
  aes_ = Owned<TypV2AES>(creator_->newTypV2AES());
  if (const Result rc = aes_.Init(creator_); rc != kOk) return rc;
  sha1_starts(&digest_);
  return aes_->zeroiv(iv_.data());
}

Result Transit::OpenInput(const char* path, const char* output_path, std::size_t length_grain) {
  input_ = Owned<TypV2FileRef>(creator_->newTypV2FileRef());
  if (const Result rc = input_.Init(); rc != kOk) return rc;
  if (const Result rc = input_->SetFileName(path); rc != kOk) return rc;
  // Opening the output would empty what is still to be read.
  if (output_path != nullptr && IsSameFile(path, output_path)) return file::kOpen;
  if (const Result rc = input_->OpenDF(kReadExisting); rc != kOk) return rc;
  if (const Result rc = input_->GetLength(&left_); rc != kOk) return rc;
  if (left_ % length_grain != 0) return install::kLength;
  return input_->SetFilePos(0);
}

Result Transit::OpenOutput(const char* path) {
  if (const Result rc = output_.Name(creator_, path); rc != kOk) return rc;
  // Kept so: a refusal here shows as a failing write.
  (void)output_.Open();
  return kOk;
}

Result Transit::ReadPiece(std::size_t* count) {
  *count = static_cast<std::size_t>(std::min<unsigned long long>(left_, kPieceBytes));
  if (const Result rc = input_->Read(piece_.data(), *count); rc != kOk) return rc;
  left_ -= *count;
  return kOk;
}

Result Transit::WriteEnciphered(unsigned char* bytes, std::size_t count) {
  const Result rc = aes_->cryptershunk(bytes, static_cast<long long>(count), iv_.data(), key_.data(), bytes);
  return rc == kOk ? output_.Write(bytes, count) : rc;
}

Result Transit::EncipherBody() {
  while (left_ > 0) {
    std::size_t count = 0;
    if (const Result rc = ReadPiece(&count); rc != kOk) return rc;
    const std::size_t filled = (count + kGrainBytes - 1) / kGrainBytes * kGrainBytes;
    std::memset(piece_.data() + count, kFiller, filled - count);
    sha1_update(&digest_, piece_.data(), filled);
    if (const Result rc = WriteEnciphered(piece_.data(), filled); rc != kOk) return rc;
  }
  return kOk;
}

Result Transit::Encipher() {
  Result rc = EncipherBody();
  if (rc == kOk) {
    SecretArray<kTrailerBytes> trailer;
    sha1_finish(&digest_, trailer.data());
    rc = WriteEnciphered(trailer.data(), trailer.size());
  }
  return output_.Finish(rc);
}

// `trailer` gets the last 32 bytes and stays as it is when there are none.
Result Transit::DecipherBody(unsigned char* trailer) {
  while (left_ > 0) {
    std::size_t count = 0;
    if (const Result rc = ReadPiece(&count); rc != kOk) return rc;
    const Result rc = aes_->decryptershunk(piece_.data(), static_cast<long long>(count), iv_.data(),
                                           key_.data(), piece_.data());
    if (rc != kOk) return rc;
    if (left_ == 0) {
      count -= kTrailerBytes;
      std::memcpy(trailer, piece_.data() + count, kTrailerBytes);
    }
    if (count == 0) continue;
    sha1_update(&digest_, piece_.data(), count);
    if (const Result written = output_.Write(piece_.data(), count); written != kOk) return written;
  }
  return kOk;
}

Result Transit::Decipher() {
  SecretArray<kTrailerBytes> trailer;
  Result rc = DecipherBody(trailer.data());
  if (rc == kOk) {
    SecretArray<kSha1Bytes> digest;
    sha1_finish(&digest_, digest.data());
    if (!equal_in_constant_time(digest.data(), trailer.data(), digest.size())) rc = install::kDigest;
  }
  return output_.Finish(rc);
}

}  // namespace

int TypV2AESInstallKeys::InitCreate(TypV2InstanceCreator* creator) {
  creator_ = creator;
  return kOk;
}

int TypV2AESInstallKeys::Kill() {
  return kOk;
}

int TypV2AESInstallKeys::Chiffrerfichier(const char* input_path, const char* output_path,
                                         const char* hex_key) {
  return EntryPoint([&]() -> Result {
    Transit transit(creator_, Readers::kAsUsual, FirstSector::kInTurn);
    if (const Result rc = transit.Prepare(hex_key); rc != kOk) return rc;
    if (const Result rc = transit.OpenInput(input_path, output_path, 1); rc != kOk) return rc;
    if (const Result rc = transit.OpenOutput(output_path); rc != kOk) return rc;
    return transit.Encipher();
  });
}

int TypV2AESInstallKeys::DeChiffrerfichier(const char* input_path, const char* output_path,
                                           const char* hex_key) {
  return EntryPoint([&]() -> Result {
    Transit transit(creator_, Readers::kOwnerAlone, FirstSector::kLast);
    if (const Result rc = transit.Prepare(hex_key); rc != kOk) return rc;
    if (const Result rc = transit.OpenInput(input_path, output_path, kGrainBytes); rc != kOk) return rc;
    if (const Result rc = transit.OpenOutput(output_path); rc != kOk) return rc;
    return transit.Decipher();
  });
}
