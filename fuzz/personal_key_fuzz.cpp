// A personal key file of any content. Its check digest is made right first, so that it never hides what lies
// behind it; then the file is opened and hands out runs and passwords at offsets from its own end.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "examples/key_files.h"
#include "keys/kestrune_key.h"

using namespace kestrune;
using namespace kestrune::examples;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string password = HexPassword("a_b_c_d");
  static const int file = ::memfd_create("key", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Bytes content(data, data + size);
  Reseal(content, password);
  if (::ftruncate(file, 0) != 0 || ::pwrite(file, content.data(), size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  const std::uint64_t tail = size < kKeyHeaderBytes ? 0 : NumberAt(content, size - 8);

  TypV2InstanceCreatorUnix creator;
  Owned<TypV2KestruneKey> key(creator.newTypV2KestruneKey());
  if (key.Init(&creator, path.c_str(), 0L, "", password.c_str(), tail & 1) != kOk) return 0;
  unsigned char one_time_password[32];
  unsigned long long offset = 0;
  for (const std::uint64_t at : {tail, tail % (size + 4096), std::uint64_t{0}}) {
    (void)key->GetOTPassword(one_time_password, &offset);
    CBuffer run;
    unsigned char* bytes = nullptr;
    (void)key->GetLineaKey(&bytes, at % 20000, &offset);
    run.Adopt(bytes, at % 20000);
    (void)key->SetOffsetOTPassword(at);
    (void)key->SetOffsetOTPChiffrement(at);
  }
  return 0;
}
