#include "sign/signature.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <kestrune/kestrune.h>
#include "core/instance_creator.h"
#include "core/utils.h"
#include "sign/key_utils.h"
#include "sign/signature_block.h"
#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"
#include "tests/support/shifted_clock.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

using Count = unsigned long long;

// Personal keys carry 100 more than certificates, and the second generation of names 100 more than the first.
TEST(Dates, FollowTheLocalClock) {
  for (const auto& [now, zone, year, certificate, text, stamp] : Rows<6>("sign.txt", "dates")) {
    SCOPED_TRACE(text);
    const ShiftedClock clock(Number<std::time_t>(now), zone);
    char out[64];
    TypV2Utils utils;
    EXPECT_EQ(utils.GetCurrentYear(), Number(year));
    utils.GetKeyFilenameExtensionV1(out);
    EXPECT_EQ(out, std::to_string(Number(year) - 1900));
    utils.GetKeyFilenameExtensionV2(out);
    EXPECT_EQ(out, std::to_string(Number(year) - 1800));
    utils.GetSQLDateTime(out);
    EXPECT_EQ(out, text);
    TypKeyUtils keys;
    EXPECT_EQ(keys.GetYearCert(out), static_cast<int>(certificate.size()));
    EXPECT_EQ(out, certificate);
    EXPECT_EQ(keys.GetYearKestruneKey(out), 3);
    EXPECT_EQ(out, std::to_string(Number(certificate) + 100));
    EXPECT_EQ(keys.GetKestruneKeyName("x", out), out);
    EXPECT_EQ(out, "x." + certificate);
    const int written = keys.GetTimeStamp(out);
    EXPECT_EQ(std::strlen(out), static_cast<std::size_t>(written));
    EXPECT_TRUE(std::string(out).starts_with(stamp)) << out;
  }
}

TEST(KeyUtils, SizesTheIvArea) {
  for (const auto& [first, second, size] : Rows<3>("sign.txt", "areas of initial vectors"))
    EXPECT_EQ(TypKeyUtils().GetTailleIV(Number<Count>(first), Number<Count>(second)), Number<Count>(size));
}

// Only the current year counts, and the letter nearest to 'z'.
TEST(KeyUtils, FindsTheSigningKeyOfTheYear) {
  const ShiftedClock clock(1798759800, "EAST-1");  // already 2027 here, still 2026 in UTC
  const TempFolder folder;
  TypV2InstanceCreatorUnix creator;
  TypKeyUtils keys;
  ASSERT_EQ(keys.InitCreate(&creator), 0);
  char found[256] = "old";
  const auto find = [&](const std::string& name, const std::string& where) {
    return keys.GetSignPrivateKey(name.c_str(), where.c_str(), found);
  };
  for (const auto& [file, want] : Rows<2>("sign.txt", "signing keys of a year")) {
    WriteFile(folder.File(file), "");
    EXPECT_EQ(find("n", folder.path()), want.empty() ? -103 : 0);
    EXPECT_EQ(found, want);
  }
  // A path of 255 characters is the longest; the file of 256 is there, too, but cannot be named.
  const std::string longest(255 - folder.path().size() - std::string(".z.127.key").size(), 'l');
  for (const std::string& name : {longest, longest + "l"}) {
    WriteFile(folder.File(name + ".z.127.key"), "");
    EXPECT_EQ(find(name, folder.path()), name == longest ? 0 : -103);
  }
}

constexpr std::size_t kPadding = 11;  // what PKCS#1 v1.5 takes at least

// The outside witness: what openssl makes of the same key and bytes (padding type 1 leaves nothing open).
std::string WitnessSignature(const std::string& data, const std::string& bytes) {
  return RunOpenssl({"rsautl", "-sign", "-inkey", DataPath(data + ".key"), "-passin", "pass:a_b_c_d"}, bytes);
}

// The block around a signature: 57 characters on the first line, then 60 on each.
std::string Block(const std::string& name, const std::string& signature) {
  std::string base64 = ToBase64(signature);
  for (std::size_t line = 57; line <= base64.size(); line += 61) base64.insert(line, 1, '\n');
  return "<SIGN><N>" + name + "</N>\n<S>" + base64 + "</S></SIGN>";
}

TEST(SignatureBlock, IsLaidOutForEveryLength) {
  for (const auto& [file, name, length, code] : Rows<4>("sign.txt", "signature blocks")) {
    const Bytes signature(Number<std::size_t>(length), 0x9c);
    char out[5000] = "old";
    EXPECT_EQ(WriteSignatureBlock(file, signature.data(), signature.size(), out), Number(code));
    EXPECT_EQ(out, code == "0" ? Block(name, ToText(signature)) : "old") << length;
  }
}

class Signing : public ::testing::Test {
 protected:
  struct Answer {
    int rc;
    std::string block;
  };
  Owned<TypApiV2Signature> Signer(const std::string& name, std::string password) {
    Owned<TypApiV2Signature> signer(creator_.newTypApiV2Signature());
    EXPECT_EQ(signer.Init(&creator_, name.c_str(), folder_.path().c_str(), password.data()), 0);
    return signer;
  }
  static Answer Sign(const Owned<TypApiV2Signature>& signer, const std::string& text, long mode) {
    char out[2000] = "old";
    const int rc = signer->GetSignatureXMLLight(reinterpret_cast<const unsigned char*>(text.data()),
                                                static_cast<std::uint32_t>(text.size()), out, mode);
    return {rc, out};
  }
  KeyFolder folder_;
  TypV2InstanceCreatorUnix creator_;
};

TEST_F(Signing, WritesTheBlockThatTheWitnessMakes) {
  for (const std::size_t bits : {1024U, 2048U, 3072U, 4096U}) {
    for (const char* kind : {"", "-protected"}) {
      const std::string data = "rsa" + std::to_string(bits) + kind;
      SCOPED_TRACE(data);
      const std::string name = folder_.AddSigningKey(data, data);
      const auto signer = Signer(data, "a-b=c#d");
      const std::string longest(bits / 8 - kPadding, 'x');
      for (const std::string& text : {std::string(), longest}) {
        const Answer itself = Sign(signer, text, 0);
        EXPECT_EQ(itself.rc, 0);
        EXPECT_EQ(itself.block, Block(name, WitnessSignature(data, text)));
        EXPECT_EQ(Sign(signer, text, 2).block, itself.block);
      }
      EXPECT_EQ(Sign(signer, "text", 1).block, Block(name, WitnessSignature(data, Sha512("text"))));
      const Answer too_long = Sign(signer, longest + "x", 0);
      EXPECT_EQ(too_long.rc, -94);
      EXPECT_EQ(too_long.block, "");
    }
  }
}

TEST_F(Signing, ReadsTheKeyOnceAndForgetsItWhenTold) {
  const std::string name = folder_.AddSigningKey("rsa1024-protected", "n");
  const auto signer = Signer("n", "a_b_c_d");
  unsigned char signature[1024];
  std::uint32_t length = 9;
  EXPECT_EQ(signer->SignDigestSHA512(signature, 1, signature, &length), -94);  // not loaded yet
  EXPECT_EQ(length, 0u);
  // Refused before the first byte is looked at: there are not that many here.
  EXPECT_EQ(signer->Signer(signature, 1'000'000'001, signature, &length), -93);
  const Answer first = Sign(signer, "text", 0);
  EXPECT_EQ(signer->ZeroPassword(), 0);
  EXPECT_EQ(Sign(signer, "text", 0).block, first.block);
  const auto too_late = Signer("n", "a_b_c_d");
  EXPECT_EQ(too_late->ZeroPassword(), 0);
  EXPECT_EQ(Sign(too_late, "text", 0).rc, -104);
  std::remove(folder_.File(name + ".key").c_str());
  EXPECT_EQ(Sign(signer, "text", 0).block, first.block);
  EXPECT_EQ(signer->FreePrivateKey(), 0);
  EXPECT_EQ(Sign(signer, "text", 0).rc, -94);
}

TEST_F(Signing, TellsWhyAKeyDoesNotOpen) {
  Bytes damaged = ReadFile(DataPath("rsa1024.key"));
  damaged[damaged.size() / 2] ^= 1;
  WriteFile(folder_.File("damaged.z." + CertificateYear() + ".key"), damaged);
  folder_.AddSigningKey("rsa1024-protected", "rsa");
  folder_.AddSigningKey("ec", "ec");
  for (const auto& [key, password, code] : Rows<3>("sign.txt", "keys that do not open")) {
    const auto signer = Signer(key, password);
    const int want = Number(code);
    EXPECT_EQ(signer->LoadPrivateKey(), want) << key << password;
    for (const long mode : {0, 1}) {
      const Answer answer = Sign(signer, "text", mode);
      EXPECT_EQ(answer.rc, want) << key << password;
      EXPECT_EQ(answer.block.empty(), want != 0);
    }
  }
}

TEST_F(Signing, ChecksItsArgumentsInOrder) {
  for (const auto& [name, folder, password, code] : Rows<4>("sign.txt", "refusals of a signer")) {
    Owned<TypApiV2Signature> signer(creator_.newTypApiV2Signature());
    std::string typed(Number<std::size_t>(password), '@');
    EXPECT_EQ(signer.Init(&creator_, std::string(Number<std::size_t>(name), 'n').c_str(),
                          std::string(Number<std::size_t>(folder), 'd').c_str(), typed.data()),
              Number(code));
    // The caller's own text is changed, when it is accepted.
    EXPECT_EQ(typed, std::string(typed.size(), code == "0" ? '_' : '@'));
  }
}

TEST_F(Signing, HasAnEntryPointThatLeavesItsOutputAloneOrEmpty) {
  char out[100] = "old";
  char password[] = "a-b";
  EXPECT_EQ(Api2GetSignatureXMLLight("x", "n", nullptr, folder_.path().c_str(), out), -88);
  EXPECT_STREQ(out, "old");
  EXPECT_EQ(Api2GetSignatureXMLLight("x", "n", password, folder_.path().c_str(), out), -103);
  EXPECT_STREQ(out, "");
  EXPECT_STREQ(password, "a_b");
  // What is signed and where to is looked at behind name, folder and pass phrase.
  EXPECT_EQ(Api2GetSignatureXMLLight(nullptr, std::string(40, 'n').c_str(), password, "", nullptr), -87);
  EXPECT_EQ(Api2GetSignatureXMLLight(nullptr, "n", password, "", nullptr), -62);
  EXPECT_EQ(Api2GetSignatureXMLLight("x", "n", password, "", nullptr), -60);
}

// A piece of letters mapped again and again, so that 2^32 and some more lie in a row.
TEST_F(Signing, LengthsBeyond32BitsAreTooLong) {
  constexpr std::size_t kPiece = std::size_t{1} << 21, kPieces = (std::size_t{1} << 32) / kPiece;
  const int piece = ::memfd_create("letters", MFD_CLOEXEC);
  ASSERT_EQ(::write(piece, std::string(kPiece, 'a').data(), kPiece), static_cast<ssize_t>(kPiece));
  auto* const text = static_cast<char*>(::mmap(nullptr, (kPieces + 1) * kPiece, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  for (std::size_t i = 0; i < kPieces; ++i)
    ASSERT_NE(::mmap(text + i * kPiece, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, piece, 0), MAP_FAILED);
  text[kPieces * kPiece] = 'a';  // the low 32 bits alone would be 1
  folder_.AddSigningKey("rsa1024", "cle");
  char out[2000] = "old", password[] = "";
  EXPECT_EQ(Api2GetSignatureXMLLight(text, "cle", password, folder_.path().c_str(), out), -94);
  EXPECT_STREQ(out, "");
  ::munmap(text, (kPieces + 1) * kPiece);
  ::close(piece);
}

}  // namespace
}  // namespace kestrune::testing
