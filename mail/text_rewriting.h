// The text transformations of mail, in the form that the library itself uses: each appends its result to a
// text that grows with it. The functions of mail_text.h and kestrune/kestrune.h are these behind bare pointers.
//
// `text` must not lie in `*out`. Without memory std::bad_alloc is thrown.
#ifndef KESTRUNE_MAIL_TEXT_REWRITING_H
#define KESTRUNE_MAIL_TEXT_REWRITING_H

#include <string_view>

#include "core/result.h"
#include "mail/text_buffer.h"

namespace kestrune::mail {

inline constexpr std::string_view kLineEnd = "\r\n";
inline constexpr std::string_view kContinuation = "\r\n ";
inline constexpr std::string_view kAddressSeparator = ", ";

// Quoted-printable (RFC 2045, 6.7), with the oddities that api2encodeQuotedPrintable tells of. It is
// measured first, so that it can be written once, in its place: there is no working copy to scrub.
std::size_t QuotedPrintableLength(std::string_view text);
void WriteQuotedPrintable(std::string_view text, char* to);  // no terminator

// "=" and two upper-case hexadecimal digits, no terminator.
inline void WriteQuotedCode(unsigned char byte, char* to) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  to[0] = '=';
  to[1] = kHexDigits[byte >> 4];
  to[2] = kHexDigits[byte & 0x0F];
}
inline constexpr std::size_t kQuotedCodeCharacters = 3;

// Puts `line_break` behind every 78th character of a line, save the last character of the text.
void AppendFolded(std::string_view text, std::string_view line_break, TextBuffer* out);

// Each address behind a comma goes to a continuation line of its own.
void AppendOneAddressPerLine(std::string_view addresses, TextBuffer* out);

void AppendWithoutLineEnds(std::string_view text, TextBuffer* out);

// A carriage return before every line feed, also before one that has it already.
void AppendWithCarriageReturns(std::string_view text, TextBuffer* out);

// Addresses of the service's own domains are routed through the interop gateway; `separator` stands between
// two addresses. kNoObject, and nothing appended, when no utilities object could be made.
Result AppendGatewayAddresses(std::string_view addresses, std::string_view separator, TextBuffer* out);

}  // namespace kestrune::mail

#endif
