// A key folder with one file of any name and content. What is told of it is what its readers find: state 0 is a key
// with which they do all that they do, any other one with which they do not.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include <kestrune/kestrune.h>
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/known_key.h"
#include "keys/master_key.h"
#include "tests/support/temp_folder.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

constexpr std::size_t kMostFileNameBytes = 200;
constexpr std::size_t kMostPadBytes = 1 << 20;  // what is not there is not asked for

template <class Key>
bool HandsOut(Key& key, unsigned long long length) {
  CBuffer run;
  unsigned char* bytes = nullptr;
  unsigned long long offset = 0;
  const Result rc = key->GetLineaKey(&bytes, length, &offset);
  run.Adopt(bytes, 0);
  return rc == kOk;
}

bool PersonalKeyServes(const TempFolder& folder, const kestrune_key& told) {
  static const std::string any_key(64, '0');
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2KestruneKey> key(new KnownKey);
  if (key.Init(&creator, told.file, 0L, folder.path().c_str(), any_key.c_str(), 0ULL) != kOk) return false;
  std::array<unsigned char, 32> password;
  unsigned long long offset = 0;
  return key->GetOTPassword(password.data(), &offset) == kOk && told.pad[0] < kMostPadBytes &&
         HandsOut(key, told.pad[0]) && key->SetOffsetOTPassword(told.pad[1] - password.size()) == kOk &&
         key->GetOTPassword(password.data(), &offset) == kOk;
}

bool MasterKeyServes(const TempFolder& folder, const kestrune_key& told) {
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2MasterKey> key(new TypV2MasterKey);
  // Kept so: what is next behind the pad is read there.
  const unsigned long long length = told.used[0] > told.pad[0] ? 1 : told.pad[0];
  return key.Init(&creator, folder.path().c_str(), told.file, 0ULL) == kOk && length < kMostPadBytes &&
         HandsOut(key, length);
}

bool SigningKeyServes(const std::string& path) {
  rsa_context key;
  return x509parse_keyfile(&key, path.c_str(), nullptr) == 0 && rsa_check_privkey(&key) == 0;
}

bool CertificateServes(const std::string& path) {
  x509_cert certificate;
  const int rc = x509parse_crtfile(&certificate, path.c_str());
  return rc == 0 || (rc > 0 && rsa_check_pubkey(&certificate.rsa) == 0);
}

void ExpectServes(const TempFolder& folder, const kestrune_key& told) {
  const std::string path = folder.File(told.file);
  const bool is_sound = told.state == kOk;
  Expect((told.kind == KESTRUNE_SIGNING_KEY) || told.protection == 0);
  switch (told.kind) {
    case KESTRUNE_PERSONAL_KEY:
      // Half chunks at the ends of pads are no key's; a file may lack some of them.
      if (told.pad[0] % kPadChunk == 0 && told.pad[1] % kPadChunk == 0)
        Expect(PersonalKeyServes(folder, told) == is_sound);
      break;
    case KESTRUNE_MASTER_KEY:
      if (is_sound) Expect(MasterKeyServes(folder, told));
      break;
    case KESTRUNE_SIGNING_KEY:
      Expect(told.protection != 0 || SigningKeyServes(path) == is_sound);
      Expect(told.protection != 2 || told.state == signer::kKeyUnreadable);
      break;
    case KESTRUNE_CERTIFICATE:
      Expect(CertificateServes(path) == is_sound);
      break;
    default:
      Expect(false);
  }
}

// A pad file with the numbers of the input, cut anywhere; or what the input says.
Bytes ContentOf(Input& input, bool has_pads) {
  static const Bytes whole = PersonalKey{HexPassword("a"), Bytes(2 * kPadChunk), Bytes(kPadChunk)}.File();
  if (!has_pads) return ToBytes(input.Rest());
  Bytes file = whole;
  Spoil(file, input, {kFirstPadBytesAt, kSecondPadBytesAt, kFirstOffsetAt, kSecondOffsetAt});
  return file;
}

std::string NameOf(Input& input, std::uint64_t kind) {
  constexpr std::array<const char*, 4> kUsual = {"durand.226", "Master.226", "durand.z.126.key",
                                                 "durand.z.126.pem"};
  std::string name = input.Text().substr(0, kMostFileNameBytes);
  std::replace(name.begin(), name.end(), '/', '_');
  return name.empty() || name == "." || name == ".." ? kUsual.at(kind % kUsual.size()) : name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TempFolder folder;
  Input input(data, size);
  const std::uint64_t kind = input.Number(1);
  const std::string name = NameOf(input, kind);
  WriteFile(folder.File(name), ContentOf(input, kind % 4 < 2));
  kestrune_key_folder* list = nullptr;
  Expect(kestrune_list_keys(folder.path().c_str(), &list) == kOk && list->keys <= 1);
  if (list->keys == 1) {
    Expect(list->key->file == name && name.starts_with(list->key->name));
    ExpectServes(folder, *list->key);
  }
  kestrune_free_key_folder(list);
  ::unlink(folder.File(name).c_str());
  return 0;
}
