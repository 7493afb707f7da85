// An installation file that arrived from somewhere: it deciphers, or leaves no output.
//
// Nobody finds a fitting digest, so an input that begins with a zero byte holds a file to encipher instead;
// what becomes of it must decipher to the same bytes and spaces.
#include <cstddef>
#include <cstdint>

#include "core/owned.h"
#include "fuzz/expect.h"
#include "fuzz/memory_files.h"
#include "keys/install_cipher.h"

using namespace kestrune::testing;

namespace {

constexpr char kKey[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
constexpr std::size_t kGrainBytes = 32;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFiles files;
  TypV2AESInstallKeys cipher;
  cipher.InitCreate(&files);
  Bytes content(data, data + size);
  if (size == 0 || data[0] != 0) {
    files.files["sealed"] = content;
    const int code = cipher.DeChiffrerfichier("sealed", "opened", kKey);
    Expect(files.Has("opened") == (code == 0));
    if (code == 0) Expect(files.files["opened"].size() + kGrainBytes == size);
  } else {
    content.erase(content.begin());
    files.files["given"] = content;
    Expect(cipher.Chiffrerfichier("given", "sealed", kKey) == 0);
    Expect(cipher.DeChiffrerfichier("sealed", "opened", kKey) == 0);
    content.resize((content.size() + kGrainBytes - 1) / kGrainBytes * kGrainBytes, ' ');
    Expect(files.files["opened"] == content);
  }
  files.files.clear();
  return 0;
}
