// The longest texts that the library takes, in characters; memory for one has a byte more, for its terminator.
// What is one longer is refused with the code that is named here.
//
// Kept so: the envelope takes names and folders of one character more than the classes that it gives them to. Whose
// code a caller gets for such a text is part of the contract.
#ifndef KESTRUNE_CORE_LIMITS_H
#define KESTRUNE_CORE_LIMITS_H

#include <cstddef>

namespace kestrune::limits {

inline constexpr std::size_t kKeyName = 39;             // signer, message cipher: -87
inline constexpr std::size_t kKeyNameOfLetter = 40;     // envelope: -87, the sender's -66
inline constexpr std::size_t kFolder = 2047;            // signer, verifier, message cipher: -86
inline constexpr std::size_t kFolderOfEnvelope = 2048;  // envelope: -70

inline constexpr std::size_t kPath = 255;  // of one file, its folder counted; file reference: -99

inline constexpr std::size_t kKeyFileName = 44;   // of a personal key, with its year; message cipher: -87
inline constexpr std::size_t kKeyReference = 40;  // the same as a message names it, in <C>; envelope: -57
inline constexpr std::size_t kSignerName = 48;  // NAME.LETTER.YEAR in a signature block's <N>; verifier: -70

inline constexpr std::size_t kHexPassword = 64;        // exactly as many; envelope, message cipher: -88
inline constexpr std::size_t kSigningPassword = 32;    // signer: -88
inline constexpr std::size_t kPasswordOfMessage = 64;  // Api2CrypterMem: -88, the signing one's -62

}  // namespace kestrune::limits

#endif
