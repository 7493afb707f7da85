// A text under a password that arrived from somewhere. What opens is enciphered again and must open the same. Whoever
// refuses noise reads no other text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>

namespace {

constexpr char kPassword[] = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string form(reinterpret_cast<const char*>(data), size);
  std::vector<char> text(size + 1);  // on the heap and no larger than promised
  std::vector<char> strict(size + 1);
  const int strict_code = kestrune_decipher_text(form.c_str(), kPassword, strict.data());
  if (Api2Aes(form.c_str(), kPassword, 1, text.data(), 0) != 0) {
    if (text[0] != 0 || strict[0] != 0 || strict_code == 0) std::abort();
    return 0;
  }
  if (strict_code == 0 ? std::string(text.data()) != strict.data() : strict[0] != 0) std::abort();
  std::vector<char> again(size + size / 2 + 100);
  if (Api2Aes(text.data(), kPassword, 0, again.data(), 0) != 0) std::abort();
  std::vector<char> text_again(again.size());
  if (kestrune_decipher_text(again.data(), kPassword, strict.data()) != 0) std::abort();
  if (Api2Aes(again.data(), kPassword, 1, text_again.data(), 0) != 0) std::abort();
  if (std::string(text.data()) != text_again.data()) std::abort();
  return 0;
}
