/*
 * The library's interface for programs in C, and the only header that they need. It compiles as C11 and as
 * C++.
 *
 * Conventions
 *   Texts are zero-terminated strings of 8-bit characters. Lengths are in bytes.
 *   Every function returns 0 or a negative code; core/result.h names them all.
 *   Buffers handed out come from malloc(); the caller gives them to free().
 *   A key folder is a prefix: it must end with the path separator.
 *   Each call makes and destroys its own objects; nothing lives from one call to the next.
 *   Threads: call from one thread at a time.
 */
#ifndef KESTRUNE_API_KESTRUNE_H
#define KESTRUNE_API_KESTRUNE_H

#ifndef KESTRUNE_API
#define KESTRUNE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Signing --------------------------------------------------------------------------------------- */

/*
 * Makes the hexadecimal password of a pass phrase: 64 upper-case characters, the first 32 bytes of the
 * SHA-512 of its first 32 characters, after '#', '$', '&', '*', '-', '=' and '@' became '_'.
 *
 * password  text of any length; only its first 32 characters count.
 * out       65 bytes, terminated on success.
 *
 * -62: password is null. -61: it is empty. -102: out is null (tested in this order; out is untouched).
 * -96: no memory.
 */
KESTRUNE_API int BuildHexPassword(const unsigned char* password, unsigned char* out);

/*
 * Signs a text with a signing key of the current year and writes the signature block
 *   <SIGN><N>KEY FILE NAME WITHOUT ".key"</N>\n<S>BASE64</S></SIGN>
 * The text itself is signed (PKCS#1 v1.5 type 1, RFC 8017), so whoever holds the certificate reads it back.
 *
 * data      the text, at most the key's modulus - 11 bytes (245 for 2048 bits). Not null.
 * keyName   the key is the file keyName.LETTER.YEAR.key, the letter nearest to 'z', YEAR the years since
 *           1900. At most 39 characters.
 * password  pass phrase of the key file, at most 32 characters, "" when it has none. In this text itself
 *           '#', '$', '&', '*', '-', '=' and '@' become '_'. It is not wiped: that is the caller's.
 * folder    key folder, at most 2047 characters, and path and name together at most 255.
 * out       the block; 800 bytes hold it for keys up to 4096 bits, 2000 for the largest key (8192 bits).
 *           Empty after a failure of the signing itself, untouched after the argument codes -86, -87, -88.
 *
 * -86: folder, -87: keyName missing or too long (-86 wins). -88: password missing or too long.
 * -103: no key file of this year. -104: the pass phrase does not open it. -95: it is unreadable, no RSA key,
 * or inconsistent. -94: the text is too long for the key. -62, -60: data, out is null. -96: no memory.
 */
KESTRUNE_API int Api2GetSignatureXMLLight(const char* data, const char* keyName, char* password,
                                          const char* folder, char* out);

/* ---- Verification of signature blocks --------------------------------------------------------------- */

/*
 * Recovers the text that a signature block of Api2GetSignatureXMLLight carries, with the certificate of the
 * signer whom the block names, and writes the answer
 *   <ERR>0</ERR><N>NAME</N><DT>TEXT</DT>      or      <ERR>CODE</ERR>
 * NAME is the key file's name without ".key". TEXT stands as it was signed, tags in it included: it runs
 * from the first "<DT>" to the end of the answer but for the last five characters.
 *
 * The certificate is the file NAME.pem of the folder (X.509 with an RSA key, PEM or DER). It is trusted
 * because it lies there: no chain, date or revocation is checked, so whoever can write into the folder
 * decides whose signatures count. No other folder is looked at, whatever NAME is.
 *
 * block     text that holds the block, alone or among others; the first one is read. Of any length.
 * folder    certificate folder, at most 2047 characters.
 * answer    1100 bytes hold every answer (580 those for keys of up to 4096 bits). Empty after -86, and -96
 *           from making the objects; for all other codes it holds the code.
 * verbose   1 prints the code, the name, the text and its length on standard output, in French, after any
 *           result but those that leave the answer empty.
 *
 * -86: folder missing or too long. -76: no block. -69: a tag of the block is missing. -70: the signature or
 * the name (48 characters) is too long. -106: the certificate cannot be read or has no RSA key, or the name
 * is empty, "." or "..", or holds a '/'. -71: the signature is not Base64. -68: the signature is not as long
 * as the key's modulus, its padding is not the one of a signature, the key's public exponent is below 65537,
 * or the text holds a zero byte. -60: answer is null. -96: no memory.
 */
KESTRUNE_API int Api2ExtractFromSignature(const char* block, const char* folder, char* answer, long verbose);

/* ---- Short texts: AES, and AES under an RSA certificate --------------------------------------------- */

/* ---- Messages --------------------------------------------------------------------------------------- */

/* ---- Mail conversion -------------------------------------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif
