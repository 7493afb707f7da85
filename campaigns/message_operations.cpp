// Sealing and opening, through the entry points.
#include <kestrune/kestrune.h>

#include <array>
#include <cstdio>
#include <memory>

#include "blocks/block_cell.h"
#include "campaigns/message_yard.h"
#include "campaigns/operation.h"

namespace kestrune::testing {
namespace {

// The entry points that work on files call it so when an object could not be made.
constexpr long kNothingDone = message::kNothingDone;

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

}  // namespace

std::vector<Operation> MessageOperations() {
  const auto yard = std::make_shared<MessageYard>();
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

}  // namespace kestrune::testing
