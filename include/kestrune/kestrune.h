/*
 * The library's interface for programs in C, and the only header that they need. It compiles as C11 and as
 * C++.
 *
 * Conventions
 *   Texts are zero-terminated strings of 8-bit characters. Lengths are in bytes, the terminator not counted.
 *   What is only read (const) is not needed after the call, and is left as it is.
 *   A function with a result returns 0 or a negative code. kestrune_code_text and kestrune-codes(7) explain them
 *   all; core/result.h, a C++ header, gives names to those that are the library's own (-2064 is the cryptographic
 *   library's). A number can mean different things in different functions, a name cannot.
 *   Buffers handed out come from malloc(); the caller gives them to free().
 *   A key folder is a prefix: it must end with the path separator.
 *   Output buffers whose room is told below are the caller's; their size cannot be checked.
 *   -96 is lack of memory, or an object that could not be made, in whatever function needs them, told below or
 *   not. Where one code stands for everything that can go wrong in a step (-95 and -106, a key or certificate
 *   that cannot be read, -501, -502), lack of memory in that step can be that code.
 *   Each call makes and destroys its own objects. What is left behind in the process is the state of rand(),
 *   which the message functions seed with the time, and a lock on a key file while it is open.
 *   Threads: any number may call at once, each with arguments of its own; those that seal with one key take
 *   turns, as processes do. They share the state of rand().
 */
#ifndef KESTRUNE_KESTRUNE_H
#define KESTRUNE_KESTRUNE_H

#ifndef KESTRUNE_API
#define KESTRUNE_API __attribute__((visibility("default")))
#endif

/* The tree of an opened message; its operations are in blocks/block_cell.h, in C++. */
#ifdef __cplusplus
class TypV2BlockCell;
extern "C" {
#else
typedef struct TypV2BlockCell TypV2BlockCell;
#endif

/* ---- Version --------------------------------------------------------------------------------------- */

/* Of this header: 10000 * major + 100 * minor + patch, and as a text. */
#define KESTRUNE_VERSION 20300
#define KESTRUNE_VERSION_TEXT "2.3.0"

/* Of the library that runs, which can be another one than the program was built with: "2.3.0". */
KESTRUNE_API const char* kestrune_version(void);

/* The cryptographic library that runs, by its own word: "mbed TLS 2.28.3", "OpenSSL 3.0.17". */
KESTRUNE_API const char* kestrune_crypto_library(void);

/*
 * 1: what the formats call random strings (keys and IVs of short texts among them) is drawn from the system's
 * generator. 0: from rand(), see "Short texts".
 */
KESTRUNE_API int kestrune_strong_random(void);

/* ---- Signing --------------------------------------------------------------------------------------- */

/*
 * Makes the hexadecimal password of a pass phrase: 64 upper-case characters, the first 32 bytes of the
 * SHA-512 of its first 32 characters, after '#', '$', '&', '*', '-', '=' and '@' became '_'.
 *
 * password  text of any length; only its first 32 characters count.
 * out       65 bytes, terminated on success. May be the same buffer as password.
 *
 * -62: password is null. -61: it is empty. -102: out is null (tested in this order; out is untouched).
 * -96: no memory.
 */
KESTRUNE_API int BuildHexPassword(const unsigned char* password, unsigned char* out);

/*
 * WARNING: the text is signed as it is, and a signature over a digest is one over the digest's 64 bytes. Whoever
 * lets you sign 64 bytes of his choice has your signature under all data with that SHA-512, a message too. Never
 * sign what a stranger chose.
 *
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
 * out       the block and its terminator: 29 + N + B + (B + 3) / 60 bytes, rounded down, with N characters of
 *           the file name without ".key" and B = 4 * ((modulus in bytes + 2) / 3). 800 bytes hold it for keys
 *           up to 4096 bits, 1500 for the largest key (8192 bits). Empty after a failure of the signing
 *           itself, untouched after -60, -62, -86, -87, -88.
 *
 * -86: folder, -87: keyName missing or too long (-86 wins). -88: password missing or too long. -62, -60: data,
 * out is null; tested behind these. -103: no key file of this year. -104: the pass phrase does not open it. -95:
 * it is unreadable, no RSA key, or inconsistent. -94: the text is too long for the key. -96: no memory.
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

/* ---- Random numbers -------------------------------------------------------------------------------- */

/*
 * From now on, in the whole process, the system's generator answers wherever rand() would: keys and IVs of short texts,
 * boundaries, message identifiers. What is drawn is no longer that of a seed, and nothing seeds rand(). Cannot be undone.
 * Call it before the first thread that seals; a library built with KESTRUNE_STRONG_RANDOM draws so from the start.
 */
KESTRUNE_API void kestrune_use_system_random(void);

/* ---- Short texts: AES, and AES under an RSA certificate --------------------------------------------- */

/*
 * Keys and IVs of these four functions are drawn from the C library's rand(), which nobody seeds here: unless
 * the process did, EVERY PROCESS DRAWS THE SAME KEYS IN THE SAME ORDER, and whoever knows that opens every
 * form of Api2AesPub without any private key. The drawing is part of the contract, so it is the default; a
 * library built with the option KESTRUNE_STRONG_RANDOM draws from the system's generator instead. Build with
 * it wherever nobody depends on the draws.
 *
 * None of these forms is protected against changes: a text that deciphers is not proven to be the one that was
 * enciphered. Texts end at their first zero byte. docs/hybrid_forms.md describes the forms.
 */

/*
 * Enciphers a text under a password, or deciphers such a form.
 *
 * mode         0: text to form, "<IV>" 32 hexadecimal characters "</IV><AE>" Base64 "</AE>" (AES-256-CBC over
 *              the text and 1 to 16 zero bytes). 1: form to text. Any other: only empties out.
 * hexPassword  the key as 64 hexadecimal characters (see BuildHexPassword). Missing ones count as 0, further
 *              ones do not count.
 * out          emptied first, filled on success. Mode 0 writes 4 x ((n + 16 - n % 16 + 2) / 3) + 51 bytes for
 *              a text of n (n + n / 2 + 100 hold them), mode 1 fewer than the form has.
 * verbose      not 0: prints a line on standard output in mode 0.
 *
 * In mode 1 an IV element that is missing, or of more than 64 characters, counts as zeros; a shorter IV is
 * filled up with zeros, a longer one counts with its first 16 bytes.
 *
 * -60: out is null. -62: text is null. -88: hexPassword is null (out is then empty). -69: no AE element.
 * -71: it is not Base64. -2064: its bytes are not a multiple of 16. -96: no memory.
 */
KESTRUNE_API int Api2Aes(const char* text, const char* hexPassword, int mode, char* out, int verbose);

/*
 * The same from file to file. Reads the whole regular file inputPath (up to its first zero byte), writes the
 * result without a terminator to outputPath, which is created or emptied. In modes 1 and 2 a new file is for
 * its owner alone (mode 0600); an existing one keeps its mode, and nobody updates it meanwhile.
 *
 * Both may be the same file, also through links. The result is then written beside it (".kestrune-" and
 * numbers), made durable and renamed over it, with its mode: whatever fails, the old content is untouched. A
 * link stays one; other names (hard links) of the file keep the old content. The folder must let a file be
 * made in it.
 *
 * mode            0 and 1 as Api2Aes. 2: deciphers under hexPassword, then, if newHexPassword is not null,
 *                 enciphers the text under newHexPassword.
 *                 WARNING: a change of password prints THE TEXT, THE NEW PASSWORD and the new form on standard
 *                 output, whatever verbose is.
 *                 WARNING: a wrong hexPassword is not seen. Modes 1 and 2 then write noise and return 0: onto the
 *                 input itself THE TEXT IS LOST. Ask kestrune_decipher_text before.
 * verbose         1: prints the lengths and the codes of the steps.
 *
 * -62: inputPath, -88: hexPassword is null. -99: a path missing or of 256 characters or more. -9: input or
 * output cannot be opened. -61: the input is empty. -8: its length changed while it was read. -7, -1: the
 * output could not be written whole or made durable. Codes of Api2Aes. A failure before the output is opened
 * leaves an older output as it was; one behind it leaves none, but for an output that is the input.
 */
KESTRUNE_API int Api2AesFile(const char* inputPath, const char* outputPath, const char* hexPassword,
                             const char* newHexPassword, int mode, int verbose);

/*
 * Enciphers a text for the holder of a certificate: AES-256-CBC under a key drawn for it (see the warning
 * above), which is enciphered with the certificate's RSA key (PKCS#1 v1.5 type 2, RFC 8017). The form is
 *   <AESPUB><N>certificateName</N><S>Base64 of the key</S><AED>Base64 of the text</AED></AESPUB>
 *
 * text             at most 3743 bytes: a longer one gives an empty AED element, and 0 (kept so).
 * certificateName  file name of the certificate (PEM or DER), behind folder. A name of more than 100
 *                  characters or with a '/' makes a form that Api2DeAesPriv refuses.
 * folder           a prefix that ends with the separator.
 * out              emptied first, filled on success: fewer than strlen(certificateName) + 6500 bytes.
 * verbose          not 0: prints the steps; above 0 also THE KEY.
 *
 * -60, -62: out, text is null. -501: folder or certificateName is null, the certificate is unreadable or holds
 * no RSA key, or the key is too short. -96: no memory.
 */
KESTRUNE_API int Api2AesPub(const char* text, const char* certificateName, const char* folder, char* out,
                            int verbose);

/*
 * Opens a form of Api2AesPub with the private key file that stands beside the certificate: the form's name
 * with its last three characters replaced by "key".
 *
 * keyPassword  pass phrase of the key file, null or "" when it has none. Where it does not open the file, it
 *              is tried again with '#', '$', '&', '*', '-', '=' and '@' replaced by '_'. It is not changed.
 * folder       a prefix that ends with the separator.
 * out          emptied first, filled on success: at most 3745 bytes.
 * verbose      not 0: prints THE TEXT; above 0 also the steps and THE KEY.
 *
 * -60, -62: out, form is null. -69: an element is missing. -70: N has more than 100 characters, S or AED more
 * than 5000. -61: N has fewer than 4. -95: folder is null, N contains '/', the key file is unreadable, holds no
 * RSA key or does not open. -502: the RSA operation failed, or its result is not a key of 32 bytes. -2064: the
 * bytes of AED are not a multiple of 16. -96: no memory. An AED that is not Base64 is an empty text (kept so).
 *
 * WARNING: the codes tell bad padding (-502) from good. Whoever may send forms and learns the answers, or how long
 * they took, can open a form that he caught, form by form. No service may answer strangers with this function.
 */
KESTRUNE_API int Api2DeAesPriv(const char* form, const char* keyPassword, const char* folder, char* out,
                               int verbose);

/*
 * As Api2Aes in mode 1, for callers who must not take noise for a text: a wrong password or a damaged form mostly leaves
 * noise, and Api2Aes returns 0. This one returns -503 where the text is not followed by 1 to 16 zero bytes and nothing
 * else, or where the IV is not 32 hexadecimal digits.
 *
 * One wrong password in 256 still passes, with noise up to its last byte: look whether it is text in your character set.
 * A form whose middle was changed may pass, too: sign what must not change.
 *
 * Other codes, and out, as Api2Aes.
 */
KESTRUNE_API int kestrune_decipher_text(const char* form, const char* hexPassword, char* out);

/*
 * The same for forms of Api2AesPub: as Api2DeAesPriv, silent, and -503 as above, also where AED is not Base64 or empty.
 *
 * Other codes, and THE WARNING, as Api2DeAesPriv.
 */
KESTRUNE_API int kestrune_decipher_text_for_holder(const char* form, const char* keyPassword,
                                                   const char* folder, char* out);

/* ---- Messages --------------------------------------------------------------------------------------- */

/*
 * A message is sealed in four layers: the red block (the message in clear), the green block (enciphered),
 * the grey block (the green one and a routing XML in clear, for the relay) and the transport block (the grey
 * one, signed). docs/message.md draws them, docs/routing_xml.md the routing XML.
 *
 * Common to the functions below:
 *   folder   holds the personal keys (NAME.YEAR), the master key (Master.YEAR), the signing keys and the
 *            certificates. At most 2048 characters (-70, before all other codes of the message), of which the
 *            readers of keys take 2047 (-86); folder and file name together 255 (-99, for signing keys -103).
 *            Null is an empty text where no code is given for it.
 *   verbose  1 prints trace lines in French on standard output; any other value prints none.
 *   A hexadecimal password is the output of BuildHexPassword for the personal key's pass phrase.
 *   After a failure outputs are null and lengths 0, unless a null argument was refused, which may leave them as
 *   they were.
 *   Nothing that is said is checked: dates, addresses and names of recipients are copied into the routing as they are,
 *   tags in them too; "hier" is a date.
 *   A transport block where a grey one is wanted is -87, since it names no key, but its signature is handed out as
 *   "routing", with 0, by Api2ExtractRoutageOnlyFromGrisBlock. A grey block where a transport block is wanted is -69.
 *   kestrune_block_kind tells them apart.
 *   A file name that a message carries is the sender's: it may hold '/', "..", controls. Never open it as it is.
 *   Whoever opens the personal and the master key by himself, through the classes, opens the master key first, as
 *   sealing does; two who take them crosswise wait for each other for ever.
 */

/* Room for a signer's name, terminator counted: the NAME.LETTER.YEAR of a key file. */
enum { KESTRUNE_SIGNER_NAME_BYTES = 49 };

/*
 * Seals a message and writes the transport block to a file.
 *
 * textFile         its content up to the first zero byte is the text. NOT REPORTED: a file that is not there or cannot
 *                  be read counts as no text, and where reading ends in its middle the text ends there. No text is
 *                  -64 when attachmentFiles is null; else a message without text is sealed, even one of nothing at
 *                  all when attachmentFiles is "".
 * attachmentFiles  paths separated by '|', at most 99, of 1,000,000 bytes each; null or empty: none. LEFT OUT WITHOUT
 *                  A WORD: a file that is missing, unreadable or too large, unless it is the last one: then its code
 *                  is returned. Whoever cannot do without a file asks for it before, or counts those of the message.
 * userName         personal key, 1 to 39 characters; its recipient opens the message with it
 * signName         the sender: signing key of the current year, 1 to 39 characters. With a '/' in either name
 *                  a message is sealed that nobody can open or check.
 * hexPassword      of the personal key, 64 characters
 * signPassword     of the signing key, 1 to 32 characters. Changed in place, see Api2GetSignatureXMLLight.
 * to, cc, bcc      recipients separated by ','; null or empty: none. bcc stands in the grey block alone.
 * replyTo          null: the sender
 * subject          any text, not null
 * dateTime         local time of sending as "2026-01-31 23:59:59", not null
 * readyRecipients  tagged text that stands in place of sender and recipients in the red block; null or empty:
 *                  none
 * outputFile       created or emptied, after the sealing succeeded. THAT THE WRITING FAILED IS NOT REPORTED:
 *                  on a full disk the result is 0, and the file cut short. Whoever cannot do without the block
 *                  calls Api2CrypterMem and writes it himself. -1: the closing failed.
 * messageId        128 bytes, may be null: the message identifier; empty when nothing was sealed. ALL MESSAGES THAT A
 *                  SENDER SEALS WITHIN ONE SECOND HAVE THE SAME ONE, in one process and in several: its numbers are
 *                  drawn from rand(), which each call seeds with the time. Not with kestrune_use_system_random.
 *
 * One of text and attachments must be there, and one recipient. Effect: pad bytes of the personal and the
 * master key are used up, whether sealing succeeds in the end or not; those of the master key also with a wrong
 * hexPassword, which is looked at behind them.
 *
 * -87: userName missing, empty or longer. -88: hexPassword not 64 characters, or signPassword longer. -66:
 * signName missing, empty or longer than 40 characters. -67: signPassword missing or empty. -65: no subject.
 * -64: no text and no attachments (null). -110: no dateTime. -63: no recipient. The last four are tested in any
 * case; of all these codes the last one that applies is returned. -54: attachment too large. -53: 100
 * attachments. -43: no master key of this year. -9: no personal key of this year, or a file cannot be opened.
 * -92: wrong hexPassword. -103, -104, -95: as Api2GetSignatureXMLLight. -94: the signing failed. -107, -8, -7:
 * a damaged key file. -99: outputFile missing or of 256 characters or more. -93: more than 1,000,000,000 bytes.
 */
KESTRUNE_API long Api2Crypterfile(const char* textFile, const char* attachmentFiles, const char* userName,
                                  const char* signName, const char* hexPassword, char* signPassword,
                                  const char* folder, const char* to, const char* cc, const char* bcc,
                                  const char* replyTo, const char* subject, const char* dateTime,
                                  const char* readyRecipients, const char* outputFile, char* messageId,
                                  long verbose);

/*
 * The same from memory to memory. No pointer may be null.
 *
 * text            -62 if null
 * attachmentFiles, userName, signName  -62 if null
 * password        pass phrase of the personal key, as typed. -62 if null, -88 beyond 64 characters.
 * signPassword    -62 beyond 64 characters, -67 if null or empty
 * folder          -62 if null
 * to, cc, bcc, replyTo  -112 if null
 * subject         -65, dateTime -113 if null
 * block, length   -60, -59 if null: the transport block, a new buffer; null and 0 after every failure
 * messageId       -114 if null; emptied by every call
 *
 * These codes in the order of the arguments, the first one wins; then those of Api2Crypterfile.
 */
KESTRUNE_API long Api2CrypterMem(const char* text, const char* attachmentFiles, const char* userName,
                                 const char* signName, const char* password, char* signPassword,
                                 const char* folder, const char* to, const char* cc, const char* bcc,
                                 const char* replyTo, const char* subject, const char* dateTime,
                                 unsigned char** block, unsigned long long* length, char* messageId,
                                 long verbose);

/*
 * Checks a transport block in memory and hands out its grey block: the digests of both, and the signature with
 * the certificate of the folder that the signature itself names. 0 says that one of all these holders signed, NOT
 * that it was the sender. Compare `signer` with the sender whom you show or believe, or every holder of a
 * certificate in the folder can pose as any other: the <F> of the grey block's routing, and again, for who wrote
 * both wrote them separately, that of the opened message's, which is a mail's "From:". <F> is NAME, `signer` is
 * NAME.LETTER.YEAR: the whole <F>, a dot, one letter, a dot, digits, and nothing else, for a NAME may hold dots of
 * its own. kestrune_is_sender is that comparison.
 *
 * block, length        -62, -61: null, 0
 * folder               certificates. -62: null.
 * grey, greyLength     -60, -59: null. A new buffer; null and 0 after every failure.
 * signer               the <N> of the signature that held, as it stands in the block. KESTRUNE_SIGNER_NAME_BYTES,
 *                      or null; empty after every failure.
 *
 * -75, -73, -74, -79: no intact transport or grey block. -76, -77: it has no signature, no grey block. -69,
 * -70, -71: malformed signature. -106: no certificate. -68: the signature does not hold. -93: more than 1,000,000,000
 * bytes.
 */
KESTRUNE_API long Api2ExtractGrisFromHTTPSBlock(const unsigned char* block, unsigned long long length,
                                                const char* folder, unsigned char** grey,
                                                unsigned long long* greyLength, char* signer);

/*
 * Opens the grey block in a file.
 *
 * hexPassword  of the personal key that the block names (NAME.YEAR in the folder): 64 characters. Further ones,
 *              up to 80 in all, do not count.
 * red          the red block's tree, for Api2ConvertRedBlockToEml or the operations of blocks/block_cell.h;
 *              the caller ends it with Api2FreeRedBlock. -60: null.
 *
 * -9: the file cannot be opened, or there is no key of that name. -99: path missing or of 256 characters or
 * more. -1: closing the file failed. -43: no master key of that year. -75, -73, -74, -79: the grey block, or what
 * it deciphers to, is not intact. -77: no green block in it. -87, -56: it names no personal key. -88: hexPassword
 * null. -92: wrong hexPassword. -107, -8, -89: forged, or a damaged key file. -111: more than 1,000,000,000 bytes.
 * -69: the red block is not signed.
 *
 * Effect: none on the key files, which are only read, without waiting for processes that seal.
 *
 * MAY NEVER RETURN: a grey block that was forged, or sealed under another key of the same name, can decipher
 * to a body without a body, and the call then sleeps for ever, its secrets wiped. Whoever opens messages of
 * strangers calls it in a process of its own and ends that after a time limit (an alarm, a supervisor).
 * Checking the transport block first tells who sent it, not that he is honest.
 */
KESTRUNE_API long Api2DecrypterfileGris(const char* greyFile, const char* folder, const char* hexPassword,
                                        TypV2BlockCell** red);

/* Ends a tree of Api2DecrypterfileGris, wiping what it holds. Null does nothing. 0. */
KESTRUNE_API long Api2FreeRedBlock(TypV2BlockCell* tree);

/*
 * Opens a grey block in memory and hands out the message as tagged text: the red block's tree, binary contents
 * in Base64.
 *
 * grey, folder  -62: null. Length 0 is -75.
 * password      pass phrase of the personal key, as typed. -62: null.
 * xml           -60: null. A new text, clear text: wipe it before freeing it.
 *
 * Codes, and the call that never returns, as Api2DecrypterfileGris; -109: the text is longer than twice the
 * green block and 4096 bytes. -105: no memory for it (a missing destination, as the exporter has it).
 */
KESTRUNE_API long Api2DecrypterGrisMem(const unsigned char* grey, unsigned long long length,
                                       const char* folder, const char* password, char** xml);

/*
 * Checks the transport block in a file and prints, on standard output and without line ends:
 *   <ERRCODE>CODE</ERRCODE>, then, when the code is 0 and printResult is not 0,
 *   <RESULT>ROUTING XML</RESULT>, then, whenever the block could be read,
 *   <SIGNATUREBLANC>SIGNATURE XML OF THE SENDER</SIGNATUREBLANC>
 * The second argument is ignored. What is printed comes from the block; it is not escaped.
 *
 * -70: folder too long; nothing is printed. -9, -99, -1: the file, as above. Otherwise the codes of
 * Api2ExtractGrisFromHTTPSBlock; -69, -57: the routing XML names no key.
 */
KESTRUNE_API long Api2ExtractRoutageOnlyFromHTTPSBlock(const char* blockFile, const void* unused,
                                                       const char* folder, long printResult, long verbose);

/*
 * The same for the grey block in a file, without signature: only its digest is checked, which anybody can
 * renew.
 *
 * xml  may be null: gets the routing XML, a new text; null on failure, and for a block without one
 *
 * -9, -99, -1: the file, as above. -75, -73, -74, -79: no intact grey block.
 */
KESTRUNE_API long Api2ExtractRoutageOnlyFromGrisBlock(const char* greyFile, const void* unused, char** xml,
                                                      long printResult, long verbose);

/* ---- Opened messages ------------------------------------------------------------------------------- */

/*
 * What a block in memory is: KESTRUNE_TRANSPORT_BLOCK, KESTRUNE_GREY_BLOCK, or 0 for anything else, null too. Looks
 * at the name of its first cell alone; whether it is intact, the function that takes it tells.
 */
enum { KESTRUNE_TRANSPORT_BLOCK = 1, KESTRUNE_GREY_BLOCK = 2 };
KESTRUNE_API int kestrune_block_kind(const unsigned char* block, unsigned long long length);

/*
 * The routing XML of a grey block in memory. The block has no signature: its digest alone is checked, which anybody
 * can renew.
 *
 * grey  -62: null. Length 0 is -75.
 * xml   -60: null. A new text; "" when the block has no routing; null after a failure.
 *
 * -75, -73, -74, -79: no intact block. -77: it is intact, but no grey block.
 */
KESTRUNE_API long kestrune_grey_routing(const unsigned char* grey, unsigned long long length, char** xml);

/*
 * Opens a grey block in memory and hands out the red block's tree, as Api2DecrypterfileGris does of a file; the
 * caller ends it with Api2FreeRedBlock. The red block's signature does not come with it: kestrune_open_message checks
 * that.
 *
 * grey, folder  -62: null. Length 0 is -75.
 * password      pass phrase of the personal key, as typed. -62: null.
 * red           -60: null. Null after a failure.
 *
 * Other codes, and THE CALL THAT NEVER RETURNS, as Api2DecrypterfileGris.
 */
KESTRUNE_API long kestrune_open_tree(const unsigned char* grey, unsigned long long length, const char* folder,
                                     const char* password, TypV2BlockCell** red);

/* A piece of an opened message, and what its signature says. */
typedef struct kestrune_part {
  /* `length` bytes and a zero behind them, never null. They may hold zeros of their own, a text's too. */
  const unsigned char* data;
  unsigned long long length;
  /*
   * An attachment's file name, decoded; "" where it has none that can be decoded, and for all else. The sender's:
   * it may hold '/', "..", controls, any bytes. Never open it as it is.
   */
  const char* name;
  /*
   * 0: it is a signature of these bytes by the certificate of the folder that it names. Else why not, as
   * Api2ExtractGrisFromHTTPSBlock: -76, -69 there is none, -70, -71 malformed, -106 no certificate, -68 it does not
   * hold.
   */
  long signature;
  /* 1: the signature holds, and its signer is the sender <F> of the red routing (kestrune_is_sender). */
  int by_sender;
  /* Whom the signature names, "" when it names nobody. Proven only where `signature` is 0. */
  char signer[KESTRUNE_SIGNER_NAME_BYTES];
} kestrune_part;

/*
 * An opened message, made and freed by the library alone; later versions may add members at the end. All of it is one
 * clear text, and stays valid until kestrune_free_message.
 *
 * THE MESSAGE IS THE SENDER'S when red.signature is 0 and red.by_sender is 1: this signature covers everything, the
 * routing and the names of the attachments too. Those of the texts and attachments cover the bytes of each alone: one
 * that was taken over from another message of the same sender holds as well. What the sender chose to write in the
 * routing is his word: whether its recipients are those of the grey block, nobody has checked.
 */
typedef struct kestrune_message {
  const char* routing; /* the red routing XML; "" when there is none */
  kestrune_part red;   /* the red block's signature; it has neither bytes nor name here */
  unsigned long long texts;
  const kestrune_part* text; /* in the order of the mail; those without bytes too */
  unsigned long long attachments;
  const kestrune_part* attachment; /* the same */
} kestrune_message;

/*
 * Opens a grey block in memory, takes the message apart and checks all its signatures. 0 also where one does not hold:
 * look at each.
 *
 * grey, folder  -62: null. Length 0 is -75.
 * password      pass phrase of the personal key, as typed. -62: null.
 * message       -60: null. For kestrune_free_message; null after a failure.
 *
 * Other codes, and THE CALL THAT NEVER RETURNS, as Api2DecrypterfileGris.
 */
KESTRUNE_API long kestrune_open_message(const unsigned char* grey, unsigned long long length,
                                        const char* folder, const char* password, kestrune_message** message);

/*
 * The same of a tree that was opened before. The tree stays the caller's and is only read. It does not hold the red
 * block's signature: red.signature tells that there is none.
 *
 * -77: red is null. -62: folder is null. -60: message is null. -86: folder of more than 2047 characters. -96.
 */
KESTRUNE_API long kestrune_take_apart(TypV2BlockCell* red, const char* folder, kestrune_message** message);

/* Wipes and frees a message. Null does nothing. */
KESTRUNE_API void kestrune_free_message(kestrune_message* message);

/*
 * 1 when a signer, NAME.LETTER.YEAR, is the sender that a routing names in <F>, NAME: the whole <F>, a dot, one letter
 * (a to z), a dot, digits, and nothing else. 0 else; also when one is null, or <F> is empty.
 */
KESTRUNE_API int kestrune_is_sender(const char* signer, const char* from);

/* ---- Key folders ----------------------------------------------------------------------------------- */

/* What a file of a key folder is, by its name. */
enum {
  KESTRUNE_PERSONAL_KEY = 1, /* NAME.YEAR, YEAR 200 to 299 */
  KESTRUNE_MASTER_KEY = 2,   /* Master.YEAR */
  KESTRUNE_SIGNING_KEY = 3,  /* NAME.LETTER.YEAR.key, or NAME.key of the hybrid forms */
  KESTRUNE_CERTIFICATE = 4   /* the same with ".pem" */
};

typedef struct kestrune_key {
  int kind;
  const char* file; /* the file's name in the folder */
  const char* name; /* NAME of it */
  int year;         /* of the calendar, 2026; 0: none in the name */
  char letter;      /* 0: none in the name */
  /*
   * 0: its readers take it, the pass phrase aside. Personal and master keys: -9 it cannot be opened (the master key:
   * -43 if it may not be read), -8 shorter than its header says, -107 a pad is empty, or a next byte outside of it (the
   * master key is read there, where its file goes on: 0 or -8).
   * Signing keys: -95 unreadable, no RSA key, or inconsistent. Certificates: -106 unreadable, or no RSA key in it.
   * Where folder and name have more than 255 characters: -99, for signing keys -103.
   */
  long state;
  /* Of signing keys. 0: none. 1: a pass phrase. 2: one by a way that this library does not read (state is -95). */
  int protection;
  /*
   * Personal and master keys that have a header, else 0: bytes of each pad, its next unused byte, and how often it
   * began again. A master key has the first pad alone. A second pad does not count its turns.
   */
  unsigned long long pad[2];
  unsigned long long used[2];
  unsigned long long turns[2];
} kestrune_key;

typedef struct kestrune_key_folder {
  unsigned long long keys;
  const kestrune_key* key; /* sorted by file name, byte by byte */
} kestrune_key_folder;

/*
 * Lists the keys and certificates of a folder. No key is used, no pass phrase asked, nothing locked, waited for or
 * changed. Regular files alone (through links) count, and those whose names are a key's; a file of such a name that
 * cannot be read is listed with its state.
 *
 * folder  with or without its last '/'; "" is the current one. -62: null. -99: more than 255 characters. -9: it is
 *         no folder, or cannot be read.
 * list    -60: null. For kestrune_free_key_folder; null after a failure.
 */
KESTRUNE_API long kestrune_list_keys(const char* folder, kestrune_key_folder** list);

/* Null does nothing. */
KESTRUNE_API void kestrune_free_key_folder(kestrune_key_folder* list);

/* ---- Mail conversion -------------------------------------------------------------------------------- */

/*
 * Character sets. A long string is an array of `long` (64 bits), one code point each, ended by a 0; the
 * functions without C linkage are in mail/charset.h.
 */

/* The code point of each Mac OS Roman byte from 128 on, indexed by the byte - 128. */
KESTRUNE_API extern const long MacRomanToUnicode[128];

/*
 * Converts `length` bytes (0 or less: none) from Windows Latin to Mac OS Roman in place, and line feeds to
 * carriage returns. Single curly quotes become apostrophes; what Mac OS Roman lacks, and a few characters
 * that it has (130, 132, 149, 152, 170, 175, 180, 183, 184, 186), stay as they are. Null does nothing.
 */
KESTRUNE_API void convertisolatinversmacroman(unsigned char* buffer, long length);

/*
 * Decodes at most `maximum` characters of UTF-8 into bytes: of each code point its low 8 bits (deliberate), so
 * that text up to U+00FF comes out as Latin-1. Malformed text, and more than 2,000,000,000 characters, give
 * an empty result.
 *
 * destination  room for 8 bytes and for maximum + 1 bytes. Null does nothing.
 * source       zero-terminated; null gives an empty result.
 */
KESTRUNE_API void copyTextUtf8ToLongStr(long* destination, const char* source, long maximum);

/*
 * Mail text. The functions without a result work in place, do not know the size of the buffer, do nothing
 * with null, and leave the text as it is when there is no memory; their working copy is overwritten with
 * random bytes. The largest result of each is given for a text of L characters. limiteemails and
 * convertlftocrlf, which have no C linkage, are in mail/mail_text.h.
 */

/*
 * Encodes text as quoted-printable (RFC 2045, 6.7). Kept so: a line of literal characters carries 77 of
 * them before its soft break; blanks break no line; a blank at the end of the text is not encoded.
 *
 * text        `length` bytes, any content. Null is allowed when length is 0.
 * *out        new zero-terminated text, the caller's to free; null on failure.
 * *outLength  its characters, at most 3 * length + 3 * ((length - 1) / 25) (length > 0, rounded down); 0 on
 *             failure.
 *
 * -60: out is null. -59: outLength is null. -62: text is null. -96: no memory.
 */
KESTRUNE_API int api2encodeQuotedPrintable(const char* text, unsigned long long length, char** out,
                                           unsigned long long* outLength);

/* Writes "=", two upper-case hexadecimal digits of the byte's low 8 bits and a zero into 4 bytes. */
KESTRUNE_API void api2chartoquotedhex(int byte, char* out);

/*
 * Folds a header block: CR, LF and a space behind every 78th character of a line, wherever it lies, save the
 * last character of the text. Largest result: L + 3 * ((L - 1) / 78) + 1 bytes (L > 0, rounded down).
 */
KESTRUNE_API void limite78(char* text);

/* The same with CR and LF alone. Largest result: L + 2 * ((L - 1) / 78) + 1 bytes (L > 0, rounded down). */
KESTRUNE_API void limite78simple(char* text);

/* Takes out every CR and LF; the text never grows. */
KESTRUNE_API void enleverlf(char* text);

/*
 * Rewrites a comma-separated address list: an address of one of the service's own mail domains, or without
 * a domain, becomes its local part at the interop gateway. Entries are separated by ", " and all other
 * spaces go. Kept so: a list that ends in a space loses its last address. Of an address, what goes beyond
 * 2047 characters is cut off.
 *
 * out  largest result: L + C + (C + 1) * G + 1 bytes, with C commas in the list and G characters of the
 *      gateway's mail domain, at-sign included. May be the same buffer. Empty after a failure.
 *
 * -60: out is null. -62: addresses is null. -96: no memory.
 */
KESTRUNE_API int convertaddressestomss(const char* addresses, char* out);

/*
 * Turns a routing date "2026-01-31 23:59:59", optionally with " +100" or the like (19 or 24 characters in
 * all), into the value of a mail's "Date:" line, "Sat, 31 Jan 2026 23:59:59 +002". Kept so: the zone number
 * is printed as it stands, 2 when there is none; May is "Mai". A number that is not there counts as 0, as
 * do those behind it; one too large for an int becomes the nearest that is not. The names are empty where
 * day or month make none, the day's also before 1970.
 *
 * out  200 bytes; empty after a failure.
 *
 * -62: date is null. -60: out is null. -115: not of 19 or 24 characters.
 */
KESTRUNE_API int convertkestrunesqldatetoemldate(const char* date, char* out);

/*
 * Makes a MIME boundary: 35 random upper-case letters and a zero (36 bytes), drawn from rand(), which is
 * not seeded here. -62: out is null.
 */
KESTRUNE_API int GetMimeSeparator(char* out);

/*
 * Value of the n-th (from 1, at most 1000) element <tag>...</tag> of flat tagged text, searched from
 * position `start`; neither attributes, nesting nor escaping.
 *
 * out  the value's length + 1 bytes; with max other than 0, max + 1 hold it.
 *
 * -69: no such element. -70: longer than max. -62: xml or tag, -60: out is null. -96: no memory.
 */
KESTRUNE_API int api2ExtractSmallValueFromXMLLight(const char* xml, const char* tag, unsigned long long n,
                                                   char* out, unsigned long long start,
                                                   unsigned long long max);

/*
 * Makes an Internet mail message of an opened one: the headers from the "ROUT" block's routing XML, the
 * "TEXT" blocks as quoted-printable text, each "PJ" block that has data as a Base64 attachment. docs/mail.md
 * shows the message.
 *
 * red   the tree; whatever the result, save the two argument codes, it is killed and deleted.
 * *eml  new zero-terminated text, the caller's to free; null after a failure. Untouched (with result 0) when
 *       the tree has no "ROUT" block. A routing XML that cannot be read leaves out the header block.
 *
 * Drawn boundaries that stand in the text or in a file name are drawn again.
 *
 * -77: red is null. -102: eml is null. -71: an attachment could not be encoded. -96: no memory, or a hundred
 * boundaries in a row stood in the text.
 */
KESTRUNE_API int Api2ConvertRedBlockToEml(TypV2BlockCell* red, char** eml);

/*
 * Makes the folded header block of a routing XML: From, To, Cc, Date, Subject, Reply-To and
 * X-KestruneV2MessageID, without the blank line behind it. CR and LF are taken out of all values.
 *
 * *header  new zero-terminated text, the caller's to free; null after a failure.
 *
 * -62: xml is null. -60: header is null. -69: <M> or the <I> in it is missing; any other element may be.
 * -96: no memory.
 */
KESTRUNE_API int getHeaderMimeFromRoutXML(const char* xml, char** header);

/*
 * Appends the texts of the "TEXT" blocks among a block, its next blocks and all below them, each up to its
 * first zero byte. The line "------- Autre section texte -----" stands before a text that follows another,
 * or what `text` held.
 *
 * text  zero-terminated, with room for 34 + D more characters for each "TEXT" block of D > 0 data bytes.
 *
 * -77: block is null. -102: text is null. -96: no memory; text is untouched.
 */
KESTRUNE_API int GetFlatTextFromRedBlock(TypV2BlockCell* block, char* text);

/*
 * Appends an attachment part for each "PJ" block that has data, among a block, its next blocks and all below
 * them. The file name is the <N> element in the <AT> element (at most 600 characters) of the block's XML,
 * Base64 already; it is empty where these are missing or longer. Kept so: the first line of the attached
 * Base64 has 65 characters, the others 64.
 *
 * parts  zero-terminated, with room for as many more characters as the parts have. With a boundary of B
 *        characters, a name of N, D bytes of data and E = 4 * ((D + 2) / 3), one part has
 *        164 + B + 2 * N + 3 * ((59 + N) / 78 + (56 + N) / 78) + E + 2 * ((E - 1) / 64)
 *        (all divisions rounded down).
 *
 * -77: block is null. -102: parts is null. -62: boundary is null. -71: an attachment could not be encoded.
 * -96: no memory. parts is untouched after a failure.
 */
KESTRUNE_API int GetMimePJFromRedBlock(TypV2BlockCell* block, char* parts, const char* boundary);

/* ---- Result codes ----------------------------------------------------------------------------------- */

/*
 * What a code means, and what to do. All texts are the library's own and stay; they are UTF-8.
 *
 * entry_point  where it came from: a function of this header ("Api2CrypterMem"), a member of its structures
 *              ("kestrune_part::signature"), "kestrunesign", or a class or its operation ("TypV2AES",
 *              "TypV2FileRef::OpenDF"; for a platform's class its base). Null: any; the answer is then the first
 *              of kestrune_code_list.
 * language     as locales are named: "fr", "fr_FR.UTF-8" and the like for French; anything else, null too, for
 *              English
 */
typedef struct kestrune_code_meaning {
  long code;
  const char* name;      /* as in core/result.h: "verifier::kBadSignature"; no two codes share one */
  const char* subsystem; /* a title: "Verification" */
  const char* cause;     /* a sentence or a few */
  const char* remedy;    /* the same */
} kestrune_code_meaning;

/* Cause and remedy in one text; never null: a code that has no meaning there is told as unknown. */
KESTRUNE_API const char* kestrune_code_text(const char* entry_point, long code, const char* language);

/* The same in its pieces; null when the code has no meaning there. */
KESTRUNE_API const kestrune_code_meaning* kestrune_code_find(const char* entry_point, long code,
                                                             const char* language);

/* The n-th meaning (from 0) that any subsystem gives the code; null behind the last. */
KESTRUNE_API const kestrune_code_meaning* kestrune_code_list(long code, unsigned long n,
                                                             const char* language);

#ifdef __cplusplus
}
#endif

#endif
