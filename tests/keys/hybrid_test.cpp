// Short texts: Api2Aes, Api2AesFile, Api2AesPub, Api2DeAesPriv.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <kestrune/kestrune.h>
#include "core/random.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "tests/keys/openssl.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;
using Opened = std::pair<int, std::string>;  // code and text

const std::string kKey = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
const std::string kIv = "0F0E0D0C0B0A09080706050403020100";

// What the readers that refuse noise say; a text that they hand out with a failure spoils the answer.
Opened Strict(const std::string& form, const std::string& key) {
  std::string out(form.size() + 1, 'x');
  const int code = kestrune_decipher_text(form.c_str(), key.c_str(), out.data());
  return {code, out.c_str()};
}
Opened Aes(const std::string& text, const std::string& key, int mode) {
  std::string out(text.size() * 3 / 2 + 100, 'x');
  const int code = Api2Aes(text.c_str(), key.c_str(), mode, out.data(), 0);
  return {code, out.c_str()};
}
std::string Padded(const std::string& text) {
  return text + std::string(16 - text.size() % 16, '\0');
}
// A form made with openssl: the IV as it stands there, and the key and the IV that it was made with.
std::string AesForm(const std::string& iv_text, const std::string& plain, const std::string& key,
                    const std::string& iv) {
  return "<IV>" + iv_text + "</IV><AE>" + ToBase64(Aes256Cbc(true, plain, key, iv)) + "</AE>";
}

TEST(AesText, AgreesWithOpensslBothWays) {
  std::set<std::string> ivs;
  for (const std::size_t length : LengthsWorthTrying()) {
    const Opened form = Aes(Sample(length), kKey, 0);
    ASSERT_EQ(form.first, 0) << length;
    const std::string iv = ValueOf(form.second, "IV"), ae = ValueOf(form.second, "AE");
    EXPECT_TRUE(ivs.insert(iv).second) << "drawn twice";
    EXPECT_EQ(form.second, "<IV>" + iv + "</IV><AE>" + ae + "</AE>");
    EXPECT_EQ(Aes256Cbc(false, ToText(FromBase64(ae)), kKey, iv), Padded(Sample(length))) << length;
    EXPECT_EQ(Aes(AesForm(kIv, Padded(Sample(length)), kKey, kIv), kKey, 1), Opened(0, Sample(length)));
  }
}

TEST(AesText, ReadsOrRefusesOddForms) {
  const std::string x = Padded("x"), whole = "sixteen letters!", cut("a\0b456789abcdefg", 16);
  const struct {
    std::string form, password;
    Opened result;
  } rows[] = {{AesForm("", x, kKey, kZeroIv).substr(9), kKey, {0, "x"}},
              {AesForm("0a0B", x, kKey, "0A0B" + kZeroIv.substr(4)), kKey, {0, "x"}},
              {AesForm("G" + kIv.substr(1), x, kKey, kIv), kKey, {0, "x"}},
              {AesForm(kIv + kIv, x, kKey, kIv), kKey, {0, "x"}},
              {AesForm(kIv + kIv + "0", x, kKey, kZeroIv), kKey, {0, "x"}},  // 65 characters count as none
              {AesForm(kIv, x, "ABC0" + kZeroIv + kZeroIv.substr(4), kIv), "ABC", {0, "x"}},
              {AesForm(kIv, x, kKey, kIv), kKey + "1234", {0, "x"}},
              {AesForm(kIv, whole, kKey, kIv), kKey, {0, whole}},  // without a zero byte behind it
              {AesForm(kIv, cut, kKey, kIv), kKey, {0, "a"}},
              {"<IV></IV><AE>AAAA", kKey, {utils::kTagMissing, ""}},
              {"<AE>!AAA</AE>", kKey, {hybrid::kBase64, ""}},
              {"<AE>" + ToBase64(Sample(17)) + "</AE>", kKey, {ERR_AES_INVALID_INPUT_LENGTH, ""}}};
  for (const auto& row : rows) EXPECT_EQ(Aes(row.form, row.password, 1), row.result) << row.form;
  EXPECT_EQ(Aes("text", kKey, 3), Opened(0, ""));
}

TEST(AesText, IsToldFromNoise) {
  const auto form = [](const std::string& plain) { return AesForm(kIv, plain, kKey, kIv); };
  const std::string ivs = AesForm(kIv + kIv, Padded("x"), kKey, kIv), longer = Sample(20);
  const Opened noise(hybrid::kNoText, "");
  const std::pair<std::string, Opened> rows[] = {
      {form(Padded("")), {0, ""}},
      {form(Padded(longer)), {0, longer}},
      {form(std::string("\0"
                        "b456789abcdefg",
                        15) +
            "h"),
       noise},
      {form(Padded(longer).substr(0, 31) + "x"), noise},
      {form(Padded("x") + Padded("")), noise},
      {form("sixteen letters!"), noise},
      {form(""), noise},
      {ivs, noise},
      {AesForm("", Padded("x"), kKey, kZeroIv).substr(9), noise},
      {AesForm("G" + kIv.substr(1), Padded("x"), kKey, kIv), noise},
      {"<IV>" + kIv + "</IV>", {utils::kTagMissing, ""}}};
  for (const auto& [text, result] : rows) EXPECT_EQ(Strict(text, kKey), result) << text;
}

struct AesFile : ::testing::Test, TempFolder {
  std::string in = File("in"), out = File("out"), printed;
  int Run(const std::string& from, const std::string& to, int mode, const std::string& key = kKey,
          const char* new_key = kKey.c_str(), int verbose = 0) {
    CaptureStdout();
    const int code = Api2AesFile(from.c_str(), to.c_str(), key.c_str(), new_key, mode, verbose);
    printed = GetCapturedStdout();
    return code;
  }
  static unsigned PermissionsOf(const std::string& path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
  }
};

TEST_F(AesFile, CiphersAndChangesPasswordsInPlace) {
  const std::string other(64, '7');
  WriteFile(in, std::string("bon\njour\0 cut", 13));
  EXPECT_EQ(Run(in, in, 0, kKey, nullptr, 1), 0);
  EXPECT_EQ(printed, "inptextlen==13\nchiffrement aes result=0\nApi2Aes==0\noutputlen==74\n");
  EXPECT_EQ(Run(in, in, 2, kKey, other.c_str()), 0);
  const std::string form = ToText(ReadFile(in));
  EXPECT_EQ(printed, "in bon\njour\n" + other + "\nout  " + form + "\n");
  EXPECT_EQ(Aes(form, other, 1).second, "bon\njour");
  EXPECT_NE(Aes(form, kKey, 1).second, "bon\njour");
  EXPECT_EQ(Run(in, in, 2, other, nullptr), 0);
  EXPECT_EQ(printed + ToText(ReadFile(in)), "bon\njour");
}

// The draws of a file decide what the next text is enciphered with: 16 for its own IV, the result up to a drawn
// zero, all of the input, zeros at its end too.
TEST_F(AesFile, DrawsAsOftenAsItMust) {
  std::srand(1);
  const int drawn = DrawRandom();
  std::srand(1);
  if (drawn != std::rand()) GTEST_SKIP() << "the system draws";
  WriteFile(in, std::string(900, 'x') + std::string(5, '\0'));
  constexpr int kFormCharacters = 50 + 1216;  // around the Base64 of 912 bytes
  for (const unsigned seed : {1u, 2u, 3u}) {
    std::srand(seed);
    ASSERT_EQ(Run(in, out, 0), 0);
    const int next = std::rand();
    std::srand(seed);
    for (int i = 0; i < 16; ++i) std::rand();
    for (int i = 0; i < kFormCharacters && (std::rand() & 0xFF) != 0;) ++i;
    for (int i = 0; i < 905; ++i) std::rand();
    EXPECT_EQ(next, std::rand()) << seed;
  }
}

// The only copy: a disk that is full behind the first bytes must not take it.
TEST_F(AesFile, ReplacesItsInputWholeOrNotAtAll) {
  const std::string link = File("link"), twin = File("twin");
  const auto files = [&] {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path())) {
      names.insert(entry.path().filename());
    }
    return names;
  };
  const std::set<std::string> all = {"link", "in", "twin"};
  std::filesystem::create_symlink("in", link);
  for (const std::string& output : {in, link, twin}) {
    std::filesystem::remove(twin);
    WriteFile(in, "bonjour");
    std::filesystem::create_hard_link(in, twin);
    ASSERT_EQ(::chmod(in.c_str(), 0640), 0);

    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full = {40, before.rlim_max};
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &full);
    const int refused = Api2AesFile(in.c_str(), output.c_str(), kKey.c_str(), nullptr, 0, 0);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(refused, file::kWrite) << output;
    ASSERT_EQ(files(), all) << output;
    EXPECT_EQ(ToText(ReadFile(in)), "bonjour") << output;

    EXPECT_EQ(Run(in, output, 0), 0) << output;
    EXPECT_EQ(files(), all);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(Aes(ToText(ReadFile(output)), kKey, 1).second, "bonjour");
    EXPECT_EQ(PermissionsOf(output), 0640u);
  }
}

TEST_F(AesFile, MakesClearTextsThatTheOwnerAloneReads) {
  const mode_t umask = ::umask(0);
  const std::pair<int, unsigned> rows[] = {{0, 0666}, {1, 0600}, {2, 0600}};
  for (const auto& [mode, permissions] : rows) {
    WriteFile(in, mode == 0 ? "text" : AesForm(kIv, Padded("text"), kKey, kIv));
    std::filesystem::remove(out);
    EXPECT_EQ(Run(in, out, mode), 0);
    EXPECT_EQ(PermissionsOf(out), permissions) << mode;
  }
  ::umask(umask);
}

TEST_F(AesFile, LeavesOlderOutputsAlone) {
  WriteFile(in, "bonjour");
  WriteFile(out, "older");
  EXPECT_EQ(Run(path(), out, 0), file::kOpen);
  EXPECT_EQ(Run(in, out, 2), utils::kTagMissing);
  EXPECT_EQ(Api2AesFile(in.c_str(), nullptr, "", "", 0, 0), file::kBadName);
  EXPECT_EQ(Run(in, "/dev/full", 0), file::kWrite);
  WriteFile(in, "");
  EXPECT_EQ(Run(in, out, 0), argument::kEmptyInput);
  EXPECT_EQ(ToText(ReadFile(out)), "older");
}

const std::string kTextKey = Sample(32);

std::string HexOf(const std::string& text) {
  return ToHex(ToBytes(text).data(), text.size());
}

Opened Seal(const std::string& text, const std::string& certificate) {
  std::string out(7000, 'x');
  const int code = Api2AesPub(text.c_str(), certificate.c_str(), DataPath("").c_str(), out.data(), 0);
  return {code, out.c_str()};
}
Opened Open(const std::string& form, const char* password = nullptr, int verbose = 0) {
  std::string out(5001, 'x');
  const int code = Api2DeAesPriv(form.c_str(), password, DataPath("").c_str(), out.data(), verbose);
  return {code, out.c_str()};
}
// A form made with openssl.
std::string FormFor(const std::string& name, const std::string& key, const std::string& ciphertext) {
  const std::string pem = name + ".pem";
  const std::string block = RunOpenssl({"pkeyutl", "-encrypt", "-certin", "-inkey", DataPath(pem)}, key);
  return "<N>" + pem + "</N><S>" + ToBase64(block) + "</S><AED>" + ToBase64(ciphertext) + "</AED>";
}

TEST(AesUnderCertificate, OpensslOpensWhatWeSeal) {
  for (const std::string name : {"rsa1024", "rsa4096"}) {
    for (const std::size_t length : {0U, 15U, 16U, 3743U, 3744U}) {
      const Opened form = Seal(Sample(length), name + ".pem");
      ASSERT_EQ(form.first, 0);
      const std::string s = ValueOf(form.second, "S"), aed = ValueOf(form.second, "AED");
      EXPECT_EQ(form.second,
                "<AESPUB><N>" + name + ".pem</N><S>" + s + "</S><AED>" + aed + "</AED></AESPUB>");
      const std::string key =
          RunOpenssl({"pkeyutl", "-decrypt", "-inkey", DataPath(name + ".key")}, ToText(FromBase64(s)));
      const bool fits = length < 3744;  // what follows has too much Base64 for the element
      EXPECT_EQ(ToText(FromBase64(aed)), fits ? Aes256Cbc(true, Padded(Sample(length)), HexOf(key)) : "")
          << length;
      EXPECT_EQ(Open(form.second), Opened(0, fits ? Sample(length) : "")) << length;
    }
  }
  for (const char* unfit : {"ec.pem", "none.pem", "rsa1024.key", ""}) {
    EXPECT_EQ(Seal("x", unfit), Opened(hybrid::kEncrypt, "")) << unfit;
  }
}

TEST(AesUnderCertificate, OpensWhatOpensslSealsAndRefusesOddForms) {
  const std::string sealed = Aes256Cbc(true, Padded("x"), HexOf(kTextKey));
  const std::string locked = FormFor("rsa2048-protected", kTextKey, sealed);
  for (const char* password : {"a_b_c_d", "a-b=c#d"}) EXPECT_EQ(Open(locked, password), Opened(0, "x"));
  for (const char* password : {"wrong", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(Open(locked, password), Opened(hybrid::kKeyUnreadable, ""));
  }
  const std::string good = FormFor("rsa1024", kTextKey, sealed);
  ASSERT_EQ(Open(good), Opened(0, "x"));
  const auto with = [&](const std::string& tag, const std::string& value) {
    return std::string(good).replace(good.find("<" + tag + ">") + tag.size() + 2, ValueOf(good, tag).size(),
                                     value);
  };
  const Opened rows[] = {{utils::kTagMissing, ""},
                         {argument::kEmptyInput, with("N", "abc")},
                         {hybrid::kKeyUnreadable, with("N", "ec.pem")},
                         {hybrid::kKeyUnreadable, with("N", "../data/rsa1024.pem")},
                         {utils::kValueTooLong, with("N", std::string(101, 'n'))},
                         {hybrid::kDecrypt, with("S", "not Base64")},
                         {utils::kValueTooLong, with("S", std::string(5001, 'A'))},
                         {hybrid::kDecrypt, FormFor("rsa1024", kTextKey + "x", sealed)},
                         {ERR_AES_INVALID_INPUT_LENGTH, with("AED", std::string(5000, 'A'))},
                         {utils::kValueTooLong, with("AED", std::string(5001, 'A'))},
                         {0, with("AED", "not Base64")}};
  for (const auto& [code, form] : rows) EXPECT_EQ(Open(form), Opened(code, "")) << form;

  CaptureStdout();
  Open(FormFor("rsa1024", "SHORTKEY", sealed), nullptr, 1);  // prints no byte behind the key
  EXPECT_TRUE(GetCapturedStdout().ends_with("\nrsa_pkcs1_decrypt : 0\npasswordaes : SHORTKEY\n"));
}

TEST(HybridForms, DocumentedExamplesOpen) {
  const std::string page = Page("hybrid_forms.md");
  EXPECT_EQ(Aes(page.substr(page.find(kIv) - 4), kKey, 1), Opened(0, "bonjour"));
  EXPECT_EQ(Open(page.substr(page.find("<AESPUB><N>rsa1024.pem"))), Opened(0, "bonjour"));
}

// What the default means: every process draws the same keys. And what asking for the system's, or the option, changes.
TEST(DrawnKeys, AreTheSameInEveryProcessUnlessTheSystemDraws) {
  const auto distinct_keys = [](const char* program, const char* generator) {
    const char* script =
        "for i in $(seq 300); do \"$0\" $1 || exit; done | grep '^Pass char nb' | "
        "paste $(printf -- '- %.0s' $(seq 32)) | sort -u | wc -l";
    return RunProgram({"sh", "-c", script, program, generator}).out;
  };
  EXPECT_EQ(distinct_keys(KESTRUNE_KEY_DRAW_rand, ""), "1\n");
  EXPECT_EQ(distinct_keys(KESTRUNE_KEY_DRAW_rand, "system"), "300\n");
  EXPECT_EQ(distinct_keys(KESTRUNE_KEY_DRAW_system, ""), "300\n");
}

}  // namespace
}  // namespace kestrune::testing
