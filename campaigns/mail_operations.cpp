// From an opened message to a mail, and the text functions of mail.
#include <kestrune/kestrune.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "campaigns/operation.h"
#include "mail/charset.h"
#include "mail/mail_text.h"
#include "tests/support/bytes.h"
#include "tests/support/routing.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kRoom = 8192;
constexpr char kInPlace[] =
    "the function works in place and has no result: without memory the text stays as it is";

Cell Red() {
  Cell red = NewCell("RED");
  Routing routing;
  routing.copies = "r2@ailleurs.example, r3@ailleurs.example";
  Add(red.get(), "ROUT", routing.Xml());
  Add(red.get(), "TEXT", "<S>x</S>", "Cher confrère,\nà demain.\n");
  Add(red.get(), "PJ", AttachmentXml(ToBase64("note.txt")), "contenu");
  return red;
}

std::string LongText() {
  std::string text;
  for (int i = 0; i < 40; ++i) text.append("mot").append(std::to_string(i)).append(", suite\n");
  return text;
}

Operation InPlace(const char* name, void (*function)(char*)) {
  return {name,
          [=] {
            std::string room = LongText();
            room.resize(kRoom);
            const long rc = Watch([&] {
              function(room.data());
              return kOk;
            });
            return Outcome{rc, room.c_str()};
          },
          {},
          {LongText()},
          kInPlace};
}

// A function that hands out a new text.
template <class Call>
Outcome NewText(Call&& call) {
  CBuffer out;
  std::srand(1);  // where boundaries come from
  const long rc = Watch([&] { return out.ReceiveText(call); });
  return {rc, out ? std::string(out.text()) : std::string()};
}

template <class Call>
Outcome WrittenText(Call&& call) {
  std::string room(kRoom, 0);
  std::srand(1);
  const long rc = Watch([&] { return call(room.data()); });
  return {rc, room.c_str()};
}

}  // namespace

std::vector<Operation> MailOperations() {
  const std::string routing = Routing().Xml();
  const auto red = std::make_shared<Cell>(Red());
  return {
      {"Api2ConvertRedBlockToEml",
       [] {
         Cell tree = Red();
         return NewText([&](char** out) { return Api2ConvertRedBlockToEml(tree.release(), out); });
       }},
      {"getHeaderMimeFromRoutXML",
       [=] { return NewText([&](char** out) { return getHeaderMimeFromRoutXML(routing.c_str(), out); }); }},
      {"GetFlatTextFromRedBlock",
       [=] { return WrittenText([&](char* out) { return GetFlatTextFromRedBlock(red->get(), out); }); }},
      {"GetMimePJFromRedBlock",
       [=] {
         return WrittenText([&](char* out) { return GetMimePJFromRedBlock(red->get(), out, "LIMITE"); });
       }},
      {"api2encodeQuotedPrintable",
       [] {
         unsigned long long length = 0;
         const std::string text = "à " + LongText();
         return NewText(
             [&](char** out) { return api2encodeQuotedPrintable(text.c_str(), text.size(), out, &length); });
       }},
      {"convertaddressestomss",
       [] {
         return WrittenText(
             [](char* out) { return convertaddressestomss("a@ailleurs.example,b,c@ailleurs.example", out); });
       }},
      {"convertkestrunesqldatetoemldate",
       [] {
         return WrittenText(
             [](char* out) { return convertkestrunesqldatetoemldate("2024-05-15 09:05:00", out); });
       }},
      {"GetMimeSeparator", [] { return WrittenText(GetMimeSeparator); }},
      {"api2ExtractSmallValueFromXMLLight",
       [=] {
         return WrittenText([&](char* out) {
           return api2ExtractSmallValueFromXMLLight(routing.c_str(), "C", 1, out, 0, 0);
         });
       },
       {},
       {""},
       "without a toolbox the result is 0 and nothing is written"},
      {"api2chartoquotedhex",
       [] {
         return WrittenText([](char* out) {
           api2chartoquotedhex('=', out);
           return kOk;
         });
       }},
      {"convertisolatinversmacroman",
       [] {
         return WrittenText([](char* out) {
           std::strcpy(out, "\xe9t\xe9\n");
           convertisolatinversmacroman(reinterpret_cast<unsigned char*>(out), 4);
           return kOk;
         });
       }},
      {"copyTextUtf8ToLongStr, convertLongStrToUtf8",
       [] {
         std::array<long, 32> string{};
         const long rc = Watch([&] {
           copyTextUtf8ToLongStr(string.data(), "été", 20);
           convertLongStrToUtf8(string.data());
           return kOk;
         });
         return Outcome{rc, reinterpret_cast<const char*>(string.data())};
       }},
      InPlace("limite78", limite78),
      InPlace("limite78simple", limite78simple),
      InPlace("enleverlf", enleverlf),
      InPlace("limiteemails", limiteemails),
      InPlace("convertlftocrlf", convertlftocrlf),
  };
}

}  // namespace kestrune::testing
