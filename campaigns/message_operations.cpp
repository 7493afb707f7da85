// Sealing and opening, from the entry points down to the steps of the envelope.
#include <kestrune/kestrune.h>

#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>

#include "blocks/block_cell.h"
#include "campaigns/operation.h"
#include "core/instance_creator.h"
#include "core/object.h"
#include "envelope/crypto_interface.h"
#include "sign/signature.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {
namespace {

constexpr char kDate[] = "2026-05-06 10:11:12";
constexpr char kTo[] = "a@x.example", kCopies[] = "b@x.example";
// The file does not open (memory for its stream), the key does not (its cipher), the signing key is unreadable, the
// signature fails: one code each, whatever went wrong.
const std::vector<long> kSealingCodes = {file::kOpen, key::kCheckFailed, signer::kKeyUnreadable,
                                         signer::kSign};
const std::vector<long> kVerifyingCodes = {file::kOpen, verifier::kCertificate, verifier::kBadSignature};
const std::vector<long> kOpeningCodes = {file::kOpen, key::kCheckFailed};
// The entry points that work on files call it so when an object could not be made.
constexpr long kNothingDone = message::kNothingDone;

std::string TextOf(const CBuffer& bytes) {
  return std::string(bytes.data(), bytes.data() + bytes.size());
}

// Keys, a message on its way, and each layer of it.
struct Yard : MessageFolder {
  TypV2InstanceCreatorUnix creator;
  std::string text_file = File("texte"), attachment = File("note.txt"), second = File("suite.txt"),
              attachments = attachment + "|" + second, output = File("message"), grey_file = File("gris"),
              printed = File("imprime");
  std::string hex = personal.hex_password;
  Bytes block, grey, green, kest, red;
  std::string key_reference;

  Yard() : MessageFolder(64) {
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
using SharedYard = std::shared_ptr<Yard>;

std::string Describe(TypV2BlockCell* tree) {
  if (tree == nullptr) return "";
  CBuffer flat;
  flat.Receive([&](auto** bytes, auto* length) { return tree->GetFlatData(bytes, length, nullptr); });
  return TextOf(flat);
}

// All of a message that its caller sees.
std::string Describe(const kestrune_message& message) {
  std::string all = message.routing;
  const auto add = [&](const kestrune_part& part) {
    all +=
        '[' + std::to_string(part.signature) + std::to_string(part.by_sender) + part.signer + ']' + part.name;
    all.append(part.data, part.data + part.length);
  };
  add(message.red);
  for (auto i = 0ULL; i < message.texts; ++i) add(message.text[i]);
  for (auto i = 0ULL; i < message.attachments; ++i) add(message.attachment[i]);
  return all;
}

// What is promised though a file cannot be read: an attachment may be left out, and so may the text of a file; a
// certificate that cannot be read is told with the part, a key with its state.
std::string TextAlone(const std::string& xml) {
  return xml.find("Bonjour") == std::string::npos ? "" : "with its text";
}
std::string Nothing(const std::string& /*xml*/) {
  return "";
}
std::string WithoutStates(const std::string& list) {
  std::string names;
  bool is_state = false;
  for (const char character : list) {
    is_state = is_state ? character != ']' : character == '[';
    if (!is_state && character != ']') names += character;
  }
  return names;
}
constexpr auto WithoutSigners = WithoutStates;

std::vector<Operation> EntryPoints(const SharedYard& yard) {
  return {
      {"Api2CrypterMem",
       [=] {
         yard->Renew();
         CBuffer sealed;
         std::array<char, 128> identifier{};
         const long rc = yard->SealMem(&sealed, identifier.data());
         const std::string block = TextOf(sealed);
         return Outcome{
             rc, rc == kOk ? yard->Read(ToBytes(block), identifier.data()) : block + identifier.data()};
       },
       {file::kOpen, key::kCheckFailed, message::kPasswordTooLong},
       {},
       "a password that gives no key is found by the sealing, whatever the reason",
       kOk,
       TextAlone},
      {"Api2Crypterfile",
       [=] {
         yard->Renew();
         const std::string output = yard->File("sortie");
         std::remove(output.c_str());
         std::array<char, 128> identifier{};
         char password[] = "none";
         const long rc = Watch([&] {
           return Api2Crypterfile(yard->text_file.c_str(), yard->attachments.c_str(), "durand", "medecin",
                                  yard->hex.c_str(), password, yard->path().c_str(), kTo, kCopies, "",
                                  nullptr, "Objet", kDate, nullptr, output.c_str(), identifier.data(), 0);
         });
         if (rc == kOk) return Outcome{rc, yard->Read(ReadFile(output), identifier.data())};
         return Outcome{rc, FileExists(output) ? "a file" : ""};
       },
       {file::kOpen, key::kCheckFailed, kNothingDone},
       {"a file"},
       "the output is created, or emptied, before there is memory for its stream",
       kOk,
       Nothing},
      {"Api2ExtractGrisFromHTTPSBlock",
       [=] {
         CBuffer grey;
         std::array<char, KESTRUNE_SIGNER_NAME_BYTES> signer{};
         const long rc = Watch([&] {
           return grey.Receive([&](auto** bytes, auto* length) {
             return static_cast<int>(Api2ExtractGrisFromHTTPSBlock(
                 yard->block.data(), yard->block.size(), yard->path().c_str(), bytes, length, signer.data()));
           });
         });
         return Outcome{rc, TextOf(grey) + signer.data()};
       },
       kVerifyingCodes},
      {"Api2DecrypterGrisMem",
       [=] {
         CBuffer xml;
         const long rc = Watch([&] {
           return xml.ReceiveText([&](char** out) {
             return static_cast<int>(Api2DecrypterGrisMem(yard->grey.data(), yard->grey.size(),
                                                          yard->path().c_str(), "a_b_c_d", out));
           });
         });
         return Outcome{rc, TextOf(xml)};
       },
       {file::kOpen, key::kCheckFailed, utils::kNoDestination},
       {},
       "the exporter answers for a text without memory"},
      {"Api2DecrypterfileGris, Api2FreeRedBlock",
       [=] {
         TypV2BlockCell* tree = nullptr;
         const long rc = Watch([&] {
           return Api2DecrypterfileGris(yard->grey_file.c_str(), yard->path().c_str(), yard->hex.c_str(),
                                        &tree);
         });
         const std::string content = Describe(tree);
         const long freed = Api2FreeRedBlock(tree);
         return Outcome{freed == kOk ? rc : kSpoiled, content};
       },
       {file::kOpen, key::kCheckFailed, kNothingDone}},
      {"kestrune_open_message, kestrune_free_message",
       [=] {
         kestrune_message* message = nullptr;
         const long rc = Watch([&] {
           return kestrune_open_message(yard->grey.data(), yard->grey.size(), yard->path().c_str(), "a_b_c_d",
                                        &message);
         });
         const std::string content = message == nullptr ? "" : Describe(*message);
         kestrune_free_message(message);
         return Outcome{rc, content};
       },
       kOpeningCodes,
       {},
       "",
       kOk,
       WithoutSigners},
      {"kestrune_open_tree, kestrune_take_apart",
       [=] {
         TypV2BlockCell* tree = nullptr;
         kestrune_message* message = nullptr;
         const char* const folder = yard->path().c_str();
         const long rc = Watch([&] {
           const long opened =
               kestrune_open_tree(yard->grey.data(), yard->grey.size(), folder, "a_b_c_d", &tree);
           return opened == kOk ? kestrune_take_apart(tree, folder, &message) : opened;
         });
         const std::string content = message == nullptr ? "" : Describe(*message);
         kestrune_free_message(message);
         Api2FreeRedBlock(tree);
         return Outcome{rc, content};
       },
       kOpeningCodes,
       {},
       "",
       kOk,
       WithoutSigners},
      {"kestrune_grey_routing",
       [=] {
         CBuffer xml;
         const long rc = Watch([&] {
           return xml.ReceiveText([&](char** out) {
             return static_cast<int>(kestrune_grey_routing(yard->grey.data(), yard->grey.size(), out));
           });
         });
         return Outcome{rc, TextOf(xml)};
       }},
      {"kestrune_list_keys, kestrune_free_key_folder",
       [=] {
         kestrune_key_folder* list = nullptr;
         const long rc = Watch([&] { return kestrune_list_keys(yard->path().c_str(), &list); });
         std::string content;
         for (auto i = 0ULL; list != nullptr && i < list->keys; ++i) {
           const kestrune_key& key = list->key[i];
           content += std::string(key.file) + key.name + '[' + std::to_string(key.state) + ']';
         }
         kestrune_free_key_folder(list);
         return Outcome{rc, content};
       },
       {},
       {},
       "",
       kOk,
       WithoutStates},
      {"Api2ExtractRoutageOnlyFromHTTPSBlock",
       [=] {
         Outcome made = yard->Printed([&] {
           return Api2ExtractRoutageOnlyFromHTTPSBlock(yard->output.c_str(), nullptr, yard->path().c_str(), 1,
                                                       0);
         });
         // The code is printed too, and the sender's signature as soon as it could be read.
         if (made.rc != kOk && made.output.find("<RESULT>") == std::string::npos) made.output.clear();
         return made;
       },
       {file::kOpen, verifier::kCertificate, verifier::kBadSignature, kNothingDone}},
      {"Api2ExtractRoutageOnlyFromGrisBlock",
       [=] {
         CBuffer xml;
         const Outcome made = yard->Printed([&] {
           return xml.ReceiveText([&](char** out) {
             return static_cast<int>(
                 Api2ExtractRoutageOnlyFromGrisBlock(yard->grey_file.c_str(), nullptr, out, 1, 0));
           });
         });
         return Outcome{made.rc, TextOf(xml) + (made.rc == kOk ? made.output : "")};
       },
       {file::kOpen, kNothingDone}},
  };
}

// An operation of an envelope and a signer that are made under the same failing memory.
template <class Call>
Operation Step(const char* name, const SharedYard& yard, const std::vector<long>& codes, Call call) {
  return {name,
          [=] {
            yard->Renew();
            char password[] = "none";
            Owned<TypApiV2Signature> signer;
            Owned<TypV2CryptoInterface> envelope;
            CBuffer bytes, text;
            std::string extra;
            const long rc = Watch([&] {
              const char* const folder = yard->path().c_str();
              signer = Owned<TypApiV2Signature>(yard->creator.newTypApiV2Signature());
              if (const Result failed = signer.Init(&yard->creator, "medecin", folder, password);
                  failed != kOk) {
                return failed;
              }
              envelope = Owned<TypV2CryptoInterface>(yard->creator.newTypV2CryptoInterface());
              if (const Result failed = envelope.Init(&yard->creator, folder, folder); failed != kOk)
                return failed;
              return call(*envelope.get(), *signer.get(), &bytes, &text);
            });
            std::array<char, kMessageIdentifierBytes> identifier{};
            if (envelope) envelope->GetLastMessageID(identifier.data());
            std::string all = TextOf(bytes) + TextOf(text);
            if (identifier[0] != 0) all = Replaced(all, identifier.data(), "ID");
            return Outcome{rc, all};
          },
          codes};
}

std::vector<Operation> Steps(const SharedYard& yard) {
  using Envelope = TypV2CryptoInterface;
  using Signer = TypApiV2Signature;
  return {
      Step("TypV2CryptoInterface::CrypterSigner", yard, kSealingCodes,
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             char password[] = "none";
             std::array<char, kMessageIdentifierBytes> identifier{};
             CBuffer sealed;
             const Result rc = sealed.Receive([&](auto** out, auto* length) {
               return envelope.CrypterSigner("durand", yard->hex.c_str(), "medecin", password, kTo, kCopies,
                                             "", nullptr, "Objet", kDate, nullptr, "texte", nullptr, nullptr,
                                             out, length, identifier.data());
             });
             if (rc != kOk)
               *bytes = std::move(sealed);  // nothing may be there; a block is read by Api2CrypterMem's row
             return rc;
           }),
      Step("TypV2CryptoInterface::GetServiceXMLRoutage", yard, {},
           [=](Envelope& envelope, Signer&, CBuffer*, CBuffer* text) {
             return text->ReceiveText([&](char** out) {
               return envelope.GetServiceXMLRoutage(out, "durand", "medecin", kTo, kCopies, "", nullptr,
                                                    "Objet", kDate, nullptr);
             });
           }),
      Step("TypV2CryptoInterface::GetDF", yard, kSealingCodes,
           [=](Envelope& envelope, Signer& signer, CBuffer* bytes, CBuffer*) {
             std::array<char, kAttachmentXmlBytes> xml{};
             return bytes->Receive([&](auto** out, auto* length) {
               return envelope.GetDF(&signer, yard->attachment.c_str(), out, length, xml.data());
             });
           }),
      Step("TypV2CryptoInterface::GetVert", yard, kSealingCodes,
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             CBuffer green;
             const Result rc = green.Receive([&](auto** out, auto* length) {
               return envelope.GetVert("durand", yard->hex.c_str(), "<SIGN></SIGN>", yard->red.data(),
                                       yard->red.size(), out, length);
             });
             if (rc != kOk) *bytes = std::move(green);
             return rc;
           }),
      Step("TypV2CryptoInterface::GetGris", yard, {},
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             return bytes->Receive([&](auto** out, auto* length) {
               return envelope.GetGris("durand", "medecin", kTo, kCopies, "", nullptr, "Objet", kDate,
                                       yard->green.data(), yard->green.size(), out, length);
             });
           }),
      Step("TypV2CryptoInterface::GetGrisWithReadyXML", yard, {},
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             return bytes->Receive([&](auto** out, auto* length) {
               return envelope.GetGrisWithReadyXML(nullptr, "<M></M>", yard->green.data(), yard->green.size(),
                                                   out, length);
             });
           }),
      Step("TypV2CryptoInterface::GetPourHTTPS", yard, kSealingCodes,
           [=](Envelope& envelope, Signer& signer, CBuffer* bytes, CBuffer*) {
             return bytes->Receive([&](auto** out, auto* length) {
               return envelope.GetPourHTTPS(&signer, yard->grey.data(), yard->grey.size(), out, length);
             });
           }),
      Step("TypV2CryptoInterface::ExtractVertFlatFromHTTPSBlock", yard, kVerifyingCodes,
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer* text) {
             char *routing = nullptr, *signature = nullptr;
             std::array<char, kKeyReferenceBytes> reference{};
             std::array<char, kSignerNameBytes> signer{};
             const Result rc = bytes->Receive([&](auto** out, auto* length) {
               return envelope.ExtractVertFlatFromHTTPSBlock(yard->block.data(), yard->block.size(), &routing,
                                                             reference.data(), signer.data(), out, length,
                                                             &signature);
             });
             text->AdoptText(routing);
             CBuffer unchecked;  // handed out after some failures too
             unchecked.AdoptText(signature);
             return rc;
           }),
      Step("TypV2CryptoInterface::DeCrypterVertFlat", yard, kOpeningCodes,
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             TypV2BlockCell* tree = nullptr;
             const Result rc =
                 envelope.DeCrypterVertFlat(yard->green.data(), yard->green.size(),
                                            yard->key_reference.c_str(), yard->hex.c_str(), &tree);
             Owned<TypV2BlockCell> owned;
             owned.Adopt(tree);
             if (!owned) return rc;
             return rc == kOk ? bytes->Receive([&](auto** out, auto* length) {
               return tree->GetFlatData(out, length, nullptr);
             })
                              : static_cast<Result>(kSpoiled);
           }),
      Step("TypV2CryptoInterface::LoadRedFromUncryptedVertFlat", yard, {},
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             TypV2BlockCell* tree = nullptr;
             const Result rc =
                 envelope.LoadRedFromUncryptedVertFlat(yard->kest.data(), yard->kest.size(), &tree);
             Owned<TypV2BlockCell> owned;
             owned.Adopt(tree);
             if (!owned) return rc;
             return rc == kOk ? bytes->Receive([&](auto** out, auto* length) {
               return tree->GetFlatData(out, length, nullptr);
             })
                              : static_cast<Result>(kSpoiled);
           }),
  };
}

}  // namespace

std::vector<Operation> MessageOperations() {
  const auto yard = std::make_shared<Yard>();
  std::vector<Operation> all = EntryPoints(yard);
  for (const Operation& step : Steps(yard)) all.push_back(step);
  return all;
}

}  // namespace kestrune::testing
