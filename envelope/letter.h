// What a sender says.
//
// The operations of the envelope take it apart into a dozen texts of one type, in an order that no compiler
// checks. So inside the library it travels as one struct, filled by the names of its fields; and the calls that
// take it apart stand here once each.
#ifndef KESTRUNE_ENVELOPE_LETTER_H
#define KESTRUNE_ENVELOPE_LETTER_H

#include "core/result.h"

class TypApiV2Signature;
class TypV2CryptoInterface;

namespace kestrune {

// The arguments of TypV2CryptoInterface::CrypterSigner that describe the message; any may be null.
struct Letter {
  const char* key_name = nullptr;
  const char* hex_password = nullptr;
  const char* sender = nullptr;  // the signing key's name
  char* signing_password = nullptr;
  const char* to = nullptr;
  const char* cc = nullptr;
  const char* bcc = nullptr;
  const char* reply_to = nullptr;
  const char* subject = nullptr;
  const char* te = nullptr;
  const char* ready_recipients = nullptr;
  const char* text = nullptr;
  const char* attachments = nullptr;
};

// An envelope's operations (crypto_interface.h) for a letter, each through its slot.
class LetterSlots {
 public:
  explicit LetterSlots(TypV2CryptoInterface* envelope) : envelope_(envelope) {}

  Result CrypterSigner(const Letter& letter, unsigned char** block, unsigned long long* length,
                       char* identifier) const;
  Result GetRouge(TypApiV2Signature* signer, const Letter& letter, unsigned char** red,
                  unsigned long long* red_length, char* red_signature) const;
  Result GetVert(const Letter& letter, const char* red_signature, const unsigned char* red,
                 unsigned long long red_length, unsigned char** green,
                 unsigned long long* green_length) const;
  Result GetGris(const Letter& letter, const unsigned char* green, unsigned long long green_length,
                 unsigned char** grey, unsigned long long* grey_length) const;
  Result GetServiceXMLRoutage(const Letter& letter, char** xml) const;
  Result GetBasicServiceXML(const Letter& letter, char** xml) const;
  Result Low_GetBasicServiceXML(const Letter& letter, const char* identifier, long merge, char** xml) const;
  void GetIDMessage(const Letter& letter, char* out) const;

 private:
  TypV2CryptoInterface* const envelope_;
};

}  // namespace kestrune

#endif
