// The message envelope: seals a message into four nested blocks and opens them again.
//
//   red (rouge)   "RED": the message in clear ("ROUT" routing XML, "TEXT" signed text, "PJ" attachments)
//   green (vert)  "KEST", the red block and the sender's signature of it, enciphered by the message cipher
//   grey (gris)   "DATA": the green block and a routing XML in clear, for the relay
//   transport     "AUTH": the grey block and the sender's signature of it, for the upload by HTTPS
//
// docs/message.md draws the layers, docs/routing_xml.md the routing XML (routage). A "PJ" (pièce jointe) is
// an attachment.
#ifndef KESTRUNE_ENVELOPE_CRYPTO_INTERFACE_H
#define KESTRUNE_ENVELOPE_CRYPTO_INTERFACE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/export.h"
#include "core/limits.h"
#include "core/object.h"
#include "core/owned.h"
#include "core/utils.h"

class TypApiV2Signature;
class TypV2BlockCell;
class TypV2FileRef;
class TypV2BlockPJ;  // an attachment record that no operation reads; attachments are given as file paths
class TypV2InstanceCreator;

namespace kestrune {

class Handover;
class Layer;
class Sealing;

// Room that callers provide, terminators counted.
inline constexpr std::size_t kMessageIdentifierBytes = 1032;
inline constexpr std::size_t kSignatureXmlBytes = 2048;   // holds the block of the largest key (8192 bits)
inline constexpr std::size_t kAttachmentXmlBytes = 4096;  // that, behind a file name of 255 characters
inline constexpr std::size_t kKeyReferenceBytes =
    limits::kKeyReference + 1;                                            // NAME.YEAR of a personal key file
inline constexpr std::size_t kSignerNameBytes = limits::kSignerName + 1;  // NAME.LETTER.YEAR of a signing key

}  // namespace kestrune

// One envelope seals and opens any number of messages. Made by the factory, or directly; set up by
// `InitCreate`, released by `Kill`.
//
// Texts are zero-terminated byte strings, taken as they are. Results are 0, a code of core/result.h
// (namespace envelope, argument), or the code of the step that failed, passed on unchanged. Buffers, texts
// and trees handed out belong to the caller (free(); for trees Kill and DeleteObject); they are null and
// their lengths 0 after a failure, unless an argument check refused the call: then outputs are as they were.
class KESTRUNE_API TypV2CryptoInterface : public kestrune::LibraryObject<TypV2CryptoInterface> {
 public:
  // Keeps the factory, which must outlive the object, copies both folders (prefixes that end with the
  // separator; null is an empty text) and seeds the random generator with the time, for the session number.
  // -69: no factory. -70: a folder of more than 2048 characters. -96: no utilities object.
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* message_key_folder,
                         const char* signing_key_folder);

  // Releases the utilities object. 0.
  virtual int Kill();

  // Deliberate: null. Callers have a factory of their own.
  virtual TypV2InstanceCreator* GetV2InstanceCreator();

  // ---- Opening (opening.cpp) ----

  // ExtractVertFlatFromHTTPSBlock without a green block; none is copied.
  virtual int ExtractRoutageOnlyFromHTTPSBlock(const unsigned char* block, unsigned long long length,
                                               char** routing, char* key_reference, char* signer,
                                               char** signature);

  // The routing XML of a grey block, null when it carries none. The grey block is not signed: only its digest
  // is checked, which anybody can renew. -75, -73, -74, -79: no intact grey block (-75 also for null). -89:
  // no output.
  virtual int ExtractRoutageOnlyFromGrisBlock(const unsigned char* grey, unsigned long long length,
                                              char** routing);

  // Checks a transport block: its digest, the sender's signature over the grey block, the grey block's
  // digest. Reads no key file but the signer's certificate, which must be in the signing key folder.
  //   routing        new text, null when the grey block carries none; required (-89)
  //   key_reference  41 bytes, may be null: the personal key file that opens the green block, from <C>
  //   signer         49 bytes, may be null: name of the certificate that the signature was checked with
  //   green          new buffer; copied only when both green outputs are given
  //   signature      new text; required: the sender's signature XML, also after a failure behind the reading
  //                  of the transport block, for the caller to free
  // -75, -73, -74, -79: no intact transport or grey block. -76, -77: no signature or no grey block in it.
  // -69, -70, -71: malformed signature XML; -69 also for a routing XML without <M>. -106: no certificate for
  // the signer's name. -68: the signature is not that signer's over this grey block. -93: more than
  // 1,000,000,000 bytes. -57: no <C> of at most 40 characters, where a key reference is asked for.
  virtual int ExtractVertFlatFromHTTPSBlock(const unsigned char* block, unsigned long long length,
                                            char** routing, char* key_reference, char* signer,
                                            unsigned char** green, unsigned long long* green_length,
                                            char** signature);

  // Deciphers a green block and rebuilds the red tree. Checks, work and codes are those of
  // DeCrypterVertFlatToVert and LoadRedFromUncryptedVertFlat, but not through these slots: a subclass that
  // replaces one of them replaces this one too.
  virtual int DeCrypterVertFlat(const unsigned char* green, unsigned long long length,
                                const char* key_reference, const char* hex_password, TypV2BlockCell** red);

  // ---- Sealing (sealing.cpp) ----

  // The whole pipeline: a message in, a transport block and its message identifier out.
  //   key_name          personal key NAME of this year (NAME.YEAR in the message key folder) and <C> of the
  //                     routing; 1 to 40 characters. A name with '/' seals, but nobody can open it.
  //   hex_password      64 characters that open the personal key (BuildHexPassword)
  //   signing_key_name  the sender: signing key of this year in the signing key folder; 1 to 40 characters
  //   signing_password  of the signing key, not empty; changed in place (TypApiV2Signature::SetPassword)
  //   to, cc, bcc       recipient lists, separated by ','; any may be null, one must not be empty
  //   reply_to          null: the sender
  //   subject           required
  //   te                sending date and time (TypV2Utils::GetSQLDateTime), required
  //   ready_recipients  see Low_GetBasicServiceXML; of the red block only; null or empty: none
  //   text              null when there are attachments
  //   attachments       file paths separated by '|', 99 at most, 1,000,000 bytes each; null when there is a
  //                     text
  //   record            ignored
  //   block, length     the transport block
  //   identifier        kMessageIdentifierBytes
  // Argument codes: -87 key name, -88 password, -66 signing key name, -67 signing password, where the first
  // wins; then -65 subject, -64 neither text nor attachments, -105 an output, -110 te, -63 no recipient,
  // where the last wins, over the former too. An attachment that cannot be read is left out, unless it is
  // the last one: then its code is the result.
  // -103 also when the year kept changing while the message was sealed: a message whose keys are of two years
  // could not be opened, so it is sealed anew.
  // Effect: bytes of three pads are used up (see keys/message_cipher.h), whether a later step fails or not.
  // It calls GetRouge, GetVert, GetGris, GetPourHTTPS and GetLastMessageID of this object.
  virtual int CrypterSigner(const char* key_name, const char* hex_password, const char* signing_key_name,
                            char* signing_password, const char* to, const char* cc, const char* bcc,
                            const char* reply_to, const char* subject, const char* te,
                            const char* ready_recipients, const char* text, const char* attachments,
                            TypV2BlockPJ* record, unsigned char** block, unsigned long long* length,
                            char* identifier);

  // Copies the last message identifier into `out` (kMessageIdentifierBytes); null does nothing.
  virtual void GetLastMessageID(char* out);

  // Replaces the session number, which the base class writes into its identifiers.
  virtual void SetSessionID(long long session);

  // ---- Opening, its two halves ----

  // Deciphers a green block into the flat "KEST" tree, which is clear text: wipe it before freeing it.
  //   key_reference  the personal key file with its year, as <C> says; it comes from the message
  //   hex_password   64 characters that open that file
  // -77: no input, -61: length 0, -111: more than 1,000,000,000 bytes, -60, -59: an output is missing.
  // Endless: a green block that deciphers to a malformed body (another key of that name, a forgery) never
  // returns, see keys/message_cipher.h. Whoever opens blocks of strangers does it in a process of its own
  // and ends that after a time limit.
  virtual int DeCrypterVertFlatToVert(const unsigned char* green, unsigned long long length,
                                      const char* key_reference, const char* hex_password,
                                      unsigned char** kest, unsigned long long* kest_length);

  // Rebuilds the red tree from a flat "KEST" tree. The sender's signature of the red block must be there
  // (-69), but is not verified. -77: no input, -61: length 0, -111: more than 1,000,000,000 bytes, -60: no
  // output. -75, -73, -74, -79: the KEST or the red tree is not intact or missing.
  virtual int LoadRedFromUncryptedVertFlat(const unsigned char* kest, unsigned long long length,
                                           TypV2BlockCell** red);

  // ---- Routing XML and message identifiers (routing_xml.cpp) ----

  // Composes a routing XML. Values stand between the tags as they are, nothing is escaped.
  //   key_name          <C>, followed by the year of the personal key
  //   sender            <F>, and <R> where reply_to is null
  //   merge             0: <D> to-list, <CC> cc-list, no bcc. 1: <D> all three, joined by ",". Any other
  //                     value leaves <D> open (kept so); nobody passes one.
  //   ready_recipients  not empty: stands in place of <F> and of the recipients
  // -63: all three lists are empty (whatever the ready recipients are).
  virtual int Low_GetBasicServiceXML(char** xml, const char* key_name, const char* sender, const char* to,
                                     const char* cc, const char* bcc, const char* reply_to,
                                     const char* subject, const char* te, const char* identifier, long merge,
                                     const char* ready_recipients);

  // The routing XML of the grey block: merged lists, and the identifier of the last GetServiceXMLRoutage, so
  // that the red and the grey block of a message carry the same one.
  virtual int GetBasicServiceXML(char** xml, const char* key_name, const char* sender, const char* to,
                                 const char* cc, const char* bcc, const char* reply_to, const char* subject,
                                 const char* te);

  // The routing XML of the red block: separate lists without bcc, and a new message identifier.
  virtual int GetServiceXMLRoutage(char** xml, const char* key_name, const char* sender, const char* to,
                                   const char* cc, const char* bcc, const char* reply_to, const char* subject,
                                   const char* te, const char* ready_recipients);

  // ---- Sealing, its steps ----

  // The red block of a message in clear (wipe it before freeing it), and the sender's signature of it
  // (kSignatureXmlBytes). Arguments as for CrypterSigner; both passwords and the record are not used.
  // *red_length becomes 0 and the signature empty at once; *red is written on success only.
  //
  // Kept so: the parts of the message are added one after the other whatever became of the one before,
  // and the code of the last one decides: the routing XML, the text, each attachment. Only lack of memory
  // (-96) ends it at once. -53, with no attachment added: 100 attachments or more.
  virtual int GetRouge(TypApiV2Signature* signer, const char* key_name, const char* hex_password,
                       const char* signing_key_name, const char* signing_password, const char* to,
                       const char* cc, const char* bcc, const char* reply_to, const char* subject,
                       const char* te, const char* ready_recipients, const char* text,
                       const char* attachments, TypV2BlockPJ* record, unsigned char** red,
                       unsigned long long* red_length, char* red_signature);

  // The green block around a flat red block and its signature.
  virtual int GetVert(const char* key_name, const char* hex_password, const char* red_signature,
                      const unsigned char* red, unsigned long long red_length, unsigned char** green,
                      unsigned long long* green_length);

  // The grey block around a green block, with the routing XML of GetBasicServiceXML.
  virtual int GetGris(const char* key_name, const char* sender, const char* to, const char* cc,
                      const char* bcc, const char* reply_to, const char* subject, const char* te,
                      const unsigned char* green, unsigned long long green_length, unsigned char** grey,
                      unsigned long long* grey_length);

  // The transport block around a grey block.
  virtual int GetPourHTTPS(TypApiV2Signature* signer, const unsigned char* grey,
                           unsigned long long grey_length, unsigned char** block,
                           unsigned long long* block_length);

  // Reads an attachment (clear text: wipe it before freeing it) and writes its XML into `xml`
  // (kAttachmentXmlBytes): <AT><N>FILE NAME IN BASE64</N></AT>, then the sender's signature of the bytes.
  // -62, -60, -59, -76: path, data, length, xml is null. -54: larger than GetTailleMaxPJ. Else the codes of
  // the file and of the signer. `xml` is empty after a failure.
  virtual int GetDF(TypApiV2Signature* signer, const char* path, unsigned char** data,
                    unsigned long long* length, char* xml);

  // 1000000: the largest attachment, in bytes.
  virtual int GetTailleMaxPJ();

  // 100: the largest number of recipients that callers offer.
  virtual int GetTailleMaxDest();

  // Writes a new message identifier into `out` (kMessageIdentifierBytes; null does nothing):
  // "M", the sender, "[", the session number, "].", a time stamp; cut to the room there is. Empty for a null
  // sender.
  virtual void GetIDMessage(char* out, const char* sender, const char* to, const char* cc, const char* bcc,
                            const char* subject);

  // GetGris with a routing XML of the caller's. The first argument is not read.
  virtual int GetGrisWithReadyXML(const char* unused, const char* xml, const unsigned char* green,
                                  unsigned long long green_length, unsigned char** grey,
                                  unsigned long long* grey_length);

  // ---- Without a slot ----

  // The routing XML and the green block of a grey block, checked as in ExtractRoutageOnlyFromGrisBlock.
  int ExtractVertFromGrisBlock(const unsigned char* grey, unsigned long long length, char** routing,
                               unsigned char** green, unsigned long long* green_length);

  // The grey block of a transport block, checked as in ExtractVertFlatFromHTTPSBlock, and who signed it: `signer`
  // takes kSignerNameBytes, or is null; it is left alone on failure.
  int ExtractGrisFromHTTPSBlock(const unsigned char* block, unsigned long long length, unsigned char** grey,
                                unsigned long long* grey_length, char* signer);

 protected:
  kestrune::Owned<TypV2Utils>& utils() { return utils_; }

 private:
  friend class kestrune::Sealing;
  struct Transport;

  // Sealing.
  int MakeCell(kestrune::Owned<TypV2BlockCell>* cell);
  int Enclose(TypV2BlockCell* cell, const char* name, const char* xml, const unsigned char* data,
              unsigned long long length, kestrune::Layer* layer);
  int Encipher(const char* key_name, const char* hex_password, const kestrune::Layer& kest,
               unsigned char** green, unsigned long long* green_length);
  std::size_t RoomAround() const;
  void PassOn(kestrune::Layer layer, unsigned char** out, unsigned long long* length);
  int ReadAttachment(TypV2FileRef* file, kestrune::SecretCBuffer* content);

  // Opening.
  int OpenTransport(const unsigned char* block, unsigned long long length, Transport* transport);
  int CopyKeyReference(const char* routing, char* key_reference);
  int Decipher(const unsigned char* green, unsigned long long length, const char* key_reference,
               const char* hex_password, unsigned char** kest, unsigned long long* kest_length);
  int LoadRed(const unsigned char* kest, unsigned long long length, TypV2BlockCell** red);

  std::array<char, kestrune::kMessageIdentifierBytes> last_identifier_{};
  std::int64_t session_ = 0;
  TypV2InstanceCreator* creator_ = nullptr;
  kestrune::Owned<TypV2Utils> utils_;
  std::array<char, kestrune::limits::kFolderOfEnvelope + 1> message_key_folder_{};
  std::array<char, kestrune::limits::kFolderOfEnvelope + 1> signing_key_folder_{};
  kestrune::Handover* handover_ = nullptr;  // while it seals, in the library's own classes
};

// The platform's message identifiers: 40 hexadecimal characters, the SHA-1 of the sender, the lists, the
// subject and the time in seconds, then the clock's nanoseconds in decimal.
class KESTRUNE_API TypV2CryptoInterfaceUnix : public TypV2CryptoInterface {
 public:
  void GetIDMessage(char* out, const char* sender, const char* to, const char* cc, const char* bcc,
                    const char* subject) override;
};

#endif
