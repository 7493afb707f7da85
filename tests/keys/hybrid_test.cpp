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
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;
using Opened = std::pair<int, std::string>;  // code and text

const std::string kKey = "00112233445566778899AABBCCDDEEFF0123456789ABCDEF0123456789ABCDEF";
const std::string kIv = "0F0E0D0C0B0A09080706050403020100";

Opened Aes(const std::string& text, const std::string& key, int mode) {
  std::string out(text.size() * 3 / 2 + 100, 'x');
  const int code = Api2Aes(text.c_str(), key.c_str(), mode, out.data(), 0);
  return {code, out.c_str()};
}
std::string Padded(const std::string& text) {
  return text + std::string(16 - text.size() % 16, '\0');
}
std::string Base64(const std::string& bytes) {
  return Openssl({"base64", "-A"}, bytes);
}
std::string FromBase64(const std::string& text) {
  return Openssl({"base64", "-A", "-d"}, text);
}
std::string HexOf(const std::string& text) {
  return ToHex(ToBytes(text).data(), text.size());
}

std::string Element(const std::string& form, const std::string& tag) {
  const std::size_t begin = form.find("<" + tag + ">") + tag.size() + 2;
  return form.substr(begin, form.find("</" + tag + ">") - begin);
}

// A form made with openssl: the IV as it stands there, and the key and the IV that it was made with.
std::string AesForm(const std::string& iv_text, const std::string& plain, const std::string& key,
                    const std::string& iv) {
  return "<IV>" + iv_text + "</IV><AE>" + Base64(Aes256Cbc("-e", plain, key, iv)) + "</AE>";
}

TEST(AesText, AgreesWithOpensslBothWays) {
  std::set<std::string> ivs;
  for (const std::size_t length : LengthsWorthTrying()) {
    const Opened form = Aes(Sample(length), kKey, 0);
    ASSERT_EQ(form.first, 0) << length;
    const std::string iv = Element(form.second, "IV"), ae = Element(form.second, "AE");
    EXPECT_TRUE(ivs.insert(iv).second) << "drawn twice";
    EXPECT_EQ(form.second, "<IV>" + iv + "</IV><AE>" + ae + "</AE>");
    EXPECT_EQ(Aes256Cbc("-d", FromBase64(ae), kKey, iv), Padded(Sample(length))) << length;
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
              {"<AE>" + Base64(Sample(17)) + "</AE>", kKey, {ERR_AES_INVALID_INPUT_LENGTH, ""}}};
  for (const auto& row : rows) EXPECT_EQ(Aes(row.form, row.password, 1), row.result) << row.form;
  EXPECT_EQ(Aes("text", kKey, 3), Opened(0, ""));
}

TEST(AesFile, CiphersAndChangesPasswordsInPlace) {
  const TempFolder folder;
  const std::string path = folder.File("text"), other(64, '7');
  WriteFile(path, std::string("bon\njour\0 cut", 13));
  const auto run = [&](const std::string& key, const char* new_key, int mode, int verbose) {
    CaptureStdout();
    EXPECT_EQ(Api2AesFile(path.c_str(), path.c_str(), key.c_str(), new_key, mode, verbose), 0);
    return GetCapturedStdout();
  };
  EXPECT_EQ(run(kKey, nullptr, 0, 1),
            "inptextlen==13\nchiffrement aes result=0\nApi2Aes==0\noutputlen==74\n");
  const std::string printed = run(kKey, other.c_str(), 2, 0), form = ToText(ReadFile(path));
  EXPECT_EQ(printed, "in bon\njour\n" + other + "\nout  " + form + "\n");
  EXPECT_EQ(Aes(form, other, 1).second, "bon\njour");
  EXPECT_NE(Aes(form, kKey, 1).second, "bon\njour");
  EXPECT_EQ(run(other, nullptr, 2, 0), "");
  EXPECT_EQ(ToText(ReadFile(path)), "bon\njour");
}

// The draws of a file decide what the next text is enciphered with: 16 for its own IV, the result up to a drawn
// zero, all of the input, zeros at its end too.
TEST(AesFile, DrawsAsOftenAsItMust) {
  std::srand(1);
  const int drawn = DrawRandom();
  std::srand(1);
  if (drawn != std::rand()) GTEST_SKIP() << "the system draws";
  const TempFolder folder;
  const std::string in = folder.File("in"), out = folder.File("out");
  WriteFile(in, std::string(900, 'x') + std::string(5, '\0'));
  constexpr int kFormCharacters = 50 + 1216;  // around the Base64 of 912 bytes
  for (const unsigned seed : {1u, 2u, 3u}) {
    std::srand(seed);
    ASSERT_EQ(Api2AesFile(in.c_str(), out.c_str(), kKey.c_str(), nullptr, 0, 0), 0);
    const int next = std::rand();
    std::srand(seed);
    for (int i = 0; i < 16; ++i) std::rand();
    for (int i = 0; i < kFormCharacters && (std::rand() & 0xFF) != 0;) ++i;
    for (int i = 0; i < 905; ++i) std::rand();
    EXPECT_EQ(next, std::rand()) << seed;
  }
}

// The only copy: a disk that is full behind the first bytes must not take it.
TEST(AesFile, ReplacesItsInputWholeOrNotAtAll) {
  const TempFolder folder;
  const std::string path = folder.File("text"), link = folder.File("link"), twin = folder.File("twin");
  const auto files = [&] {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.insert(entry.path().filename());
    }
    return names;
  };
  const std::set<std::string> all = {"link", "text", "twin"};
  std::filesystem::create_symlink("text", link);
  for (const std::string& output : {path, link, twin}) {
    std::filesystem::remove(twin);
    WriteFile(path, "bonjour");
    std::filesystem::create_hard_link(path, twin);
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    const auto run = [&] { return Api2AesFile(path.c_str(), output.c_str(), kKey.c_str(), nullptr, 0, 0); };

    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full = {40, before.rlim_max};
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &full);
    const int refused = run();
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(refused, file::kWrite) << output;
    ASSERT_EQ(files(), all) << output;
    EXPECT_EQ(ToText(ReadFile(path)), "bonjour") << output;

    EXPECT_EQ(run(), 0) << output;
    EXPECT_EQ(files(), all);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(Aes(ToText(ReadFile(output)), kKey, 1).second, "bonjour");
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(output).permissions()), 0640u);
  }
}

TEST(AesFile, MakesClearTextsThatTheOwnerAloneReads) {
  const TempFolder folder;
  const std::string in = folder.File("in"), out = folder.File("out");
  const mode_t umask = ::umask(0);
  const std::pair<int, unsigned> rows[] = {{0, 0666}, {1, 0600}, {2, 0600}};
  for (const auto& [mode, permissions] : rows) {
    WriteFile(in, mode == 0 ? "text" : AesForm(kIv, Padded("text"), kKey, kIv));
    std::filesystem::remove(out);
    CaptureStdout();
    EXPECT_EQ(Api2AesFile(in.c_str(), out.c_str(), kKey.c_str(), kKey.c_str(), mode, 0), 0);
    GetCapturedStdout();
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(out).permissions()), permissions) << mode;
  }
  ::umask(umask);
}

TEST(AesFile, LeavesOlderOutputsAlone) {
  const TempFolder folder;
  const std::string in = folder.File("in"), out = folder.File("out");
  WriteFile(in, "bonjour");
  WriteFile(out, "older");
  const auto run = [](const std::string& from, const char* to, int mode) {
    return Api2AesFile(from.c_str(), to, "", kKey.c_str(), mode, 0);
  };
  EXPECT_EQ(run(folder.path(), out.c_str(), 0), file::kOpen);
  EXPECT_EQ(run(in, out.c_str(), 2), utils::kTagMissing);
  EXPECT_EQ(run(in, nullptr, 0), file::kBadName);
  EXPECT_EQ(run(in, "/dev/full", 0), file::kWrite);
  WriteFile(in, "");
  EXPECT_EQ(run(in, out.c_str(), 0), argument::kEmptyInput);
  EXPECT_EQ(ToText(ReadFile(out)), "older");
}

const std::string kTextKey = Sample(32);

Opened Seal(const std::string& text, const std::string& certificate) {
  std::string out(7000, 'x');
  const int code = Api2AesPub(text.c_str(), certificate.c_str(), DataPath("").c_str(), out.data(), 0);
  return {code, out.c_str()};
}
Opened Open(const std::string& form, const std::string& password = "", int verbose = 0) {
  std::string out(5001, 'x');
  const int code = Api2DeAesPriv(form.c_str(), password.c_str(), DataPath("").c_str(), out.data(), verbose);
  return {code, out.c_str()};
}
// A form made with openssl.
std::string FormFor(const std::string& name, const std::string& key, const std::string& ciphertext) {
  const std::string pem = name + ".pem";
  const std::string block = Openssl({"pkeyutl", "-encrypt", "-certin", "-inkey", DataPath(pem)}, key);
  return "<N>" + pem + "</N><S>" + Base64(block) + "</S><AED>" + Base64(ciphertext) + "</AED>";
}

TEST(AesUnderCertificate, OpensslOpensWhatWeSeal) {
  for (const std::string name : {"rsa1024", "rsa4096"}) {
    for (const std::size_t length : {0, 15, 16, 3743, 3744}) {
      const Opened form = Seal(Sample(length), name + ".pem");
      ASSERT_EQ(form.first, 0);
      const std::string s = Element(form.second, "S"), aed = Element(form.second, "AED");
      EXPECT_EQ(form.second,
                "<AESPUB><N>" + name + ".pem</N><S>" + s + "</S><AED>" + aed + "</AED></AESPUB>");
      const std::string key =
          Openssl({"pkeyutl", "-decrypt", "-inkey", DataPath(name + ".key")}, FromBase64(s));
      const bool fits = length < 3744;  // what follows has too much Base64 for the element
      EXPECT_EQ(FromBase64(aed), fits ? Aes256Cbc("-e", Padded(Sample(length)), HexOf(key)) : "") << length;
      EXPECT_EQ(Open(form.second), Opened(0, fits ? Sample(length) : "")) << length;
    }
  }
  for (const char* unfit : {"ec.pem", "none.pem", "rsa1024.key", ""}) {
    EXPECT_EQ(Seal("x", unfit), Opened(hybrid::kEncrypt, "")) << unfit;
  }
}

TEST(AesUnderCertificate, OpensWhatOpensslSealsAndRefusesOddForms) {
  const std::string sealed = Aes256Cbc("-e", Padded("x"), HexOf(kTextKey));
  const std::string locked = FormFor("rsa2048-protected", kTextKey, sealed);
  for (const char* password : {"a_b_c_d", "a-b=c#d"}) EXPECT_EQ(Open(locked, password), Opened(0, "x"));
  EXPECT_EQ(Open(locked, "wrong"), Opened(hybrid::kKeyUnreadable, ""));
  const std::string good = FormFor("rsa1024", kTextKey, sealed);
  ASSERT_EQ(Open(good), Opened(0, "x"));
  const auto with = [&](const std::string& tag, const std::string& value) {
    return std::string(good).replace(good.find("<" + tag + ">") + tag.size() + 2, Element(good, tag).size(),
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
  Open(FormFor("rsa1024", "SHORTKEY", sealed), "", 1);  // prints no byte behind the key
  EXPECT_TRUE(GetCapturedStdout().ends_with("\nrsa_pkcs1_decrypt : 0\npasswordaes : SHORTKEY\n"));
}

TEST(HybridForms, DocumentedExamplesOpen) {
  const std::string page = ToText(ReadFile(DataPath("../../docs/hybrid_forms.md")));
  EXPECT_EQ(Aes(page.substr(page.find(kIv) - 4), kKey, 1), Opened(0, "bonjour"));
  EXPECT_EQ(Open(page.substr(page.find("<AESPUB><N>rsa1024.pem"))), Opened(0, "bonjour"));
}

// What the default means: every process draws the same keys. And what the option changes.
TEST(DrawnKeys, AreTheSameInEveryProcessUnlessTheSystemDraws) {
  const auto distinct_keys = [](const char* program) {
    const char* script =
        "for i in $(seq 1000); do $0 || exit; done | grep '^Pass char nb' | "
        "paste $(printf -- '- %.0s' $(seq 32)) | sort -u | wc -l";
    return RunProgram({"sh", "-c", script, program}).out;
  };
  EXPECT_EQ(distinct_keys(KESTRUNE_KEY_DRAW_rand), "1\n");
  EXPECT_EQ(distinct_keys(KESTRUNE_KEY_DRAW_system), "1000\n");
}

}  // namespace
}  // namespace kestrune::testing
