// The message entry points, as another program calls them.
#include <kestrune/kestrune.h>

#include <gtest/gtest.h>

#include <functional>

#include "blocks/block_cell.h"
#include "core/owned.h"
#include "core/result.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {
namespace {

// The arguments of Api2CrypterMem.
struct Call {
  const char *text = "Bonjour", *attachments = "", *user = "durand", *sender = "medecin";
  const char *password = "a_b_c_d", *sign_password = "a#b", *folder = nullptr;
  const char *to = "a@x.example", *cc = "", *bcc = "", *reply_to = "", *subject = "s";
  const char* date = "2026-05-06 10:11:12";
};
using Field = const char* Call::*;

struct MessageApi : ::testing::Test, MessageFolder {
  MessageApi() : MessageFolder(64) {}

  long SealMem(const Call& call, unsigned char** bytes, unsigned long long* length, char* id) {
    std::string password = call.sign_password == nullptr ? "" : call.sign_password;
    return Api2CrypterMem(call.text, call.attachments, call.user, call.sender, call.password,
                          call.sign_password == nullptr ? nullptr : password.data(), call.folder, call.to,
                          call.cc, call.bcc, call.reply_to, call.subject, call.date, bytes, length, id, 0);
  }
  Bytes Sealed(Call call = {}) {
    call.folder = path().c_str();
    CBuffer sealed;
    EXPECT_EQ(sealed.Receive([&](auto** bytes, auto* length) {
      return static_cast<Result>(SealMem(call, bytes, length, identifier));
    }),
              kOk);
    return Bytes(sealed.data(), sealed.data() + sealed.size());
  }
  long SealFile(const std::string& text, const char* attachments, const std::string& output, long verbose = 0,
                const Call& call = {.cc = nullptr, .bcc = nullptr, .reply_to = nullptr},
                const char* ready = nullptr) {
    std::string password = "none";
    return Api2Crypterfile(text.c_str(), attachments, call.user, call.sender, personal.hex_password.c_str(),
                           password.data(), path().c_str(), call.to, call.cc, call.bcc, call.reply_to,
                           call.subject, call.date, ready, output.c_str(), identifier, verbose);
  }
  std::string Printed(const std::function<void()>& call) {
    ::testing::internal::CaptureStdout();
    call();
    return ::testing::internal::GetCapturedStdout();
  }

  char identifier[128] = "before";
};

TEST_F(MessageApi, TheFirstWrongArgumentDecides) {
  const std::string of_65(65, 'p');
  unsigned char old = 0;
  unsigned char* out = nullptr;
  unsigned long long length = 0;
  Call all;
  all.folder = path().c_str();
  EXPECT_EQ(SealMem(all, &out, &length, nullptr), message::kNoIdentifierOutput);
  EXPECT_EQ(SealMem(all, &out, nullptr, nullptr), argument::kNoLengthOutput);
  EXPECT_EQ(SealMem(all, nullptr, nullptr, identifier), argument::kNoOutput);
  EXPECT_STREQ(identifier, "");
  // Beside the argument alone, a row spoils it together with those of the rows above.
  const struct {
    Field field;
    const char* value;
    long alone, together;
  } rows[] = {
      {&Call::to, "", envelope::kNoRecipient, envelope::kNoRecipient},
      {&Call::sign_password, nullptr, envelope::kNoSigningPassword, envelope::kNoRecipient},
      {&Call::password, "", envelope::kPassword, envelope::kNoRecipient},
      {&Call::date, nullptr, message::kNoDateText, message::kNoDateText},
      {&Call::subject, nullptr, envelope::kNoSubject, envelope::kNoSubject},
      {&Call::reply_to, nullptr, message::kNoRecipientText, message::kNoRecipientText},
      {&Call::folder, nullptr, argument::kNoInput, argument::kNoInput},
      {&Call::to, nullptr, message::kNoRecipientText, argument::kNoInput},
      {&Call::sign_password, of_65.c_str(), argument::kNoInput, argument::kNoInput},
      {&Call::password, of_65.c_str(), message::kPasswordTooLong, message::kPasswordTooLong},
      {&Call::text, nullptr, argument::kNoInput, argument::kNoInput},
  };
  for (const auto& row : rows) {
    Call one;
    one.folder = path().c_str();
    one.*row.field = all.*row.field = row.value;
    out = &old;
    length = 7;
    EXPECT_EQ(SealMem(one, &out, &length, identifier), row.alone) << &row - rows;
    EXPECT_TRUE(out == nullptr && length == 0) << &row - rows;
    EXPECT_EQ(SealMem(all, &out, &length, identifier), row.together) << &row - rows;
  }
  // Of 64 characters the one is wrong alone, and the other is left to the signer.
  const std::string of_64(64, 'p');
  Call longest;
  longest.folder = path().c_str();
  longest.sign_password = of_64.c_str();
  EXPECT_EQ(SealMem(longest, &out, &length, identifier), signer::kPassword);
  longest.sign_password = Call().sign_password;
  longest.password = of_64.c_str();
  EXPECT_EQ(SealMem(longest, &out, &length, identifier), key::kCheckFailed);
}

// From memory and from a file, with other addressees each.
TEST_F(MessageApi, EveryArgumentArrivesInItsPlace) {
  Call call;
  call.to = "to", call.cc = "cc", call.bcc = "bcc", call.reply_to = "reply", call.subject = "subject";
  const std::string text = File("texte"), pj = File("pj"), out = File("out");
  WriteFile(text, "Bonjour");
  WriteFile(pj, "pj");
  for (const bool is_file : {false, true}) {
    EXPECT_EQ(is_file ? SealFile(text, pj.c_str(), out, 0, call, "<X/>") : kOk, kOk);
    const Layers layers = TakeApart(is_file ? ReadFile(out) : Sealed(call), pads());
    const std::string key = "<M><C>durand." + PersonalKeyYear() + "</C>", sender = "<F>medecin</F>";
    const std::string middle =
        std::string("<R>reply</R><I>") + identifier + "</I><TE>2026-05-06 10:11:12</TE>";
    const std::string tail = "<S>c3ViamVjdA==</S></M>";
    EXPECT_EQ(layers.grey.xml, key + sender + middle + "<D>to,cc,bcc</D>" + tail);
    const std::string recipients = is_file ? "<X/>" : "<D>to</D><CC>cc</CC>";
    EXPECT_EQ(layers.red.cells[0].xml, key + (is_file ? "" : sender) + middle + recipients + tail);
    EXPECT_EQ(ToText(layers.red.cells[1].data), "Bonjour");
    EXPECT_EQ(layers.red.cells.size(), is_file ? 3U : 2U);
  }
}

TEST_F(MessageApi, FilesGoInAndOut) {
  const std::string text = File("texte"), sealed = File("sealed"), grey = File("grey");
  WriteFile(text, "Été\n");
  const std::string trace = Printed([&] { EXPECT_EQ(SealFile(text, "", sealed, 1), kOk); });
  const std::string length = std::to_string(ReadFile(sealed).size());
  EXPECT_EQ(trace,
            "inptextlen==6\nusername==durand\nusernamesign==medecin\ninputpjfiles==\nCrypterSigner==0\n"
            "messageid==" +
                std::string(identifier) + "\noutputlen==" + length + "\noutputfile==" + sealed + "\n");
  EXPECT_EQ(std::string(identifier).rfind("Mmedecin[", 0), 0U);

  const Bytes block = ReadFile(sealed);
  char signer[KESTRUNE_SIGNER_NAME_BYTES] = "old";
  CBuffer taken;
  ASSERT_EQ(taken.Receive([&](auto** bytes, auto* count) {
    return static_cast<Result>(
        Api2ExtractGrisFromHTTPSBlock(block.data(), block.size(), path().c_str(), bytes, count, signer));
  }),
            kOk);
  EXPECT_EQ(signer, signing_key);
  EXPECT_EQ(Bytes(taken.data(), taken.data() + taken.size()), ReadFlatTree(block).data);
  WriteFile(grey, ReadFlatTree(block).data);

  TypV2BlockCell* red = nullptr;
  ASSERT_EQ(Api2DecrypterfileGris(grey.c_str(), path().c_str(), personal.hex_password.c_str(), &red), kOk);
  std::string exported(20000, 0);
  long long position = 0;
  // The tree's own factory answers although its call is over.
  EXPECT_EQ(red->ExportBlockAsXML(exported.data(), &position, 20000, 1), kOk);
  EXPECT_EQ(Api2FreeRedBlock(red), kOk);
  EXPECT_EQ(Api2FreeRedBlock(nullptr), kOk);
  char* xml = nullptr;
  ASSERT_EQ(Api2DecrypterGrisMem(taken.data(), taken.size(), path().c_str(), "a_b_c_d", &xml), kOk);
  CBuffer owned;
  owned.AdoptText(xml);
  EXPECT_STREQ(xml, exported.c_str());
  EXPECT_EQ(ToText(FromBase64(ValueOf(ValueOf(xml, "TEXT"), "DATA"))).substr(0, 8), "Été\n\r\r");
}

TEST_F(MessageApi, SealingFilesThatAreNotThere) {
  const std::string out = File("out"), pj = File("pj");
  WriteFile(pj, "x");
  EXPECT_EQ(SealFile(File("missing"), nullptr, out), envelope::kNoContent);
  EXPECT_FALSE(FileExists(out));
  EXPECT_STREQ(identifier, "");
  EXPECT_EQ(SealFile(File("missing"), pj.c_str(), out), kOk);
  EXPECT_EQ(TakeApart(ReadFile(out), pads()).red.cells[1].name, "PJ");
  EXPECT_EQ(SealFile(pj, "", File("no/such/folder")), file::kOpen);
  EXPECT_EQ(SealFile(pj, "", "/dev/full"), kOk);  // the closing tells, not the writing
}

TEST_F(MessageApi, OpeningSaysWhatIsWrong) {
  const Bytes block = Sealed();
  const Bytes grey_block = ReadFlatTree(block).data;
  const Cell grey = ReadFlatTree(grey_block);
  const auto named = [&](const std::string& xml) { return FlatLeaf("DATA", xml, grey.data); };
  const struct {
    Bytes grey;
    const char* password;
    long want;
  } rows[] = {
      {grey_block, "other", key::kCheckFailed},
      {{}, "a_b_c_d", block::kTooShort},
      {block, "a_b_c_d", cipher::kKeyName},  // names no key
      {named(""), "a_b_c_d", cipher::kKeyName},
      {FlatLeaf("DATA", grey.xml, {}), "a_b_c_d", envelope::kNoInput},
      {FlatLeaf("DATA", grey.xml, Bytes(24)), "a_b_c_d", cipher::kNoInput},
      {named("<C>../durand." + PersonalKeyYear() + "</C>"), "a_b_c_d", file::kOpen},
      {named("<C>durand.126</C>"), "a_b_c_d", cipher::kNoYearSuffix},
  };
  const std::string at = File("grey");
  char* xml = nullptr;
  TypV2BlockCell* red = nullptr;
  for (const auto& row : rows) {
    WriteFile(at, row.grey);
    const Bytes memory = row.grey.empty() ? Bytes(1) : row.grey;
    EXPECT_EQ(Api2DecrypterGrisMem(memory.data(), row.grey.size(), path().c_str(), row.password, &xml),
              row.want);
    EXPECT_EQ(Api2DecrypterfileGris(at.c_str(), path().c_str(), HexPassword(row.password).c_str(), &red),
              row.want);
    EXPECT_TRUE(xml == nullptr && red == nullptr) << &row - rows;
  }
  for (int missing = 0; missing < 4; ++missing) {
    EXPECT_EQ(Api2DecrypterGrisMem(missing == 0 ? nullptr : grey_block.data(), grey_block.size(),
                                   missing == 1 ? nullptr : path().c_str(),
                                   missing == 2 ? nullptr : "a_b_c_d", missing == 3 ? nullptr : &xml),
              missing == 3 ? argument::kNoOutput : argument::kNoInput);
  }
  EXPECT_EQ(Api2DecrypterfileGris(path().c_str(), "", "", &red), file::kOpen);  // a folder
  EXPECT_EQ(Api2DecrypterfileGris(std::string(256, 'x').c_str(), "", "", &red), file::kBadName);
  EXPECT_EQ(Api2DecrypterfileGris("", std::string(2049, 'x').c_str(), "", &red), envelope::kFolderTooLong);
}

// Nothing is told after a failure: neither a block nor, above all, who signed it.
TEST_F(MessageApi, TakingTheGreyBlockSaysWhatIsWrong) {
  const Bytes block = Sealed();
  const Cell transport = ReadFlatTree(block);
  Bytes grey = transport.data, damaged = block;
  damaged[damaged.size() / 2] ^= 1;
  grey[grey.size() / 2] ^= 1;
  const Bytes other_grey = FlatLeaf("AUTH", transport.xml, grey);
  const struct {
    const Bytes* block;
    std::size_t length;
    const char* folder;
    long want;
  } rows[] = {
      {&block, 0, path().c_str(), argument::kEmptyInput},
      {&block, block.size(), nullptr, argument::kNoInput},
      {&block, block.size(), "no/", verifier::kCertificate},
      {&damaged, damaged.size(), path().c_str(), block::kDigestMismatch},
      {&other_grey, other_grey.size(), path().c_str(), verifier::kBadSignature},
  };
  unsigned char old = 0;
  for (const auto& row : rows) {
    unsigned char* out = &old;
    unsigned long long length = 7;
    char signer[KESTRUNE_SIGNER_NAME_BYTES] = "old";
    EXPECT_EQ(Api2ExtractGrisFromHTTPSBlock(row.block->data(), row.length, row.folder, &out, &length, signer),
              row.want);
    EXPECT_TRUE(out == nullptr && length == 0 && *signer == 0) << &row - rows;
  }
  unsigned char* out = nullptr;
  EXPECT_EQ(Api2ExtractGrisFromHTTPSBlock(nullptr, 0, nullptr, nullptr, nullptr, nullptr),
            argument::kNoInput);
  EXPECT_EQ(Api2ExtractGrisFromHTTPSBlock(block.data(), 1, "", nullptr, nullptr, nullptr),
            argument::kNoOutput);
  EXPECT_EQ(Api2ExtractGrisFromHTTPSBlock(block.data(), 1, "", &out, nullptr, nullptr),
            argument::kNoLengthOutput);
}

TEST_F(MessageApi, RoutingIsPrintedByteForByte) {
  const Bytes block = Sealed();
  const Cell transport = ReadFlatTree(block);
  const Bytes& grey = transport.data;
  const std::string routing = ReadFlatTree(grey).xml, signature = transport.xml;
  Bytes damaged = block;
  damaged[100] ^= 1;
  const Bytes exchanged = FlatLeaf("AUTH", signature, FlatLeaf("DATA", routing, {}));
  const std::string blank = "<SIGNATUREBLANC>" + signature + "</SIGNATUREBLANC>";
  const std::string fine = "<ERRCODE>0</ERRCODE>", bad = "<ERRCODE>-73</ERRCODE>";
  const std::string result = "<RESULT>" + routing + "</RESULT>", trace = "xmloutput : " + routing + "\n";
  const std::string names =
      "usernamekeyfilechiffrement : durand." + PersonalKeyYear() + "\nfoundsignname : " + signing_key + "\n";
  const auto head = [](const Bytes& bytes, const char* kind, const char* rc) {
    return "inptextlen==" + std::to_string(bytes.size()) + "\nExtractRoutageOnlyFrom" + kind +
           "Block : " + rc + "\n";
  };
  const struct {
    bool is_grey;
    Bytes content;
    long with_result, verbose;
    std::string want;
    std::string routing = "";
  } rows[] = {
      {false, block, 1, 0, fine + result + blank},
      {false, block, -7, 2, fine + result + blank},
      {false, block, 0, 0, fine + blank},
      {false, block, 1, 1, head(block, "HTTPS", "0") + fine + trace + names + result + blank},
      {false, damaged, 1, 0, bad},
      {false, damaged, 1, 1, head(damaged, "HTTPS", "-73") + bad},
      {false, exchanged, 1, 2, "<ERRCODE>-68</ERRCODE>" + blank},
      {false, exchanged, 1, 1,
       head(exchanged, "HTTPS", "-68") + "<ERRCODE>-68</ERRCODE>signatureblanc : " + signature + "\n" +
           blank},
      {true, damaged, 1, 1, head(damaged, "Gris", "-73") + bad},
      {true, {}, 1, 1, head({}, "Gris", "-75") + "<ERRCODE>-75</ERRCODE>"},
      {true, FlatLeaf("DATA", "", {}), 1, 0, fine + "<RESULT></RESULT>"},
      {true, grey, 1, 0, fine + result, routing},
      {true, grey, 1, 1, head(grey, "Gris", "0") + fine + trace + result, routing},
      {true, grey, 1, 2, fine + result, routing},
  };
  const std::string at = File("block"), folder(2049, 'f');
  for (const auto& row : rows) {
    WriteFile(at, row.content);
    char* text = nullptr;
    EXPECT_EQ(Printed([&] {
                if (row.is_grey) {
                  Api2ExtractRoutageOnlyFromGrisBlock(at.c_str(), nullptr, &text, row.with_result,
                                                      row.verbose);
                } else {
                  Api2ExtractRoutageOnlyFromHTTPSBlock(at.c_str(), nullptr, path().c_str(), row.with_result,
                                                       row.verbose);
                }
              }),
              row.want);
    CBuffer owned;
    owned.AdoptText(text);
    EXPECT_EQ(text == nullptr ? "" : text, row.routing);
  }
  EXPECT_EQ(Printed([&] { Api2ExtractRoutageOnlyFromHTTPSBlock("", nullptr, folder.c_str(), 1, 1); }), "");
  EXPECT_EQ(Printed([&] { Api2ExtractRoutageOnlyFromHTTPSBlock("none", nullptr, "", 1, 1); }),
            "ExtractRoutageOnlyFromHTTPSBlock : -9\n<ERRCODE>-9</ERRCODE>");
}

}  // namespace
}  // namespace kestrune::testing
