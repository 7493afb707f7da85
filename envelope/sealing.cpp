// Sealing: each layer of a message around the one inside it. A block that is signed as a whole (red, grey) is what its
// trailer digests, and the trailer: the signature's digest goes on where the trailer's ends (docs/message.md).
#include <cstring>
#include <utility>

#include "blocks/block_cell.h"
#include "core/calendar.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "envelope/handover.h"
#include "envelope/letter.h"
#include "envelope/own_class.h"
#include "envelope/signing.h"
#include "keys/message_cipher.h"
#include "sign/digest.h"
#include "sign/signature.h"

using namespace kestrune;

namespace {

constexpr int kMostSealings = 3;

std::size_t Length(const char* text) {
  return text == nullptr ? 0 : std::strlen(text);
}

bool IsKeyName(const char* text) {
  return IsShorterThan(text, limits::kKeyNameOfLetter + 1) && *text != 0;
}

// Kept so: the first four tests stop at the first failure, the others all run and the last failure counts.
Result CheckLetter(const Letter& letter, bool has_outputs) {
  Result rc = kOk;
  if (!IsKeyName(letter.key_name)) {
    rc = envelope::kKeyName;
  } else if (!IsShorterThan(letter.hex_password, limits::kHexPassword + 1) ||
             std::strlen(letter.hex_password) != limits::kHexPassword) {
    rc = envelope::kPassword;
  } else if (!IsKeyName(letter.sender)) {
    rc = envelope::kSigningKeyName;
  } else if (Length(letter.signing_password) == 0) {
    rc = envelope::kNoSigningPassword;
  }
  if (letter.subject == nullptr) rc = envelope::kNoSubject;
  if (letter.text == nullptr && letter.attachments == nullptr) rc = envelope::kNoContent;
  if (!has_outputs) rc = envelope::kNoBlockOutput;
  if (letter.te == nullptr) rc = envelope::kNoDate;
  if (Length(letter.to) == 0 && Length(letter.cc) == 0 && Length(letter.bcc) == 0)
    rc = envelope::kNoRecipient;
  return rc;
}

// What a step handed out: ours to end, unless the handover keeps it.
class StepOutput {
 public:
  template <class Step>
  Result From(Handover* handover, Step&& step) {
    const Result rc = step(&bytes_, &length_);
    if (handover->Find(bytes_, length_) == nullptr) owned_.Adopt(bytes_, length_);
    return rc;
  }
  const unsigned char* data() const { return bytes_; }
  unsigned long long size() const { return length_; }
  void End() { owned_.Clear(); }

 private:
  unsigned char* bytes_ = nullptr;
  unsigned long long length_ = 0;
  SecretCBuffer owned_;
};

}  // namespace

// ---- The whole message -----------------------------------------------------------------------------

// The way of one message through the slots of its envelope.
class kestrune::Sealing {
 public:
  Sealing(TypV2CryptoInterface* envelope, const Letter& letter)
      : envelope_(envelope), slots_(envelope), letter_(letter) {}

  // Key files have their year in their names, and each step asks the clock for itself.
  Result Run(unsigned char** block, unsigned long long* length, char* identifier) {
    for (int attempt = 0; attempt < kMostSealings; ++attempt) {
      const int year = LocalCalendar().tm_year;
      CBuffer transport;
      const Result rc = SealLayers(&transport);
      if (LocalCalendar().tm_year != year) continue;
      if (rc != kOk) return rc;
      envelope_->GetLastMessageID(identifier);
      *length = transport.size();
      *block = transport.release();
      return kOk;
    }
    return envelope::kNoSteadyYear;
  }

 private:
  Result SealLayers(CBuffer* transport) {
    Handover handover(kSignatureXmlBytes);
    const Announcement announcement(envelope_, &handover);
    Owned<TypApiV2Signature> signer(envelope_->creator_->newTypApiV2Signature());
    Result rc = signer.Init(envelope_->creator_, letter_.sender, envelope_->signing_key_folder_.data(),
                            letter_.signing_password);
    if (rc != kOk) return rc;

    StepOutput red, grey;
    CBuffer green;
    SignatureXml red_signature{};
    rc = red.From(&handover, [&](unsigned char** bytes, unsigned long long* length) {
      return slots_.GetRouge(signer.get(), letter_, bytes, length, red_signature.data());
    });
    if (rc != kOk) return rc;
    rc = green.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return slots_.GetVert(letter_, red_signature.data(), red.data(), red.size(), bytes, length);
    });
    red.End();
    if (rc != kOk) return rc;
    // The signature of the grey block is as long as this one, so the transport block begins where memory does.
    handover.set_xml_room(std::strlen(red_signature.data()));
    rc = grey.From(&handover, [&](unsigned char** bytes, unsigned long long* length) {
      return slots_.GetGris(letter_, green.data(), green.size(), bytes, length);
    });
    green.Clear();
    if (rc != kOk) return rc;
    return transport->Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope_->GetPourHTTPS(signer.get(), grey.data(), grey.size(), bytes, length);
    });
  }

  // Tells the steps of the handover, where all of them are the library's own: a subclass could change what
  // one of them handed out, keep it, or hand it on twice.
  class Announcement {
   public:
    Announcement(TypV2CryptoInterface* envelope, Handover* handover)
        : envelope_(envelope), before_(envelope->handover_) {
      if (IsExactly<TypV2CryptoInterface, TypV2CryptoInterfaceUnix>(*envelope))
        envelope->handover_ = handover;
    }
    Announcement(const Announcement&) = delete;
    Announcement& operator=(const Announcement&) = delete;
    ~Announcement() { envelope_->handover_ = before_; }

   private:
    TypV2CryptoInterface* const envelope_;
    Handover* const before_;
  };

  TypV2CryptoInterface* const envelope_;
  const LetterSlots slots_;
  const Letter& letter_;
};

int TypV2CryptoInterface::CrypterSigner(const char* key_name, const char* hex_password,
                                        const char* signing_key_name, char* signing_password, const char* to,
                                        const char* cc, const char* bcc, const char* reply_to,
                                        const char* subject, const char* te, const char* ready_recipients,
                                        const char* text, const char* attachments, TypV2BlockPJ* /*record*/,
                                        unsigned char** block, unsigned long long* length, char* identifier) {
  const Letter letter{.key_name = key_name,
                      .hex_password = hex_password,
                      .sender = signing_key_name,
                      .signing_password = signing_password,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te,
                      .ready_recipients = ready_recipients,
                      .text = text,
                      .attachments = attachments};
  const bool has_outputs = block != nullptr && length != nullptr && identifier != nullptr;
  if (const Result rc = CheckLetter(letter, has_outputs); rc != kOk) return rc;
  *block = nullptr;
  *length = 0;
  *identifier = 0;
  return Sealing(this, letter).Run(block, length, identifier);
}

// ---- Green -----------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetVert(const char* key_name, const char* hex_password, const char* red_signature,
                                  const unsigned char* red, unsigned long long red_length,
                                  unsigned char** green, unsigned long long* green_length) {
  *green = nullptr;
  *green_length = 0;
  Owned<TypV2BlockCell> cell;
  Layer kest;
  Result rc = MakeCell(&cell);
  if (rc == kOk) rc = Enclose(cell.get(), "KEST", red_signature, red, red_length, &kest);
  return rc == kOk ? Encipher(key_name, hex_password, kest, green, green_length) : rc;
}

int TypV2CryptoInterface::Encipher(const char* key_name, const char* hex_password, const Layer& kest,
                                   unsigned char** green, unsigned long long* green_length) {
  Owned<TypKestruneV2> cipher(creator_->newTypKestruneV2());
  const Result rc = cipher.Init(creator_, key_name, message_key_folder_.data(), hex_password);
  return rc == kOk ? cipher->Low_crypter(kest.data(), kest.size(), green, green_length) : rc;
}

// ---- Grey ------------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetGris(const char* key_name, const char* sender, const char* to, const char* cc,
                                  const char* bcc, const char* reply_to, const char* subject, const char* te,
                                  const unsigned char* green, unsigned long long green_length,
                                  unsigned char** grey, unsigned long long* grey_length) {
  *grey = nullptr;
  *grey_length = 0;
  const Letter letter{.key_name = key_name,
                      .sender = sender,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te};
  Owned<TypV2BlockCell> cell;
  CBuffer routing;
  Layer layer;
  Result rc = MakeCell(&cell);
  if (rc == kOk) {
    rc = routing.ReceiveText([&](char** xml) { return LetterSlots(this).GetBasicServiceXML(letter, xml); });
  }
  if (rc == kOk) rc = Enclose(cell.get(), "DATA", routing.text(), green, green_length, &layer);
  if (rc == kOk) PassOn(std::move(layer), grey, grey_length);
  return rc;
}

int TypV2CryptoInterface::GetGrisWithReadyXML(const char* /*unused*/, const char* xml,
                                              const unsigned char* green, unsigned long long green_length,
                                              unsigned char** grey, unsigned long long* grey_length) {
  *grey = nullptr;
  *grey_length = 0;
  Owned<TypV2BlockCell> cell;
  Layer layer;
  Result rc = MakeCell(&cell);
  if (rc == kOk) rc = Enclose(cell.get(), "DATA", xml, green, green_length, &layer);
  if (rc == kOk) PassOn(std::move(layer), grey, grey_length);
  return rc;
}

// ---- Transport -------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetPourHTTPS(TypApiV2Signature* signer, const unsigned char* grey,
                                       unsigned long long grey_length, unsigned char** block,
                                       unsigned long long* block_length) {
  *block = nullptr;
  *block_length = 0;
  Owned<TypV2BlockCell> cell;
  SignatureXml signature;
  Layer layer;
  Result rc = MakeCell(&cell);
  if (rc == kOk) {
    const Layer* const kept = handover_ == nullptr ? nullptr : handover_->Find(grey, grey_length);
    const KnownDigest known(signer, grey, grey_length, kept == nullptr ? nullptr : kept->digest());
    rc = Sign(signer, grey, grey_length, signature.data());
  }
  if (rc == kOk) rc = Enclose(cell.get(), "AUTH", signature.data(), grey, grey_length, &layer);
  if (rc == kOk) layer.HandOut(block, block_length);
  return rc;
}

// ---- For all layers --------------------------------------------------------------------------------

int TypV2CryptoInterface::MakeCell(Owned<TypV2BlockCell>* cell) {
  *cell = Owned<TypV2BlockCell>(creator_->newTypV2BlockCell());
  return cell->Init(creator_);
}

// A cell around bytes; in place, where they are those of the layer that was just handed over.
int TypV2CryptoInterface::Enclose(TypV2BlockCell* cell, const char* name, const char* xml,
                                  const unsigned char* data, unsigned long long length, Layer* layer) {
  Layer* const kept = handover_ == nullptr ? nullptr : handover_->Find(data, length);
  if (kept == nullptr) return layer->Enclose(cell, name, xml, data, length, RoomAround());
  *layer = std::move(*kept);
  kept->Clear();
  return layer->Wrap(cell, name, xml);
}

// For the XML of the cell that comes around a layer, in characters.
std::size_t TypV2CryptoInterface::RoomAround() const {
  return handover_ == nullptr ? 0 : handover_->xml_room();
}

void TypV2CryptoInterface::PassOn(Layer layer, unsigned char** out, unsigned long long* length) {
  if (handover_ == nullptr) {
    layer.HandOut(out, length);
  } else {
    handover_->Give(std::move(layer), out, length);
  }
}
