// What is in a key folder.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "base/regular_file.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "crypto/key_protection.h"
#include "keys/key_header_file.h"
#include "sign/key_utils.h"
#include "sign/signature_verify.h"

using namespace kestrune;

namespace {

using crypto::KeyProtection;

// ---- Names -------------------------------------------------------------------------------------------

struct Entry {
  std::string file;
  std::string name;
  kestrune_key key{};
};

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

int NumberOf(std::string_view digits) {
  int number = 0;
  for (const char digit : digits) number = 10 * number + (digit - '0');
  return number;
}

// NAME.LETTER.YEAR; what is none is a NAME.
void ReadGeneration(std::string_view stem, Entry* entry) {
  constexpr int kYearsBefore = 1900;
  constexpr std::size_t kMostYearDigits = 4, kLetterCharacters = 2;  // ".z"
  entry->name = stem;
  const std::size_t dot = stem.rfind('.');
  if (dot == std::string_view::npos || dot <= kLetterCharacters) return;
  const std::string_view year = stem.substr(dot + 1);
  const char letter = stem[dot - 1];
  if (year.empty() || year.size() > kMostYearDigits || !std::all_of(year.begin(), year.end(), IsDigit) ||
      letter < 'a' || letter > 'z' || stem[dot - kLetterCharacters] != '.')
    return;
  entry->name = stem.substr(0, dot - kLetterCharacters);
  entry->key.letter = letter;
  entry->key.year = kYearsBefore + NumberOf(year);
}

// NAME.YEAR, as TypV2Utils::ExtractFileSuffix knows it.
bool ReadPadYear(std::string_view file, Entry* entry) {
  constexpr int kYearsBefore = 1800;
  constexpr std::size_t kYearCharacters = 3;
  if (file.size() <= kYearCharacters + 1) return false;
  const std::string_view year = file.substr(file.size() - kYearCharacters);
  entry->name = file.substr(0, file.size() - kYearCharacters - 1);
  if (file[entry->name.size()] != '.' || year[0] != '2' || !std::all_of(year.begin(), year.end(), IsDigit))
    return false;
  entry->key.year = kYearsBefore + NumberOf(year);
  entry->key.kind = entry->name == "Master" ? KESTRUNE_MASTER_KEY : KESTRUNE_PERSONAL_KEY;
  return true;
}

// False for a file whose name is no key's.
bool ReadName(Entry* entry) {
  constexpr std::size_t kSuffixCharacters = 4;
  const std::string_view file = entry->file;
  const bool is_key = file.ends_with(".key");
  if (!is_key && !file.ends_with(".pem")) return ReadPadYear(file, entry);
  entry->key.kind = is_key ? KESTRUNE_SIGNING_KEY : KESTRUNE_CERTIFICATE;
  ReadGeneration(file.substr(0, file.size() - kSuffixCharacters), entry);
  return !entry->name.empty();
}

// ---- What their readers find ---------------------------------------------------------------------------

class Inspector {
 public:
  explicit Inspector(std::string folder) : folder_(std::move(folder)) {}

  Result Init() {
    file_ = Owned<TypV2FileRef>(creator_.newTypV2FileRef());
    utils_ = Owned<TypV2Utils>(creator_.newTypV2Utils());
    key_utils_ = Owned<TypKeyUtils>(creator_.newTypKeyUtils());
    verifier_ = Owned<TypApiV2SignatureVerify>(creator_.newTypApiV2SignatureVerify());
    Result rc = file_.Init();
    if (rc == kOk) rc = utils_.Init();
    if (rc == kOk) rc = key_utils_.Init(&creator_);
    return rc == kOk ? verifier_.Init(&creator_, folder_.c_str()) : rc;
  }

  // The state of what `entry` names, and what belongs to it. That there was no memory says nothing of a file.
  Result Inspect(Entry* entry) {
    entry->key.state = StateOf(entry);
    return entry->key.state == kNoObject ? kNoObject : kOk;
  }

 private:
  Result StateOf(Entry* entry) {
    const std::string path = folder_ + entry->file;
    switch (entry->key.kind) {
      case KESTRUNE_CERTIFICATE:
        verifier_->FreePublicKey();
        return verifier_->LoadPublicKey(entry->file.c_str());
      case KESTRUNE_SIGNING_KEY:
        // The signer looks for its key through a file reference.
        if (entry->key.letter != 0 && path.size() > limits::kPath) return signer::kNoKeyFile;
        return StateOfSigningKey(path, &entry->key);
      default:
        return StateOfPads(path, &entry->key);
    }
  }

  static Result StateOfSigningKey(const std::string& path, kestrune_key* key) {
    const KeyProtection protection = crypto::ProtectionOf(path.c_str());
    if (protection == KeyProtection::kNoMemory) return kNoObject;
    key->protection = protection == KeyProtection::kUnread       ? 2
                      : protection == KeyProtection::kPassPhrase ? 1
                                                                 : 0;
    if (protection == KeyProtection::kPassPhrase) return kOk;
    if (protection == KeyProtection::kUnread) return signer::kKeyUnreadable;
    rsa_context rsa;
    int rc = x509parse_keyfile(&rsa, path.c_str(), nullptr);
    if (rc == 0) rc = rsa_check_privkey(&rsa);
    if (rc == ERR_NO_MEMORY) return kNoObject;
    return rc == 0 ? kOk : signer::kKeyUnreadable;
  }

  Result StateOfPads(const std::string& path, kestrune_key* key) {
    const bool is_master = key->kind == KESTRUNE_MASTER_KEY;
    Result rc = file_->SetFileName(path.c_str());
    if (rc == kOk && is_master) rc = file_->Exists();
    if (rc == kOk) rc = file_->OpenDF(kReadExisting);
    unsigned long long length = 0;
    TypV2KeyHeader header{};
    if (rc == kOk) rc = file_->GetLength(&length);
    if (rc == kOk) rc = ReadKeyHeader(file_, utils_, &header);
    file_->CloseDF();
    if (rc != kOk) return rc;
    key->pad[0] = header.TailleOTPChiffrement;
    key->used[0] = header.OffsetOTPChiffrement;
    key->turns[0] = header.CycleCountOTPChiffrement;
    if (is_master) return StateOfMasterPad(*key, length);
    key->pad[1] = header.TailleOTPassword;
    key->used[1] = header.OffsetOTPassword;
    return StateOfPersonalPads(*key, length);
  }

  // As keys/master_key.cpp reads: a position behind the pad is read there.
  static Result StateOfMasterPad(const kestrune_key& key, unsigned long long length) {
    constexpr unsigned long long kPadStart = 4608;
    if (key.pad[0] == 0) return key::kOffset;
    if (length < kPadStart) return file::kRead;
    const unsigned long long held = length - kPadStart;
    return key.pad[0] > held || (key.used[0] > key.pad[0] && key.used[0] >= held) ? file::kRead : kOk;
  }

  // As keys/kestrune_key.cpp reads: the area of initial vectors, then both pads.
  Result StateOfPersonalPads(const kestrune_key& key, unsigned long long length) {
    constexpr unsigned long long kChunkBytes = 4096, kOneTimePasswordBytes = 32;
    unsigned long long rest = length - sizeof(TypV2KeyHeader);
    if (key.pad[0] > rest || key.pad[1] > rest) return file::kRead;
    const unsigned long long iv_area = key_utils_->GetTailleIV(key.pad[0], key.pad[1]);
    if (iv_area > rest) return file::kRead;
    rest -= iv_area;
    if (key.used[0] >= key.pad[0] || key.used[1] >= key.pad[1] ||
        key.used[1] % kChunkBytes > kChunkBytes - kOneTimePasswordBytes)
      return key::kOffset;
    return key.pad[0] > rest || key.pad[1] > rest - key.pad[0] ? file::kRead : kOk;
  }

  const std::string folder_;
  TypV2InstanceCreatorUnix creator_;
  Owned<TypV2FileRef> file_;
  Owned<TypV2Utils> utils_;
  Owned<TypKeyUtils> key_utils_;
  Owned<TypApiV2SignatureVerify> verifier_;
};

// ---- The folder --------------------------------------------------------------------------------------

struct KeyFolder : kestrune_key_folder {
  std::vector<Entry> entries;
  std::vector<kestrune_key> handed_out;
};

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

Directory OpenDirectory(const char* path) {
  FileDescriptor descriptor = OpenDescriptor(path, O_RDONLY | O_DIRECTORY);
  Directory directory(descriptor.valid() ? ::fdopendir(descriptor.get()) : nullptr);
  if (directory) (void)descriptor.release();
  return directory;
}

// Through links. What cannot be looked at, though it is there, is what the folder itself tells: nothing is left out.
bool IsRegular(DIR* directory, const dirent& found) {
  struct stat status;
  if (::fstatat(::dirfd(directory), found.d_name, &status, 0) == 0) return S_ISREG(status.st_mode);
  return errno != ENOENT && found.d_type == DT_REG;
}

Result ReadNames(const char* folder, std::vector<Entry>* entries) {
  const Directory directory = OpenDirectory(folder);
  if (!directory) return errno == ENOMEM ? kNoObject : file::kOpen;
  for (;;) {
    errno = 0;
    const dirent* const found = ::readdir(directory.get());
    if (found == nullptr && errno == EINTR) continue;
    if (found == nullptr) return errno == 0 ? kOk : file::kOpen;
    Entry entry;
    entry.file = found->d_name;
    if (ReadName(&entry) && IsRegular(directory.get(), *found)) entries->push_back(std::move(entry));
  }
}

Result List(const char* folder, KeyFolder* list) {
  std::string prefix = folder;
  if (prefix.size() > limits::kPath) return file::kBadName;
  if (const Result rc = ReadNames(prefix.empty() ? "." : folder, &list->entries); rc != kOk) return rc;
  if (!prefix.empty() && prefix.back() != '/') prefix += '/';
  std::sort(list->entries.begin(), list->entries.end(),
            [](const Entry& a, const Entry& b) { return a.file < b.file; });
  Inspector inspector(prefix);
  if (const Result rc = inspector.Init(); rc != kOk) return rc;
  list->handed_out.reserve(list->entries.size());
  for (Entry& entry : list->entries) {
    if (const Result rc = inspector.Inspect(&entry); rc != kOk) return rc;
    entry.key.file = entry.file.c_str();
    entry.key.name = entry.name.c_str();
    list->handed_out.push_back(entry.key);
  }
  list->keys = list->handed_out.size();
  list->key = list->handed_out.data();
  return kOk;
}

}  // namespace

long kestrune_list_keys(const char* folder, kestrune_key_folder** list) {
  if (list != nullptr) *list = nullptr;
  if (folder == nullptr) return argument::kNoInput;
  if (list == nullptr) return argument::kNoOutput;
  return EntryPoint([&]() -> long {
    auto made = std::make_unique<KeyFolder>();
    const Result rc = List(folder, made.get());
    if (rc == kOk) *list = made.release();
    return rc;
  });
}

void kestrune_free_key_folder(kestrune_key_folder* list) {
  delete static_cast<KeyFolder*>(list);
}
