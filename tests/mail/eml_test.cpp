#include "mail/eml.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <pthread.h>

#include <cstring>
#include <functional>

#include "kestrune_settings.h"
#include "tests/mail/red_tree.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

const std::string kGateway = settings::kGatewayDomain;

std::string Base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string BoundaryOf(const std::string& mail) {
  const std::string_view mark = "boundary=\"";
  const std::size_t at = mail.find(mark);
  return at == std::string::npos ? "" : mail.substr(at + mark.size(), 35);
}

std::string AllBytes(std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) bytes += static_cast<char>(i * 7);
  return bytes;
}

TEST(Eml, SinglePartToTheByte) {
  Routing routing;
  routing.to = std::string("a@ailleurs.example,b@") + settings::kServiceDomain1;
  routing.copies = "c@ailleurs.example";
  routing.reply_to = "cle2";
  routing.subject = "Qm9u\r\nam91cg==";
  RedTree tree;
  tree.Add("TEXT", "<S>", "\xC3\xA9t\xC3\xA9\n").Add("PJ", AttachmentXml("YQ=="), "");
  tree.Add("TEXT", "", std::string_view("deux\0trois", 10)).Add("ROUT", routing.Xml(), "");
  EXPECT_EQ(tree.Convert(), "From: cle1" + kGateway +
                                "\r\n"
                                "To: a@ailleurs.example,\r\n b" +
                                kGateway +
                                "\r\n"
                                "Cc: c@ailleurs.example\r\n"
                                "Date: Wed, 15 Mai 2024 09:05:00 +002\r\n"
                                "Subject: =?utf-8?B?Qm9uam91cg==?=\r\n"
                                "Reply-To: cle2" +
                                kGateway +
                                "\r\n"
                                "X-KestruneV2MessageID: ID1\r\n"
                                "MIME-Version: 1.0\r\n"
                                "Content-Type: text/plain; charset=utf-8; format=flowed\r\n"
                                "Content-Transfer-Encoding: quoted-printable\r\n"
                                "\r\n"
                                "=C3=A9t=C3=A9=0A------- Autre section texte -----=0Adeux\r\n");
}

TEST(Eml, MultipartToTheByte) {
  Routing routing;
  routing.date = "hier";
  routing.subject = routing.sender = "";
  const std::string name(30, 'N');
  const std::string data(97, '\xFF');
  const std::string mail = RedTree()
                               .Add("ROUT", routing.Xml(), "")
                               .Add("TEXT", "", "Voir\r\n")
                               .Add("PJ", AttachmentXml(name.substr(0, 15) + "\r\n" + name.substr(15)), data)
                               .Add("PJ", "<N>x</N>", "a")
                               .Convert();
  const std::string boundary = BoundaryOf(mail);
  const std::string encoded = Base64(data);
  ASSERT_EQ(encoded.size(), 132u);
  const std::string part = "\r\n--" + boundary + "\r\nContent-Transfer-Encoding: base64\r\n";
  EXPECT_EQ(mail, "From: " + kGateway +
                      "\r\n"
                      "To: r1@ailleurs.example\r\n"
                      "Subject: =?utf-8?B?\?=\r\n"
                      "X-KestruneV2MessageID: ID1\r\n"
                      "Content-Type: multipart/mixed; boundary=\"" +
                      boundary + "\"\r\nMIME-Version: 1.0\r\n\r\n--" + boundary +
                      "\r\nContent-Type: text/plain; charset=UTF8; format=flowed\r\n"
                      "Content-Transfer-Encoding: quoted-printable\r\n"
                      "\r\n"
                      "Voir\r\n\r\n" +
                      part + "Content-Type: application/octet-stream; name=\"=?utf-8?B?" +
                      name.substr(0, 22) + "\r\n " + name.substr(22) +
                      "?=\"\r\nContent-Disposition: attachment; filename=\"=?utf-8?B?" + name.substr(0, 25) +
                      "\r\n " + name.substr(25) + "?=\"\r\n\r\n" + encoded.substr(0, 65) + "\r\n" +
                      encoded.substr(65, 64) + "\r\n" + encoded.substr(129) + "\r\n" + part +
                      "Content-Type: application/octet-stream; name=\"=?utf-8?B?\?=\"\r\n"
                      "Content-Disposition: attachment; filename=\"=?utf-8?B?\?=\"\r\n\r\nYQ==\r\n--" +
                      boundary + "--\r\n");
}

TEST(Eml, Refusals) {
  char* eml = nullptr;
  RedTree tree;
  EXPECT_EQ(Api2ConvertRedBlockToEml(nullptr, &eml), mail::kNoTree);
  EXPECT_EQ(Api2ConvertRedBlockToEml(tree.get(), nullptr), mail::kNoEmlOutput);  // and keeps the tree
  char untouched = 0;
  eml = &untouched;
  EXPECT_EQ(Api2ConvertRedBlockToEml(tree.Add("TEXT", "", "x").Release(), &eml), kOk);  // without "ROUT"
  EXPECT_EQ(eml, &untouched);

  Routing routing;
  routing.identifier = "";
  EXPECT_EQ(getHeaderMimeFromRoutXML(nullptr, &eml), argument::kNoInput);
  EXPECT_EQ(getHeaderMimeFromRoutXML("", nullptr), argument::kNoOutput);
  for (const std::string& xml : {routing.Xml(), std::string(), std::string("<I>1</I>")}) {
    eml = &untouched;
    EXPECT_EQ(getHeaderMimeFromRoutXML(xml.c_str(), &eml), utils::kTagMissing);
    EXPECT_EQ(eml, nullptr);
  }
  EXPECT_EQ(RedTree().Add("ROUT", routing.Xml(), "").Convert().find("MIME-Version"), 0u);  // no header block
}

TEST(Eml, PiecesComeInTheTreesOrderAndSize) {
  RedTree tree;
  TypV2BlockCell* first = nullptr;
  TypV2BlockCell* second = nullptr;
  tree.Add("X", "", "", nullptr, &first).Add("X", "", "", nullptr, &second).Add("TEXT", "", "1");
  tree.Add("TEXT", "", "3", first).Add("TEXT", "", "2", second);
  std::string text = "0", want = "0";
  for (const char* digit : {"1", "2", "3"})
    want += std::string("------- Autre section texte -----\n") + digit;
  text.reserve(want.size());
  EXPECT_EQ(GetFlatTextFromRedBlock(tree.get(), text.data()), kOk);
  EXPECT_STREQ(text.data(), want.c_str());

  // The growth that the contract of GetMimePJFromRedBlock states, in a block of exactly that size.
  for (std::size_t n : {0, 18, 19, 21, 22, 97, 593, 594}) {
    for (std::size_t d : {1, 48, 49, 49150, 49153, 98305}) {
      RedTree attached;
      attached.Add("PJ", AttachmentXml(std::string(n, 'n')), AllBytes(d));
      const std::size_t named = n > 593 ? 0 : n;  // <AT> would hold more than 600 characters
      const std::size_t e = 4 * ((d + 2) / 3);
      std::vector<char> parts(
          1 + 164 + 1 + 2 * named + 3 * ((59 + named) / 78 + (56 + named) / 78) + e + 2 * ((e - 1) / 64), 0);
      EXPECT_EQ(GetMimePJFromRedBlock(attached.get(), parts.data(), "B"), kOk);
      EXPECT_EQ(std::strlen(parts.data()) + 1, parts.size());
    }
  }
}

// A million cells in a row, each with one below it, and a million inside each other.
TEST(Eml, HugeTreesNeedLittleStack) {
  const auto convert = [](void*) -> void* {
    for (const bool deep : {false, true}) {
      RedTree tree;
      tree.Add("ROUT", Routing().Xml(), "");
      TypV2BlockCell* cell = nullptr;
      for (int i = 0; i < 500'000; ++i) {
        tree.Add("A", "", "", deep ? cell : nullptr, &cell);
        tree.Add("B", "", "", cell, deep ? &cell : nullptr);
      }
      tree.Add("TEXT", "", "au fond", cell);
      EXPECT_NE(tree.Convert().find("\r\nau fond\r\n"), std::string::npos);
    }
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, convert, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// ---- What mail readers that others wrote make of it ----------------------------------------------------

struct Attachment {
  std::string name;  // as people see it
  std::string data;
};

// A folder of mails with what a reader must report of each.
class Mails {
 public:
  void Add(const std::string& name, const Routing& routing, const std::vector<std::string>& texts,
           const std::vector<Attachment>& attachments, std::string want) {
    RedTree tree;
    std::string text, parts;
    for (const std::string& piece : texts) {
      text += (text.empty() ? "" : "------- Autre section texte -----\n") + piece;
      tree.Add("TEXT", "<SIGN></SIGN>", piece);
    }
    for (const auto& [file, data] : attachments) {
      tree.Add("PJ", AttachmentXml(Base64(file)), data);
      if (!data.empty()) parts += "application/octet-stream; None; " + file + ": " + Hex(data) + "\n";
    }
    tree.Add("ROUT", routing.Xml(), "");
    want += std::string("text/plain; ") + (parts.empty() ? "utf-8" : "UTF8") + "; None: ";
    // What stands between the text and the next boundary or the end is the mail's.
    AddMade(name, tree.Convert(), want + Hex(text + "\r\n") + "\n" + parts);
  }

  void AddMade(const std::string& name, const std::string& mail, const std::string& want) {
    WriteFile(folder_.File(name + ".eml"), mail);
    rows_.emplace_back(name, want);
  }

  void ExpectPythonAgrees() const {
    const ProcessResult reader =
        RunProgram({"/usr/bin/python3", KESTRUNE_TEST_DATA "/../mail/read_mail.py", folder_.path()});
    ASSERT_EQ(reader.status, 0) << reader.err;
    for (const auto& [name, want] : rows_)
      EXPECT_EQ(ToText(ReadFile(folder_.File(name + ".read"))), want) << name;
  }

  std::string File(const std::string& name) const { return folder_.File(name); }
  const std::string& path() const { return folder_.path(); }

 private:
  static std::string Hex(const std::string& bytes) {
    std::string hex = ToHex(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    for (char& digit : hex) digit = static_cast<char>(std::tolower(digit));
    return hex;
  }

  TempFolder folder_;
  std::vector<std::pair<std::string, std::string>> rows_;
};

// What a reader shows of the headers; what is empty is not there.
struct Shown {
  std::string to = "r1@ailleurs.example";
  std::string subject = "Bonjour";
  std::string sender = "cle1";
  std::string copies = "";
  std::string date = "Wed, 15 Mai 2024 09:05:00 +002";
  std::string reply_to = "";
  std::string identifier = "ID1";

  std::string Report() const {
    return "From: " + sender + kGateway + "\n" + Line("To", to) + Line("Cc", copies) + Line("Date", date) +
           Line("Subject", subject) + Line("Reply-To", reply_to) + Line("X-KestruneV2MessageID", identifier);
  }

 private:
  static std::string Line(const std::string& name, const std::string& value) {
    return value.empty() ? "" : name + ": " + value + "\n";
  }
};

TEST(EmlReaders, ReadBackWhatWasSent) {
  Mails mails;
  const Routing routing;
  mails.Add("text_alone", routing, {"Cher confr\xC3\xA8re,\r\n \r\n" + std::string(300, 'x') + " \t\r\nfin="},
            {}, Shown().Report());
  mails.Add("no_text", routing, {}, {{"a.bin", "x"}}, Shown().Report());
  mails.Add("two_texts", routing, {"un\n", "deux"}, {}, Shown().Report());
  mails.Add("many_texts", routing, std::vector<std::string>(1000, "x"), {}, Shown().Report());
  Routing accents;
  accents.subject = Base64("R\xC3\xA9sultats d'\xC3\xA9t\xC3\xA9");
  const std::vector<Attachment> accented = {{"\xC3\xA9t\xC3\xA9.pdf", AllBytes(5000)},
                                            {"vide", ""},
                                            {"b c.bin", AllBytes(2)},
                                            {std::string(250, 'n'), "long"}};
  mails.Add("attachments", accents, {"Voir"}, accented,
            Shown{.subject = "R\xC3\xA9sultats d'\xC3\xA9t\xC3\xA9"}.Report());
  std::vector<Attachment> attachments;
  for (std::size_t i = 0; i < 300; ++i) attachments.push_back({"pj" + std::to_string(i), AllBytes(i)});
  mails.Add("attachments_300", routing, {"--\r\n--x--\r\n"}, attachments, Shown().Report());
  Routing crowd;
  std::string want;
  crowd.to.clear();
  for (int i = 0; i < 10'000; ++i) {
    crowd.to += (i == 0 ? "d" : ",d") + std::to_string(i) + "@ailleurs.example";
    want += (i == 0 ? "d" : ", d") + std::to_string(i) + "@ailleurs.example";
  }
  mails.Add("recipients_10000", crowd, {""}, {}, Shown{.to = want}.Report());
  mails.ExpectPythonAgrees();

  for (const auto& [mail, attached] :
       {std::pair{"attachments", accented}, std::pair{"attachments_300", attachments}}) {
    // The one leaves the names as they are written, the other decodes them.
    const TempFolder unpacked, ripped;
    EXPECT_EQ(RunProgram({"munpack", "-q", "-C", unpacked.path(), mails.File(mail) + ".eml"}).status, 0);
    EXPECT_EQ(RunProgram({"ripmime", "-i", mails.File(mail) + ".eml", "-d", ripped.path()}).status, 0);
    for (const auto& [name, data] : attached) {
      if (data.empty() || name.size() > 16) continue;  // a longer name is torn by the fold
      EXPECT_TRUE(ToText(ReadFile(unpacked.File("=Xutf-8XBX" + Base64(name) + "X="))) == data) << name;
      EXPECT_TRUE(ToText(ReadFile(ripped.File(name))) == data) << name;
    }
  }
}

// Whatever a routing value or a file name holds: one header line each, one text, one attachment.
TEST(EmlReaders, NothingIsInjected) {
  Mails mails;
  const std::vector<std::string> payloads = {"\r",
                                             "\n",
                                             "\r\n",
                                             "\r\n\r\n",
                                             "\r\n--" + std::string(35, 'A') + "\r\n",
                                             "\"",
                                             "zzzzzzzzzzzzz",
                                             "zzzzzzzzzzzzzzzz",
                                             "\"\r\n\"",
                                             std::string(1, '\0')};
  const std::vector<std::pair<std::string Routing::*, std::string Shown::*>> fields = {
      {&Routing::sender, &Shown::sender},
      {&Routing::to, &Shown::to},
      {&Routing::copies, &Shown::copies},
      {&Routing::reply_to, &Shown::reply_to},
      {&Routing::date, &Shown::date},
      {&Routing::subject, &Shown::subject},
      {&Routing::identifier, &Shown::identifier}};
  int mail = 0;
  for (const std::string& payload : payloads) {
    const std::string value = "v" + payload + "Bcc:x";
    std::string bare;
    for (const char character : value) {
      if (character != '\r' && character != '\n') bare += character;
    }
    const bool is_cut = bare.find('\0') != std::string::npos;  // no </M>, and so no header block; no </N>
    for (const auto& [field, shown_field] : fields) {
      Routing routing;
      Shown shown;
      routing.*field = value;
      shown.*shown_field = bare;
      if (field == &Routing::to || field == &Routing::copies || field == &Routing::reply_to)
        shown.*shown_field += kGateway;
      if (field == &Routing::subject) shown.subject = "=?utf-8?B?" + bare + "?=";
      if (field == &Routing::date) shown.date = bare.size() == 19 ? ", 0  0 00:00:00 +002" : "";
      mails.Add("mail" + std::to_string(++mail), routing, {"texte"}, {{"pj", "x"}},
                is_cut ? "" : shown.Report());
    }
    RedTree tree;
    tree.Add("ROUT", Routing().Xml(), "").Add("PJ", AttachmentXml(value), "x");
    mails.AddMade("mail" + std::to_string(++mail), tree.Convert(),
                  Shown().Report() + "text/plain; UTF8; None: 0d0a\napplication/octet-stream; None; " +
                      (is_cut ? "" : "=?utf-8?B?" + bare + "?=") + ": 78\n");
  }
  mails.ExpectPythonAgrees();
}

}  // namespace
}  // namespace kestrune::testing
