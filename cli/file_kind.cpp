#include "cli/file_kind.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/descriptor.h"
#include "cli/failure.h"
#include "core/instance_creator.h"
#include "core/key_header.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"
#include "sign/key_utils.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kBeginning = 4096;  // as much as is looked at
constexpr unsigned long long kChunkBytes = 4096, kMasterPadAt = 4608, kPasswordBytes = 32;
constexpr unsigned long long kMostPadBytes = 1ULL << 50;  // no disk has more; sums of these do not wrap
constexpr unsigned long long kRoundedTo = 32;             // installation files

bool Contains(std::string_view text, std::string_view piece) {
  return text.find(piece) != std::string_view::npos;
}

bool IsMasterName(const std::string& name) {
  return IsPadName(name) && name.compare(0, std::strlen("Master."), "Master.") == 0;
}

// As their readers find it: pads that the file does not hold, or that have no next byte.
long StateOf(const kestrune_key& key, unsigned long long wanted, unsigned long long size) {
  const bool is_master = key.kind == KESTRUNE_MASTER_KEY;
  if (key.pad[0] == 0 || (!is_master && (key.used[0] >= key.pad[0] || key.used[1] >= key.pad[1] ||
                                         key.used[1] % kChunkBytes > kChunkBytes - kPasswordBytes)))
    return key::kOffset;
  return wanted > size ? file::kRead : 0;
}

// A header counts by the file's length, which follows from it; or by its name, whatever it holds.
bool ReadPads(std::string_view beginning, unsigned long long size, const std::string& name, FileKind* kind) {
  TypV2KeyHeader header;
  if (beginning.size() < sizeof header) {
    kind->key.state = file::kRead;
    return IsPadName(name);
  }
  std::memcpy(&header, beginning.data(), sizeof header);
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2Utils> utils(creator.newTypV2Utils());
  Owned<TypKeyUtils> key_utils(creator.newTypKeyUtils());
  if (utils.Init() != kOk || key_utils.Init(&creator) != kOk) throw std::bad_alloc();
  utils->SwapHeader(&header);
  const unsigned long long first = header.TailleOTPChiffrement, second = header.TailleOTPassword;
  const auto is_possible = [](unsigned long long pad) {
    return pad > 0 && pad % kChunkBytes == 0 && pad <= kMostPadBytes;
  };
  // A master key's header may say anything of a second pad.
  const unsigned long long master_bytes = is_possible(first) ? kMasterPadAt + first : 0;
  const unsigned long long personal_bytes =
      is_possible(first) && is_possible(second)
          ? sizeof header + key_utils->GetTailleIV(first, second) + first + second
          : 0;
  const auto has_length = [size](unsigned long long bytes) {
    return bytes > 0 && size >= bytes && size - bytes < kRoundedTo;
  };
  const bool is_master =
      IsMasterName(name) || (!IsPadName(name) && !has_length(personal_bytes) && has_length(master_bytes));
  if (!IsPadName(name) && !is_master && !has_length(personal_bytes)) return false;
  kestrune_key& key = kind->key;
  key.kind = is_master ? KESTRUNE_MASTER_KEY : KESTRUNE_PERSONAL_KEY;
  key.pad[0] = first;
  key.used[0] = header.OffsetOTPChiffrement;
  key.turns[0] = header.CycleCountOTPChiffrement;
  if (!is_master) {
    key.pad[1] = second;
    key.used[1] = header.OffsetOTPassword;
  }
  kind->bytes = is_master ? master_bytes : personal_bytes;
  constexpr unsigned long long kMore = ~0ULL;  // than any file has
  key.state = StateOf(key, kind->bytes > 0 ? kind->bytes : kMore, size);
  if (key.state != 0) kind->bytes = size;
  return true;
}

bool IsBlock(std::string_view text) {
  constexpr std::size_t kHeadBytes = 24, kMostName = 5;
  return text.size() >= kHeadBytes && text[0] == 2 && (text[1] == 0 || text[1] == 1) &&
         static_cast<unsigned char>(text[2]) <= kMostName;
}

// A SEQUENCE of more than 255 bytes: its tag and its length.
constexpr std::size_t kLongHead = 4;

bool IsDer(std::string_view text) {
  return text.size() > kLongHead && text[0] == '\x30' && text[1] == '\x82' && text[kLongHead] != 0 &&
         (text[kLongHead] == '\x30' || text[kLongHead] == '\x02');
}

What OfText(std::string_view text) {
  if (Contains(text, "PRIVATE KEY-----")) return What::kPrivateKey;
  if (Contains(text, "-----BEGIN CERTIFICATE") || Contains(text, "-----BEGIN X509"))
    return What::kCertificate;
  if (Contains(text, "<AESPUB>")) return What::kForCertificate;
  if (Contains(text, "<IV>") && Contains(text, "<AE>")) return What::kUnderPassword;
  if (Contains(text, "<SIGN>")) return What::kSignature;
  return What::kUnknown;
}

// Enciphered bytes hold controls, zeros or broken characters from their beginning on.
bool LooksRandom(std::string_view text) {
  constexpr std::size_t kSample = 32;
  return std::any_of(text.begin(), text.begin() + std::min(kSample, text.size()), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < '\t' || byte > '~';
  });
}

FileKind KindOf(std::string_view beginning, unsigned long long size, const std::string& path) {
  const std::string name = std::filesystem::path(path).filename();
  FileKind kind;
  kind.bytes = size;
  kind.key.kind = IsMasterName(name) ? KESTRUNE_MASTER_KEY : KESTRUNE_PERSONAL_KEY;
  if (size == 0) {
    kind.what = What::kEmpty;
  } else if (ReadPads(beginning, size, name, &kind)) {
    kind.what = What::kPads;
  } else if (IsBlock(beginning)) {
    kind.what = What::kBlock;
  } else if (IsDer(beginning)) {
    const bool is_key = beginning[kLongHead] == '\x02' || IsProtectedDer(beginning);
    kind.what = is_key ? What::kPrivateKey : What::kCertificate;
  } else {
    kind.what = OfText(beginning);
    if (kind.what == What::kUnknown && size % kRoundedTo == 0 && LooksRandom(beginning))
      kind.what = What::kInstallation;
  }
  return kind;
}

}  // namespace

bool IsPadName(const std::string& file_name) {
  constexpr std::size_t kSuffix = 4;
  if (file_name.size() <= kSuffix) return false;
  const std::string suffix = file_name.substr(file_name.size() - kSuffix);
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  return suffix[0] == '.' && suffix[1] == '2' && is_digit(suffix[2]) && is_digit(suffix[3]);
}

bool IsKeyName(const std::string& file_name) {
  const std::string suffix = std::filesystem::path(file_name).extension();
  return IsPadName(file_name) || suffix == ".key" || suffix == ".pem";
}

FileKind KindOfContent(std::string_view content, const std::string& name) {
  FileKind kind = KindOf(content.substr(0, kBeginning), content.size(), name);
  if (kind.what == What::kPrivateKey || kind.what == What::kCertificate) {
    while (kind.bytes > 0 && content[static_cast<std::size_t>(kind.bytes) - 1] == ' ') --kind.bytes;
  }
  return kind;
}

// It begins with an algorithm's identifier, a certificate with a version or a number.
bool IsProtectedDer(std::string_view text) {
  constexpr std::size_t kShortHead = 2;
  constexpr unsigned char kFirstLong = 0x80;
  if (!IsDer(text) || text[kLongHead] != '\x30' || text.size() < 2 * kLongHead + 1) return false;
  const auto length = static_cast<unsigned char>(text[kLongHead + 1]);
  if (length > kFirstLong + 2) return false;
  const std::size_t head = length < kFirstLong ? kShortHead : kShortHead + length - kFirstLong;
  return text[kLongHead + head] == '\x06';
}

FileKind KindOfFile(const std::string& path) {
  const Descriptor file = Open(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file.is_open() || ::fstat(file.get(), &status) != 0) throw SystemFailure(errno, path);
  if (S_ISDIR(status.st_mode)) throw SystemFailure(EISDIR, path);
  std::string beginning(kBeginning, 0);
  const ssize_t got =
      Uninterrupted([&] { return ::pread(file.get(), beginning.data(), beginning.size(), 0); });
  if (got < 0) throw SystemFailure(errno, path);
  return KindOf(std::string_view(beginning).substr(0, static_cast<std::size_t>(got)),
                static_cast<unsigned long long>(status.st_size), path);
}

}  // namespace kestrune::cli
