// The steps of an envelope, each with a signer.
#include <array>
#include <memory>

#include "blocks/block_cell.h"
#include "campaigns/message_yard.h"
#include "campaigns/operation.h"
#include "core/instance_creator.h"
#include "core/object.h"
#include "envelope/crypto_interface.h"
#include "sign/signature.h"

namespace kestrune::testing {
namespace {

using SharedYard = std::shared_ptr<MessageYard>;

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

// The code of a call that hands out a tree, and the tree's bytes; with a failure none may be there.
Result FlatBytes(Result rc, TypV2BlockCell* tree, CBuffer* bytes) {
  Owned<TypV2BlockCell> owned;
  owned.Adopt(tree);
  if (!owned) return rc;
  if (rc != kOk) return static_cast<Result>(kSpoiled);
  return bytes->Receive([&](auto** out, auto* length) { return tree->GetFlatData(out, length, nullptr); });
}

}  // namespace

std::vector<Operation> EnvelopeOperations() {
  const auto yard = std::make_shared<MessageYard>();
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
             return FlatBytes(rc, tree, bytes);
           }),
      Step("TypV2CryptoInterface::LoadRedFromUncryptedVertFlat", yard, {},
           [=](Envelope& envelope, Signer&, CBuffer* bytes, CBuffer*) {
             TypV2BlockCell* tree = nullptr;
             const Result rc =
                 envelope.LoadRedFromUncryptedVertFlat(yard->kest.data(), yard->kest.size(), &tree);
             return FlatBytes(rc, tree, bytes);
           }),
  };
}

}  // namespace kestrune::testing
