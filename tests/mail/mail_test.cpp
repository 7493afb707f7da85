#include "mail/mail_text.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "base/buffer.h"
#include "core/result.h"
#include "kestrune_settings.h"
#include "mail/charset.h"
#include "mail/eml.h"
#include "tests/support/bytes.h"
#include "tests/support/child.h"
#include "tests/support/process.h"
#include "tests/support/routing.h"
#include "tests/support/rows.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

constexpr char kRows[] = "mail.txt";

TEST(Charset, AgreesWithAnotherImplementation) {
  const std::set<long> left_alone = {130, 132, 149, 152, 170, 175, 180, 183, 184, 186};
  std::ifstream file(DataPath("windows_latin_mac_roman.txt"));
  int rows = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    long byte = 0, code_point = 0;
    std::string mac;
    words >> std::hex >> byte >> mac >> code_point;

    long want = mac == "-" || left_alone.contains(byte) ? byte : std::stol(mac, nullptr, 16);
    if (byte == 145 || byte == 146) want = '\'';
    if (byte == '\n') want = '\r';
    auto converted = static_cast<unsigned char>(byte);
    convertisolatinversmacroman(&converted, 1);
    EXPECT_EQ(converted, want) << byte;

    long unicode = byte;
    convertMacCharToUnicode(&unicode);
    EXPECT_EQ(unicode, code_point) << byte;
    ++rows;
  }
  EXPECT_EQ(rows, 256);
}

TEST(Charset, CopiesEndAtTheMaximum) {
  unsigned char mac[] = {'a', 0xDB, 'b', 0};
  long source[] = {'a', 0x20AC, 'b', 0};
  for (const long maximum : {9L, 2L, 0L, -1L}) {
    std::vector<long> want(source, source + std::clamp(maximum, 0L, 3L));
    want.push_back(0);
    std::vector<long> string(want.size(), 7), copy(want.size(), 7);  // a longer copy leaves the heap block
    EXPECT_EQ(convertMacStrToUnicodeLongStr(string.data(), mac, maximum), string.data());
    EXPECT_EQ(string, want);
    copyTextLong(copy.data(), source, maximum);
    EXPECT_EQ(copy, want);
  }
}

TEST(Charset, Utf8IsNarrowedToBytesAndWrittenInPlace) {
  for (const auto& [source, most, want] : Rows<3>(kRows, "narrowed")) {
    std::vector<long> out(2 + source.size(), -1);
    const std::vector<char> text(source.c_str(), source.c_str() + source.size() + 1);  // ends its heap block
    copyTextUtf8ToLongStr(out.data(), text.data(), Number<long>(most));
    EXPECT_EQ(reinterpret_cast<char*>(out.data()), want) << source;
  }
  long string[] = {0x41,   0x7F,   0x80,    0x7FF,    0x800,    0xE9, 0x20AC,
                   0xD800, 0xFFFF, 0x1F600, 0x1FFFFF, 0x200000, -5,   0};
  const char* text = convertLongStrToUtf8(string);
  EXPECT_EQ(static_cast<const void*>(text), string);
  EXPECT_EQ(ToText(FromHex("41 7F C280 DFBF E0A080 C3A9 E282AC EDA080 EFBFBF F09F9880 F7BFBFBF 01 01")),
            text);
}

TEST(MailText, BecomesQuotedPrintable) {
  for (const auto& [text, want] : Rows<2>(kRows, "quoted-printable")) {
    char* out = nullptr;
    unsigned long long length = 0;
    EXPECT_EQ(api2encodeQuotedPrintable(text.data(), text.size(), &out, &length), kOk);
    EXPECT_EQ(out, want) << text;
    EXPECT_EQ(length, want.size());
    std::free(out);
  }
}

// In heap blocks that the result fills to the last byte.
TEST(MailText, IsChangedInPlace) {
  const std::map<std::string, void (*)(char*)> functions = {{"limite78simple", limite78simple},
                                                            {"limite78", limite78},
                                                            {"limiteemails", limiteemails},
                                                            {"enleverlf", enleverlf},
                                                            {"convertlftocrlf", convertlftocrlf}};
  for (const auto& [function, text, want] : Rows<3>(kRows, "in place")) {
    std::vector<char> block(std::max(text.size(), want.size()) + 1);
    text.copy(block.data(), text.size());
    functions.at(function)(block.data());
    EXPECT_EQ(block.data(), want) << function << text;
  }
  const std::string gateway = settings::kGatewayDomain;
  for (const auto& [list, converted] : Rows<2>(kRows, "addresses")) {
    const std::string text = Replaced(list, "@S", std::string("@") + settings::kServiceDomain1);
    std::vector<char> block(text.size() + (2 + gateway.size()) * 3 + 1);
    text.copy(block.data(), text.size());
    EXPECT_EQ(convertaddressestomss(block.data(), block.data()), kOk);
    EXPECT_EQ(block.data(), Replaced(converted, "@G", gateway));
  }
}

// In a process of its own: what it took at most is told of a whole process.
TEST(MailText, ListsOfCommasTakeNoRoom) {
  for (const char* comma : {",", " ,"}) {
    std::string list;
    while (list.size() < 10'000'000) list += comma;
    std::vector<char> out(4 * list.size());
    EXPECT_TRUE(HoldsInAChild([&] {
      rusage before{}, after{};
      ::getrusage(RUSAGE_SELF, &before);
      const bool is_empty = convertaddressestomss(list.c_str(), out.data()) == kOk && out[0] == 0;
      ::getrusage(RUSAGE_SELF, &after);
      return is_empty && after.ru_maxrss - before.ru_maxrss < 20000;  // KiB; a sanitizer takes some
    })) << comma;
  }
}

TEST(MailText, HasDatesAndSmallEntryPoints) {
  for (const auto& [date, code, want] : Rows<3>(kRows, "dates")) {
    char out[200] = "untouched";
    EXPECT_EQ(convertkestrunesqldatetoemldate(date.c_str(), out), Number(code)) << date;
    EXPECT_EQ(out, want);
  }
  char code[4], value[8], boundary[36], another[36];
  api2chartoquotedhex(0xAF, code);
  EXPECT_STREQ(code, "=AF");
  EXPECT_TRUE(GetMimeSeparator(boundary) == kOk && GetMimeSeparator(another) == kOk);
  EXPECT_EQ(std::strspn(boundary, "ABCDEFGHIJKLMNOPQRSTUVWXYZ"), 35u);
  EXPECT_STRNE(boundary, another);
  EXPECT_EQ(api2ExtractSmallValueFromXMLLight("<A>1</A><A>2</A><A>3</A>", "A", 2, value, 1, 7), kOk);
  EXPECT_STREQ(value, "3");
}

const std::string kGateway = settings::kGatewayDomain;

struct Attachment {
  std::string name;  // in Base64
  std::string data;
  std::string shown = "";  // the name as people see it
};
using Attachments = std::vector<Attachment>;
using Texts = std::vector<std::string>;

Cell Tree(const Routing& routing, const Texts& texts, const Attachments& attachments) {
  Cell red = NewCell("RED");
  for (const std::string& text : texts) Add(red.get(), "TEXT", "<SIGN></SIGN>", text);
  for (const auto& [name, data, shown] : attachments) Add(red.get(), "PJ", AttachmentXml(name), data);
  Add(red.get(), "ROUT", routing.Xml());
  return red;
}

// The mail; empty when the conversion left none.
std::string Convert(Cell red) {
  CBuffer eml;
  char* text = nullptr;
  const Result rc = Api2ConvertRedBlockToEml(red.release(), &text);
  eml.AdoptText(text);
  return rc == kOk && eml ? eml.text() : "";
}

std::string AllBytes(std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) bytes += static_cast<char>(i * 7);
  return bytes;
}

// The file has LF for CR LF, GATEWAY for the gateway's domain, and BOUNDARY for the boundary that was drawn.
void ExpectMail(const std::string& mail, const std::string& file) {
  const std::string want = ToText(ReadFile(DataPath("mail/" + file)));
  const std::string_view mark = "boundary=\"";
  const std::size_t at = mail.find(mark);
  const std::string boundary = at == std::string::npos ? "none" : mail.substr(at + mark.size(), 35);
  EXPECT_EQ(Replaced(mail, boundary, "BOUNDARY"),
            Replaced(Replaced(want, "\n", "\r\n"), "GATEWAY", kGateway));
}

TEST(Eml, IsWrittenToTheByte) {
  const std::string service = settings::kServiceDomain1;
  const Routing routing = {.to = "a@ailleurs.example,b@" + service,
                           .copies = "c@ailleurs.example",
                           .reply_to = "cle2",
                           .subject = "Qm9u\r\nam91cg=="};
  const Texts texts = {"\xC3\xA9t\xC3\xA9\n", std::string("deux\0trois", 10)};
  ExpectMail(Convert(Tree(routing, texts, {{"YQ==", ""}})), "without_attachment.eml");
  const Attachment attachment = {"1234567890123456\r\n78901234567890", std::string(97, '\xFF')};
  Cell red = Tree({.sender = "", .date = "hier", .subject = ""}, {"Voir\r\n"}, {attachment});
  Add(red.get(), "PJ", "<N>x</N>", "a");
  ExpectMail(Convert(std::move(red)), "multipart.eml");
}

// What rand() will draw can be known: texts and file names are written that hold the next boundaries.
TEST(Eml, ForeseenBoundariesAreDrawnAgain) {
  constexpr unsigned kSeed = 19;
  std::vector<std::string> foreseen;
  std::srand(kSeed);
  for (int i = 0; i < 100; ++i) {
    char boundary[36];
    GetMimeSeparator(boundary);
    foreseen.emplace_back(boundary);
  }
  for (const auto& [in_text, in_name, number] : Rows<3>(kRows, "boundaries")) {
    std::string text, name = foreseen[Number<std::size_t>(in_name)];
    for (std::size_t i = 0; i < Number<std::size_t>(in_text); ++i) text += "\r\n--" + foreseen[i] + "\r\n";
    name.insert(20, "\r\n");  // taken out again
    std::srand(kSeed);
    const std::string mail = Convert(Tree({}, {text}, {{name, "x"}}));
    const auto taken = Number<std::size_t>(number);
    EXPECT_EQ(mail.empty(), taken == foreseen.size());
    const std::string want = taken == foreseen.size() ? "" : "boundary=\"" + foreseen[taken] + "\"";
    EXPECT_NE(mail.find(want), std::string::npos) << in_text << in_name;
  }
}

TEST(Eml, Refusals) {
  char untouched = 0;
  char* eml = &untouched;
  Cell red = NewCell("RED");
  EXPECT_EQ(Api2ConvertRedBlockToEml(red.get(), nullptr), mail::kNoEmlOutput);  // and keeps the tree
  Add(red.get(), "TEXT", "", "x");
  EXPECT_EQ(Api2ConvertRedBlockToEml(red.release(), &eml), kOk);  // without "ROUT"
  EXPECT_EQ(eml, &untouched);

  const Routing routing = {.identifier = ""};
  for (const std::string& xml : {routing.Xml(), std::string("<I>1</I>")}) {
    eml = &untouched;
    EXPECT_EQ(getHeaderMimeFromRoutXML(xml.c_str(), &eml), utils::kTagMissing);
    EXPECT_EQ(eml, nullptr);
  }
  EXPECT_EQ(Convert(Tree(routing, {}, {})).find("MIME-Version"), 0u);  // no header block
}

TEST(Eml, PiecesHaveTheirSizes) {
  const Cell red = Tree({}, {"1", "2"}, {});
  std::string text = "0", want = "0";
  for (const char* digit : {"1", "2"}) want += std::string("------- Autre section texte -----\n") + digit;
  text.reserve(want.size());
  EXPECT_EQ(GetFlatTextFromRedBlock(red.get(), text.data()), kOk);
  EXPECT_STREQ(text.data(), want.c_str());

  // The growth that the contract of GetMimePJFromRedBlock states, in a block of exactly that size.
  for (const auto& [name, data] : Rows<2>(kRows, "growth")) {
    const auto n = Number<std::size_t>(name), d = Number<std::size_t>(data);
    const Cell attached = Tree({}, {}, {{std::string(n, 'n'), AllBytes(d)}});
    const std::size_t named = n > 593 ? 0 : n;  // <AT> would hold more than 600 characters
    const std::size_t e = 4 * ((d + 2) / 3);
    std::string parts(
        164 + 1 + 2 * named + 3 * ((59 + named) / 78 + (56 + named) / 78) + e + 2 * ((e - 1) / 64), '\0');
    EXPECT_EQ(GetMimePJFromRedBlock(attached.get(), parts.data(), "B"), kOk);
    EXPECT_EQ(std::strlen(parts.data()), parts.size());
  }
}

// ---- What mail readers that others wrote make of it ----------------------------------------------------

// A folder of mails with what a reader must report of each.
class Mails {
 public:
  void AddSent(const std::string& name, const Routing& routing, const Texts& texts,
               const Attachments& attachments, const std::string& shown) {
    std::string text, parts;
    for (const std::string& piece : texts)
      text += (text.empty() ? "" : "------- Autre section texte -----\n") + piece;
    for (const Attachment& part : attachments)
      if (!part.data.empty())
        parts += "application/octet-stream; None; " + part.shown + ": " + ToHex(part.data) + "\n";
    // What stands between the text and the next boundary or the end is the mail's.
    WriteFile(folder_.File(name + ".eml"), Convert(Tree(routing, texts, attachments)));
    rows_.emplace_back(name, shown + "text/plain; " + (parts.empty() ? "utf-8" : "UTF8") +
                                 "; None: " + ToHex(text + "\r\n") + "\n" + parts);
  }

  void ExpectPythonAgrees() const {
    const ProcessResult reader =
        RunProgram({"/usr/bin/python3", KESTRUNE_TEST_DATA "/../mail/read_mail.py", folder_.path()});
    ASSERT_EQ(reader.status, 0) << reader.err;
    for (const auto& [name, want] : rows_)
      EXPECT_EQ(ToText(ReadFile(folder_.File(name + ".read"))), want) << name;
  }

  std::string File(const std::string& name) const { return folder_.File(name); }

 private:
  TempFolder folder_;
  std::vector<std::pair<std::string, std::string>> rows_;
};

// What a reader shows of the headers of a mail with these values.
std::string Report(const Routing& shown) {
  std::string report = "From: " + shown.sender + kGateway + "\n";
  for (const auto& [name, value] : {std::pair{"To", shown.to},
                                    {"Cc", shown.copies},
                                    {"Date", shown.date},
                                    {"Subject", shown.subject},
                                    {"Reply-To", shown.reply_to},
                                    {"X-KestruneV2MessageID", shown.identifier}}) {
    if (!value.empty()) report += std::string(name) + ": " + value + "\n";
  }
  return report;
}

const Routing kShown = {.date = "Wed, 15 Mai 2024 09:05:00 +002", .subject = "Bonjour"};

Attachment Named(const std::string& file, const std::string& data) {
  return {ToBase64(file), data, file};
}

TEST(EmlReaders, ReadBackWhatWasSent) {
  Mails mails;
  mails.AddSent("text_alone", {}, {"Cher confr\xC3\xA8re,\r\n \r\n" + std::string(300, 'x') + " \t\r\nfin="},
                {}, Report(kShown));
  mails.AddSent("no_text", {}, {}, {Named("a.bin", "x")}, Report(kShown));
  // The readers decode quoted-printable of all bytes that a text can hold, and of those whose order matters.
  std::mt19937 random(20);
  for (const std::string& alphabet : {AllBytes(256).substr(1), std::string(" \t\r\n=ab")}) {
    std::string text;
    while (text.size() < 100'000) text += alphabet[random() % alphabet.size()];
    mails.AddSent("random_" + std::to_string(alphabet.size()), {}, {text + "."}, {}, Report(kShown));
  }
  mails.AddSent("many_texts", {}, Texts(1000, "x"), {}, Report(kShown));
  Routing accents, shown = kShown;
  shown.subject = "R\xC3\xA9sultats d'\xC3\xA9t\xC3\xA9";
  accents.subject = ToBase64(shown.subject);
  mails.AddSent("attachments", accents, {"Voir"},
                {Named("large.pdf", AllBytes(150000)), Named("vide", ""), Named(std::string(250, 'n'), "x")},
                Report(shown));
  Attachments attachments;
  for (std::size_t i = 0; i < 300; ++i)
    attachments.push_back(Named("\xC3\xA9t\xC3\xA9 " + std::to_string(i), AllBytes(i)));
  mails.AddSent("attachments_300", {}, {"--\r\n--x--\r\n"}, attachments, Report(kShown));
  Routing crowd;
  shown = kShown;
  for (int i = 0; i < 10'000; ++i) {
    crowd.to += ",d" + std::to_string(i) + "@ailleurs.example";
    shown.to += ", d" + std::to_string(i) + "@ailleurs.example";
  }
  mails.AddSent("recipients_10000", crowd, {""}, {}, Report(shown));
  mails.ExpectPythonAgrees();

  // The one leaves the names as they are written, the other decodes them.
  const TempFolder unpacked, ripped;
  const std::string mail = mails.File("attachments_300.eml");
  EXPECT_EQ(RunProgram({"munpack", "-q", "-C", unpacked.path(), mail}).status, 0);
  EXPECT_EQ(RunProgram({"ripmime", "-i", mail, "-d", ripped.path()}).status, 0);
  for (const auto& [base64, data, name] : attachments) {
    if (data.empty()) continue;
    EXPECT_TRUE(ToText(ReadFile(unpacked.File("=Xutf-8XBX" + base64 + "X="))) == data) << name;
    EXPECT_TRUE(ToText(ReadFile(ripped.File(name))) == data) << name;
  }
}

// Whatever a routing value or a file name holds: one header line each, one text, one attachment.
TEST(EmlReaders, NothingIsInjected) {
  Mails mails;
  int mail = 0;
  for (const auto& [payload] : Rows<1>(kRows, "injections")) {
    const std::string value = "v" + payload + "Bcc:x";
    const std::string bare = Replaced(Replaced(value, "\r", ""), "\n", "");
    const bool is_cut = bare.find('\0') != std::string::npos;  // no </M>, and so no header block; no </N>
    const std::string encoded = "=?utf-8?B?" + bare + "?=";
    for (std::string Routing::*field : {&Routing::sender, &Routing::to, &Routing::copies, &Routing::reply_to,
                                        &Routing::date, &Routing::subject, &Routing::identifier}) {
      Routing routing, shown = kShown;
      routing.*field = value;
      shown.*field = bare;
      if (field == &Routing::to || field == &Routing::copies || field == &Routing::reply_to)
        shown.*field += kGateway;
      if (field == &Routing::subject) shown.subject = encoded;
      if (field == &Routing::date) shown.date = bare.size() == 19 ? ", 0  0 00:00:00 +002" : "";
      mails.AddSent("mail" + std::to_string(++mail), routing, {"texte"}, {Named("pj", "x")},
                    is_cut ? "" : Report(shown));
    }
    mails.AddSent("mail" + std::to_string(++mail), {}, {}, {{value, "x", is_cut ? "" : encoded}},
                  Report(kShown));
  }
  mails.ExpectPythonAgrees();
}

}  // namespace
}  // namespace kestrune::testing
