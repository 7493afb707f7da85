#include "envelope/letter.h"

#include "envelope/crypto_interface.h"

namespace kestrune {

Result LetterSlots::CrypterSigner(const Letter& letter, unsigned char** block, unsigned long long* length,
                                  char* identifier) const {
  return envelope_->CrypterSigner(letter.key_name, letter.hex_password, letter.sender,
                                  letter.signing_password, letter.to, letter.cc, letter.bcc, letter.reply_to,
                                  letter.subject, letter.te, letter.ready_recipients, letter.text,
                                  letter.attachments, nullptr, block, length, identifier);
}

Result LetterSlots::GetRouge(TypApiV2Signature* signer, const Letter& letter, unsigned char** red,
                             unsigned long long* red_length, char* red_signature) const {
  return envelope_->GetRouge(signer, letter.key_name, letter.hex_password, letter.sender,
                             letter.signing_password, letter.to, letter.cc, letter.bcc, letter.reply_to,
                             letter.subject, letter.te, letter.ready_recipients, letter.text,
                             letter.attachments, nullptr, red, red_length, red_signature);
}

Result LetterSlots::GetVert(const Letter& letter, const char* red_signature, const unsigned char* red,
                            unsigned long long red_length, unsigned char** green,
                            unsigned long long* green_length) const {
  return envelope_->GetVert(letter.key_name, letter.hex_password, red_signature, red, red_length, green,
                            green_length);
}

Result LetterSlots::GetGris(const Letter& letter, const unsigned char* green, unsigned long long green_length,
                            unsigned char** grey, unsigned long long* grey_length) const {
  return envelope_->GetGris(letter.key_name, letter.sender, letter.to, letter.cc, letter.bcc, letter.reply_to,
                            letter.subject, letter.te, green, green_length, grey, grey_length);
}

Result LetterSlots::GetServiceXMLRoutage(const Letter& letter, char** xml) const {
  return envelope_->GetServiceXMLRoutage(xml, letter.key_name, letter.sender, letter.to, letter.cc,
                                         letter.bcc, letter.reply_to, letter.subject, letter.te,
                                         letter.ready_recipients);
}

Result LetterSlots::GetBasicServiceXML(const Letter& letter, char** xml) const {
  return envelope_->GetBasicServiceXML(xml, letter.key_name, letter.sender, letter.to, letter.cc, letter.bcc,
                                       letter.reply_to, letter.subject, letter.te);
}

Result LetterSlots::Low_GetBasicServiceXML(const Letter& letter, const char* identifier, long merge,
                                           char** xml) const {
  return envelope_->Low_GetBasicServiceXML(xml, letter.key_name, letter.sender, letter.to, letter.cc,
                                           letter.bcc, letter.reply_to, letter.subject, letter.te, identifier,
                                           merge, letter.ready_recipients);
}

void LetterSlots::GetIDMessage(const Letter& letter, char* out) const {
  envelope_->GetIDMessage(out, letter.sender, letter.to, letter.cc, letter.bcc, letter.subject);
}

}  // namespace kestrune
