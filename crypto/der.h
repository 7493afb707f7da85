// Walking through DER (X.690). For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_DER_H
#define KESTRUNE_CRYPTO_DER_H

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

namespace kestrune::crypto::der {

using Bytes = std::span<const unsigned char>;

inline constexpr unsigned char kBoolean = 0x01;
inline constexpr unsigned char kInteger = 0x02;
inline constexpr unsigned char kBitString = 0x03;
inline constexpr unsigned char kOctetString = 0x04;
inline constexpr unsigned char kNull = 0x05;
inline constexpr unsigned char kObjectIdentifier = 0x06;
inline constexpr unsigned char kSequence = 0x30;
inline constexpr unsigned char kSet = 0x31;
inline constexpr unsigned char kContext = 0x80;             // and the number
inline constexpr unsigned char kConstructedContext = 0xA0;  // and the number

// What follows each other within one element, from the first on.
class Reader {
 public:
  Reader() = default;
  explicit Reader(Bytes bytes) : bytes_(bytes) {}

  bool empty() const { return bytes_.empty(); }
  unsigned char tag() const { return bytes_.empty() ? 0 : bytes_[0]; }
  bool NextIs(unsigned char tag) const { return !bytes_.empty() && bytes_[0] == tag; }

  // Takes one element, of whatever tag, and gives its content; false when it is not whole. Lengths of up to four
  // bytes are read, be they the shortest form or not.
  bool TakeAny(Bytes* content) {
    if (bytes_.size() < 2) return false;
    std::size_t head = 2, length = bytes_[1];
    if (length >= kLongForm) {
      const std::size_t count = length - kLongForm;
      if (count == 0 || count > kMostLengthBytes || count > bytes_.size() - head) return false;
      length = 0;
      for (std::size_t i = 0; i < count; ++i) length = length << 8 | bytes_[head + i];
      head += count;
    }
    if (length > bytes_.size() - head) return false;
    *content = bytes_.subspan(head, length);
    bytes_ = bytes_.subspan(head + length);
    return true;
  }
  bool Take(unsigned char tag, Bytes* content) { return NextIs(tag) && TakeAny(content); }
  bool Take(unsigned char tag, Reader* inner) {
    Bytes content;
    if (!Take(tag, &content)) return false;
    *inner = Reader(content);
    return true;
  }
  // Takes the head alone: what the element holds comes next, and behind it what follows the element.
  bool Enter(unsigned char tag) {
    const Bytes all = bytes_;
    Bytes content;
    if (!Take(tag, &content)) return false;
    bytes_ = all.subspan(static_cast<std::size_t>(content.data() - all.data()));
    return true;
  }

  // A small number, not below 0.
  bool TakeInteger(int* value) {
    Bytes content;
    if (!Take(kInteger, &content) || content.empty() || content[0] >= 0x80) return false;
    unsigned long long number = 0;
    while (!content.empty() && content[0] == 0) content = content.subspan(1);
    if (content.size() > sizeof *value || (content.size() == sizeof *value && content[0] >= 0x80))
      return false;
    for (const unsigned char byte : content) number = number << 8 | byte;
    *value = static_cast<int>(number);
    return true;
  }

  // An object identifier and whatever single element follows it, whose tag is 0 when there is none.
  struct Algorithm {
    Bytes identifier;
    unsigned char tag = 0;
    Bytes parameters;

    bool has_no_parameters() const { return (tag == 0 || tag == kNull) && parameters.empty(); }
  };
  bool TakeAlgorithm(Algorithm* algorithm) {
    Reader inner;
    if (!Take(kSequence, &inner) || !inner.Take(kObjectIdentifier, &algorithm->identifier)) return false;
    if (inner.empty()) return true;
    algorithm->tag = inner.tag();
    return inner.TakeAny(&algorithm->parameters) && inner.empty();
  }

 private:
  static constexpr unsigned char kLongForm = 0x80;
  static constexpr std::size_t kMostLengthBytes = 4;

  Bytes bytes_;
};

// Object identifiers are compared as their contents.
inline bool Is(Bytes content, std::string_view wanted) {
  return std::equal(content.begin(), content.end(), wanted.begin(), wanted.end(),
                    [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); });
}

inline constexpr std::string_view kRsaEncryption = "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01";
inline constexpr std::string_view kEcPublicKey = "\x2a\x86\x48\xce\x3d\x02\x01";
inline constexpr std::string_view kEcDiffieHellman = "\x2b\x81\x04\x01\x0c";

}  // namespace kestrune::crypto::der

#endif
