// Texts and attachments of the older message structure.
#include "blocks/v1_structure.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "core/owned.h"
#include "core/result.h"
#include "core/string_helpers.h"

using namespace kestrune;

namespace {

constexpr unsigned long long kFirstUnnamedNumber = 555555;  // kept so: made-up names begin there
constexpr std::size_t kMadeUpNameBytes = 40;

}  // namespace

int TypV1SimpleStruc::initCreate() {
  text_count = 0;
  attachment_count = 0;
  next_unnamed_number = kFirstUnnamedNumber;
  return kOk;
}

int TypV1SimpleStruc::kill() {
  for (unsigned long long i = 0; i < text_count; ++i) {
    ApiV2MyFreeClear(texts[i], text_lengths[i]);
    texts[i] = nullptr;
  }
  for (unsigned long long i = 0; i < attachment_count; ++i) {
    ApiV2MyFreeClear(attachment_data[i], attachment_lengths[i]);
    if (attachment_names[i] != nullptr)
      ApiV2MyFreeClear(attachment_names[i], std::strlen(attachment_names[i]));
    attachment_data[i] = nullptr;
    attachment_names[i] = nullptr;
  }
  return kOk;
}

int TypV1SimpleStruc::addpj(const unsigned char* data, const char* name, unsigned long long length,
                            long long type) {
  if (data == nullptr) return block::kNoInput;
  if (attachment_count >= kMostAttachments) return kOk;
  SecretCBuffer content;
  if (!content.Allocate(length)) return kNoObject;
  std::memcpy(content.data(), data, length);

  std::array<char, kMadeUpNameBytes> made_up;
  if (name == nullptr || *name == 0) {
    const char* const pattern = name == nullptr ? "NONAME%llu.xml" : "NONAME%llu.dat";
    std::snprintf(made_up.data(), made_up.size(), pattern, next_unnamed_number++);
    name = made_up.data();
  }
  SecretCBuffer name_copy;
  const std::size_t name_bytes = std::strlen(name) + 1;
  if (!name_copy.Allocate(name_bytes)) return kNoObject;
  std::memcpy(name_copy.data(), name, name_bytes);

  attachment_types[attachment_count] = type;
  attachment_data[attachment_count] = content.release();
  attachment_lengths[attachment_count] = length;
  attachment_names[attachment_count] = name_copy.release_text();
  ++attachment_count;
  return kOk;
}

int TypV1SimpleStruc::addtexte(const unsigned char* text, unsigned long long length) {
  if (text == nullptr) return block::kNoInput;
  if (text_count >= kMostTexts) return kOk;
  SecretCBuffer copy;
  if (length + 1 == 0 || !copy.Allocate(length + 1)) return kNoObject;
  std::memcpy(copy.data(), text, length);
  texts[text_count] = copy.release();
  text_lengths[text_count] = length;
  ++text_count;
  return kOk;
}

unsigned long long TypV1SimpleStruc::GetTotalDataSize() const {
  unsigned long long bytes = 0;
  for (unsigned long long i = 0; i < text_count; ++i) bytes += text_lengths[i];
  for (unsigned long long i = 0; i < attachment_count; ++i) bytes += attachment_lengths[i];
  return bytes;
}

long long TypV1SimpleStruc::GetTypePJ(unsigned long long index) const {
  return index < attachment_count ? attachment_types[index] : 0;
}
