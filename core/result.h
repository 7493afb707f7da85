// Result codes: 0 is success, every failure is negative. Numbers repeat between subsystems, names do not.
#ifndef KESTRUNE_CORE_RESULT_H
#define KESTRUNE_CORE_RESULT_H

namespace kestrune {

using Result = int;

inline constexpr Result kOk = 0;
inline constexpr Result kNoObject = -96;  // the factory gave null, or there is no memory

// Arguments of many operations.
namespace argument {
inline constexpr Result kNoLengthOutput = -59;  // the output for a length or a count is missing
inline constexpr Result kNoOutput = -60;        // the output is missing
inline constexpr Result kEmptyInput = -61;      // the input is there, but empty
inline constexpr Result kNoInput = -62;         // the input is missing
}  // namespace argument

// core/file_ref.h. Other negative numbers are the platform's own status (-1 from seek, truncate, close).
namespace file {
inline constexpr Result kUnknownMode = -1;    // open mode other than 0, 1 and 2
inline constexpr Result kSystem = -1;         // the platform refused; also: closing after a failed write
inline constexpr Result kNotOpen = -2;        // the file is not open
inline constexpr Result kWrite = -7;          // not all bytes were written, or not made durable
inline constexpr Result kRead = -8;           // not all bytes could be read
inline constexpr Result kOpen = -9;           // the file could not be opened (or locked)
inline constexpr Result kMissing = -43;       // no such regular file, or it cannot be read
inline constexpr Result kBadName = -99;       // file name missing, or of 256 characters or more
inline constexpr Result kUnavailable = -101;  // the base class has no files
}  // namespace file

// core/utils.h
namespace utils {
inline constexpr Result kListFull = -53;           // the list has as many elements as there is room for
inline constexpr Result kNoYearSuffix = -56;       // the file name does not end in a year of a personal key
inline constexpr Result kTagMissing = -69;         // no such element
inline constexpr Result kValueTooLong = -70;       // the element's value exceeds the limit
inline constexpr Result kBadFileName = -87;        // file name missing, too short or too long
inline constexpr Result kNegative = -89;           // position or count below 0
inline constexpr Result kNoPasswordOutput = -102;  // output of BuildHexPassword missing
inline constexpr Result kNoDestination = -105;     // destination of Concatenate missing
inline constexpr Result kAddressTooLong = -108;    // mail address of 256 characters or more
inline constexpr Result kDoesNotFit = -109;        // the piece and its terminator exceed the capacity
inline constexpr Result kNoMimeOutput = -102;      // output of ExtractFirstPJFromMime missing
inline constexpr Result kNoAttachment = -200;      // no attachment header, blank line or closing dashes
inline constexpr Result kEmptyAttachment = -201;   // nothing between the blank line and the dashes
}  // namespace utils

// sign/signature.h and sign/key_utils.h
namespace signer {
inline constexpr Result kBase64 = -71;            // the signature's Base64 text exceeds 4096 bytes
inline constexpr Result kSignatureTooLong = -72;  // signature longer than 4096 bytes
inline constexpr Result kFolder = -86;            // folder missing, or of 2048 characters or more
inline constexpr Result kKeyName = -87;           // key name missing, or of 40 characters or more
inline constexpr Result kPassword = -88;          // pass phrase missing, or of 33 characters or more
inline constexpr Result kTooLong = -93;           // more than 1,000,000,000 bytes
inline constexpr Result kSign = -94;              // the RSA operation failed (too many bytes for the key)
inline constexpr Result kKeyUnreadable = -95;     // key file unreadable, no RSA key, or inconsistent
inline constexpr Result kNoKeyFile = -103;        // no key file of the current year for any letter
inline constexpr Result kWrongPassword = -104;    // the pass phrase does not open the key file
}  // namespace signer

// sign/signature_verify.h
namespace verifier {
inline constexpr Result kNoNameOutput = -66;  // no buffer for the signer's name
inline constexpr Result kBadSignature = -68;  // the signature does not verify, or does not decode
inline constexpr Result kTagMissing = -69;    // an element of the block is missing
inline constexpr Result kValueTooLong = -70;  // an element of the block is too long
inline constexpr Result kBase64 = -71;        // the signature's Base64 does not decode into 4096 bytes
inline constexpr Result kNoBlock = -76;       // no block text
inline constexpr Result kNoData = -77;        // no data
inline constexpr Result kFolder = -86;        // certificate folder missing, or of 2048 characters or more
inline constexpr Result kTooLong = -93;       // more than 1,000,000,000 bytes
inline constexpr Result kCertificate = -106;  // the certificate cannot be read
}  // namespace verifier

// keys/kestrune_key.h and keys/master_key.h
namespace key {
inline constexpr Result kMode = -90;         // open mode other than 0, 1 and 2
inline constexpr Result kCipher = -91;       // the AES object could not be initialised
inline constexpr Result kCheckFailed = -92;  // wrong password or damaged key
inline constexpr Result kOffset = -107;      // an offset outside its pad or IV area, or an empty pad
}  // namespace key

// keys/message_cipher.h
namespace cipher {
inline constexpr Result kNoYearSuffix = -56;    // the key file name does not end in a year of a personal key
inline constexpr Result kEndBeforeStart = -83;  // malformed body; these three never come back to a caller
inline constexpr Result kNoEnd = -84;
inline constexpr Result kNoStart = -85;
inline constexpr Result kFolder = -86;    // folder missing or too long
inline constexpr Result kKeyName = -87;   // key (file) name missing, too short or too long
inline constexpr Result kPassword = -88;  // password missing, or not 64 characters
inline constexpr Result kNoInput = -89;   // no input, or too short to be a sealed body
}  // namespace cipher

// keys/install_cipher.h
namespace install {
inline constexpr Result kKey = -32;      // the key text does not give exactly 32 bytes
inline constexpr Result kDigest = -98;   // the trailer's digest differs: wrong key or damaged file
inline constexpr Result kLength = -100;  // the enciphered file's length is not a multiple of 32
}  // namespace install

// The hybrid entry points
namespace hybrid {
inline constexpr Result kBase64 = -71;         // the AE text is not Base64
inline constexpr Result kNoPassword = -88;     // no password
inline constexpr Result kKeyUnreadable = -95;  // key file unreadable, or wrong key password
inline constexpr Result kEncrypt = -501;       // certificate unreadable, or the RSA encryption failed
inline constexpr Result kDecrypt = -502;       // the RSA decryption failed
}  // namespace hybrid

// blocks/block_cell.h and blocks/v1_structure.h
namespace block {
inline constexpr Result kBase64 = -71;          // an attachment's name is not Base64
inline constexpr Result kDigestMismatch = -73;  // the trailer is not the SHA-512 of the bytes before it
inline constexpr Result kForkPastEnd = -74;     // announced lengths run past the end
inline constexpr Result kTooShort = -75;        // under 64 bytes in all, or under 24 for a header
inline constexpr Result kNoXml = -76;           // XML length set, but no XML fork
inline constexpr Result kNoInput = -77;         // null buffer, name or output; data to write without XML
inline constexpr Result kNoRoom = -78;          // not enough room left in the buffer
inline constexpr Result kBadSuperFlag = -79;    // a data fork under a super flag other than 0 and 1
inline constexpr Result kLeafAndSuper = -80;  // sub-block added to a leaf with data, or data to a super block
inline constexpr Result kNoCell = -81;        // null cell to add
inline constexpr Result kBadName = -82;       // name of SetData missing, or of 5 characters or more
inline constexpr Result kNoOutput = -89;      // null output of a copying operation
inline constexpr Result kNameTooLong = -93;   // name of 6 characters or more; stored length above 5
inline constexpr Result kNoStructure = -102;  // null structure, buffer or position of an export
}  // namespace block

// envelope/crypto_interface.h
namespace envelope {
inline constexpr Result kAttachmentTooLarge = -54;  // attachment of more than 1,000,000 bytes
inline constexpr Result kNoKeyReference = -57;      // no <C>, or of more than 40 characters
inline constexpr Result kNoRecipient = -63;         // to, cc and bcc are all empty
inline constexpr Result kNoContent = -64;           // neither text nor attachments
inline constexpr Result kNoSubject = -65;
inline constexpr Result kSigningKeyName = -66;  // missing, empty or of more than 40 characters
inline constexpr Result kNoSigningPassword = -67;
inline constexpr Result kNoCreator = -69;
inline constexpr Result kFolderTooLong = -70;       // a folder of more than 2048 characters
inline constexpr Result kBase64 = -71;              // the subject could not be encoded
inline constexpr Result kNoXmlOutput = -76;         // output for the routing or attachment XML missing
inline constexpr Result kNoInput = -77;             // input of a deciphering operation missing
inline constexpr Result kKeyName = -87;             // missing, empty or of more than 40 characters
inline constexpr Result kPassword = -88;            // hexadecimal password missing, or not 64 characters
inline constexpr Result kTooLong = -93;             // extracting: more than 1,000,000,000 bytes
inline constexpr Result kNoSteadyYear = -103;       // the year kept changing, so no key is of "this year"
inline constexpr Result kNoBlockOutput = -105;      // an output is missing
inline constexpr Result kNoDate = -110;             // TE text missing
inline constexpr Result kTooLongToDecipher = -111;  // deciphering: more than 1,000,000,000 bytes
}  // namespace envelope

// The message entry points
namespace message {
inline constexpr Result kPasswordTooLong = -88;   // personal key password of more than 64 characters
inline constexpr Result kNothingDone = -99;       // the factory, envelope or utilities could not be made
inline constexpr Result kNoRecipientText = -112;  // to, cc, bcc or reply-to missing
inline constexpr Result kNoDateText = -113;
inline constexpr Result kNoIdentifierOutput = -114;
}  // namespace message

// mail/
namespace mail {
inline constexpr Result kBase64 = -71;        // an attachment could not be encoded
inline constexpr Result kNoTree = -77;        // no red tree
inline constexpr Result kNoEmlOutput = -102;  // output of the conversion missing
inline constexpr Result kBadDate = -115;      // date not of 19 or 24 characters
}  // namespace mail

}  // namespace kestrune

#endif
