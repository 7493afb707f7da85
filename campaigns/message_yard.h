// A folder in which messages are sealed and opened, for the sweeps' operations.
#ifndef KESTRUNE_CAMPAIGNS_MESSAGE_YARD_H
#define KESTRUNE_CAMPAIGNS_MESSAGE_YARD_H

#include <kestrune/kestrune.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "campaigns/operation.h"
#include "core/instance_creator.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {

inline constexpr char kDate[] = "2026-05-06 10:11:12";
inline constexpr char kTo[] = "a@x.example", kCopies[] = "b@x.example";
// The file does not open (memory for its stream), the key does not (its cipher), the signing key is unreadable, the
// signature fails: one code each, whatever went wrong.
inline const std::vector<long> kSealingCodes = {file::kOpen, key::kCheckFailed, signer::kKeyUnreadable,
                                                signer::kSign};
inline const std::vector<long> kVerifyingCodes = {file::kOpen, verifier::kCertificate,
                                                  verifier::kBadSignature};
inline const std::vector<long> kOpeningCodes = {file::kOpen, key::kCheckFailed};

inline std::string TextOf(const CBuffer& bytes) {
  return std::string(bytes.data(), bytes.data() + bytes.size());
}

// Keys, a message on its way, and each layer of it.
struct MessageYard : MessageFolder {
  TypV2InstanceCreatorUnix creator;
  std::string text_file = File("texte"), attachment = File("note.txt"), second = File("suite.txt"),
              attachments = attachment + "|" + second, output = File("message"), grey_file = File("gris"),
              printed = File("imprime");
  std::string hex = personal.hex_password;
  Bytes block, grey, green, kest, red;
  std::string key_reference;

  MessageYard() : MessageFolder(64) {
    WriteFile(text_file, "Bonjour, à demain.");
    WriteFile(attachment, "contenu de la note");
    WriteFile(second, "et la suite");
    CBuffer sealed;
    std::array<char, 128> identifier{};
    SealMem(&sealed, identifier.data());
    block = ToBytes(TextOf(sealed));
    const Layers layers = TakeApart(block, pads());
    grey = layers.transport.data;
    green = layers.grey.data;
    kest = layers.green.body;
    red = layers.kest.data;
    key_reference = "durand." + PersonalKeyYear();
    WriteFile(output, block);
    WriteFile(grey_file, grey);
  }

  // The pads as they were, so that every run seals with the same bytes.
  void Renew() const {
    WriteFile(File("Master." + PersonalKeyYear()), master.File());
    AddUser("durand");
  }

  long SealMem(CBuffer* sealed, char* identifier) {
    char password[] = "none";
    return Watch([&] {
      return sealed->Receive([&](auto** bytes, auto* length) {
        return static_cast<int>(Api2CrypterMem("Bonjour, à demain.", attachments.c_str(), "durand", "medecin",
                                               "a_b_c_d", password, path().c_str(), kTo, kCopies, "", "",
                                               "Objet", kDate, bytes, length, identifier, 0));
      });
    });
  }

  // What the receiver of a block reads, without the identifier, which no two messages share.
  std::string Read(const Bytes& transport, const std::string& identifier) const {
    CBuffer grey_block, xml;
    grey_block.Receive([&](auto** bytes, auto* length) {
      return static_cast<int>(Api2ExtractGrisFromHTTPSBlock(transport.data(), transport.size(),
                                                            path().c_str(), bytes, length, nullptr));
    });
    xml.ReceiveText([&](char** out) {
      return static_cast<int>(
          Api2DecrypterGrisMem(grey_block.data(), grey_block.size(), path().c_str(), "a_b_c_d", out));
    });
    if (!xml || identifier.empty()) return "unreadable, or without identifier";
    return Replaced(xml.text(), identifier, "ID");
  }

  // What the call prints, beside its code.
  template <class Call>
  Outcome Printed(Call&& call) const {
    std::fflush(stdout);
    const int standard = ::dup(STDOUT_FILENO);
    std::FILE* const file = std::fopen(printed.c_str(), "w");
    ::dup2(::fileno(file), STDOUT_FILENO);
    const long rc = Watch(call);
    std::fflush(stdout);
    ::dup2(standard, STDOUT_FILENO);
    ::close(standard);
    std::fclose(file);
    return {rc, ToText(ReadFile(printed))};
  }
};

}  // namespace kestrune::testing

#endif
