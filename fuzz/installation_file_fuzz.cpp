// An installation file that arrived from somewhere: it deciphers, or leaves no output.
//
// Nobody finds a fitting digest, so an input that begins with a zero byte holds a file to encipher instead;
// what becomes of it must decipher to the same bytes and spaces.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/instance_creator.h"
#include "keys/install_cipher.h"
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace {

using kestrune::testing::Bytes;
using kestrune::testing::FileExists;
using kestrune::testing::ReadFile;
using kestrune::testing::WriteFile;

constexpr char kKey[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
constexpr std::size_t kGrainBytes = 32;

void Expect(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kestrune::testing::TempFolder folder;
  static const std::string given = folder.File("given");
  static const std::string sealed = folder.File("sealed");
  static const std::string opened = folder.File("opened");
  TypV2InstanceCreatorUnix creator;
  TypV2AESInstallKeys cipher;
  cipher.InitCreate(&creator);
  Bytes content(data, data + size);
  if (size == 0 || data[0] != 0) {
    WriteFile(sealed, content);
    const int code = cipher.DeChiffrerfichier(sealed.c_str(), opened.c_str(), kKey);
    Expect(FileExists(opened) == (code == 0));
    if (code == 0) Expect(ReadFile(opened).size() + kGrainBytes == size);
  } else {
    content.erase(content.begin());
    WriteFile(given, content);
    Expect(cipher.Chiffrerfichier(given.c_str(), sealed.c_str(), kKey) == 0);
    Expect(cipher.DeChiffrerfichier(sealed.c_str(), opened.c_str(), kKey) == 0);
    content.resize((content.size() + kGrainBytes - 1) / kGrainBytes * kGrainBytes, ' ');
    Expect(ReadFile(opened) == content);
  }
  ::unlink(opened.c_str());
  return 0;
}
