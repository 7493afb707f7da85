#include "keys/master_key.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/count.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "keys/key_header_file.h"

using namespace kestrune;

namespace {

constexpr Count kPadStart = 4608;
constexpr Count kSpareBytes = 10000;  // zeros behind a run that is handed out

}  // namespace

int TypV2MasterKey::InitCreate(TypV2InstanceCreator* creator, const char* folder, const char* name,
                               unsigned long long open_mode) {
  Kill();
  creator_ = creator;
  open_mode_ = open_mode;
  const Result rc = Open(folder, name);
  if (rc != kOk) Kill();
  return rc;
}

Result TypV2MasterKey::Open(const char* folder, const char* name) {
  // Kept so: a creator without an object for it ends the call with 0 and nothing opened.
  key_utils_ = Owned<TypKeyUtils>(creator_->newTypKeyUtils());
  if (!key_utils_) return kOk;
  if (const Result rc = key_utils_.Init(creator_); rc != kOk) return rc;
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  if (!utils_) return kOk;
  if (const Result rc = utils_.Init(); rc != kOk) return rc;
  file_ = Owned<TypV2FileRef>(creator_->newTypV2FileRef());
  if (!file_) return kOk;
  if (const Result rc = file_.Init(); rc != kOk) return rc;

  if (folder == nullptr) return file::kBadName;
  std::array<char, kYearBytes> year{};
  if (name == nullptr) key_utils_->GetYearKestruneKey(year.data());
  const BoundedPath path{folder, name == nullptr ? "Master." : name, year.data()};
  if (const Result rc = file_->SetFileName(path.c_str()); rc != kOk) return rc;
  if (file_->Exists() != kOk) return file::kMissing;
  if (open_mode_ > kCreateOrEmpty) return key::kMode;
  if (const Result rc = file_->OpenDF(static_cast<int>(open_mode_)); rc != kOk) return rc;
  Count length = 0;
  if (const Result rc = file_->GetLength(&length); rc != kOk) return rc;
  return LoadHeader();
}

int TypV2MasterKey::Kill() {
  key_utils_.Reset();
  utils_.Reset();
  file_.Reset();
  return kOk;
}

int TypV2MasterKey::LoadHeader() {
  return ReadKeyHeader(file_, utils_, &header_);
}

int TypV2MasterKey::WriteHeader() {
  return StoreKeyHeader(file_, utils_, header_);
}

int TypV2MasterKey::SetOffsetOTPChiffrement(unsigned long long offset) {
  if (!file_) return kNoObject;
  header_.OffsetOTPChiffrement = offset;
  return kOk;
}

int TypV2MasterKey::GetLineaKey(unsigned char** out, unsigned long long length,
                                unsigned long long* offset_out) {
  *out = nullptr;
  *offset_out = 0;
  if (!file_) return kNoObject;
  SecretCBuffer run;
  if (length > kLargestCount - kSpareBytes || !run.AllocateUncleared(length + kSpareBytes)) {
    return kNoObject;
  }
  std::memset(run.data() + length, 0, kSpareBytes);
  *offset_out = header_.OffsetOTPChiffrement;
  const TypV2KeyHeader before = header_;
  Result rc = ReadRun(run.data(), length);
  if (rc != key::kOffset) {
    header_.UsedBytesOTPChiffrement += length;
    if (open_mode_ != kReadExisting) {
      // State before output: without a durable header nothing is handed out.
      rc = WriteHeader();
      if (rc != kOk) {
        header_ = before;
        return rc;
      }
    }
  }
  *out = run.release();
  return rc;
}

// Reads the next `length` bytes and moves on. Kept so: neither a position that cannot be reached nor a
// read that fails ends the loop, and the status is that of the last read.
Result TypV2MasterKey::ReadRun(unsigned char* to, unsigned long long length) {
  const Count pad = header_.TailleOTPChiffrement;
  if (pad == 0 && length > 0) {
    std::memset(to, 0, length);
    return key::kOffset;
  }
  Result rc = kOk;
  Count got = 0;
  while (got < length) {
    const Count offset = header_.OffsetOTPChiffrement;
    const Count rest = offset > pad ? length - got : pad - offset;
    const Count bytes = std::min(rest, length - got);
    rc = ReadPiece(offset, to + got, bytes);
    got += bytes;
    if (offset > pad || bytes == pad - offset) {
      header_.OffsetOTPChiffrement = 0;
      header_.CycleCountOTPChiffrement += 1;
    } else {
      header_.OffsetOTPChiffrement = offset + bytes;
    }
  }
  return rc;
}

Result TypV2MasterKey::ReadPiece(unsigned long long offset, unsigned char* to, unsigned long long bytes) {
  (void)file_->SetFilePos(offset + kPadStart);
  if (file_->Read(to, bytes) == kOk) return kOk;
  // Once more into zeros, which stay where the file holds nothing.
  std::memset(to, 0, bytes);
  (void)file_->SetFilePos(offset + kPadStart);
  return file_->Read(to, bytes);
}
