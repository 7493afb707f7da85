// A key folder listed, beside files that are none of its business.
#include <kestrune/kestrune.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>

#include "core/result.h"
#include "tests/support/process.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {
namespace {

using Listed = std::unique_ptr<kestrune_key_folder, decltype(&kestrune_free_key_folder)>;

Listed List(const std::string& folder, long want = kOk) {
  kestrune_key_folder* list = nullptr;
  EXPECT_EQ(kestrune_list_keys(folder.c_str(), &list), want) << folder;
  return Listed(list, kestrune_free_key_folder);
}

struct KeyFolderList : ::testing::Test, MessageFolder {
  KeyFolderList() : MessageFolder(2) {}
  // The header's numbers, and the file cut to a length.
  void WritePads(const std::string& name, Bytes file, std::size_t at, std::uint64_t number,
                 std::size_t length) {
    if (at != 0) SetNumberAt(file, at, number);
    file.resize(std::min(length, file.size()));
    WriteFile(File(name), file);
  }
  void WritePkcs8(const std::string& name, const std::vector<std::string>& words) {
    std::vector<std::string> all = {"pkcs8", "-topk8", "-in", DataPath("rsa1024.key"), "-out", File(name)};
    all.insert(all.end(), words.begin(), words.end());
    RunOpenssl(all);
  }
};

TEST_F(KeyFolderList, TellsWhatEachReaderWouldMeet) {
  const Bytes user = personal.File(), common = master.File();
  constexpr std::size_t kAll = 1 << 30;
  WritePads("a.200", user, 0, 0, kAll);
  WritePads("a.201", user, kFirstOffsetAt, 1000, kAll);
  WritePads("a.202", user, kFirstOffsetAt, NumberAt(user, kFirstPadBytesAt), kAll);
  WritePads("a.203", user, kSecondOffsetAt, NumberAt(user, kSecondPadBytesAt), kAll);
  WritePads("a.204", user, kFirstPadBytesAt, ~0ULL, kAll);
  WritePads("a.205", user, 0, 0, user.size() - 1);
  WritePads("a.206", user, 0, 0, 511);
  WritePads("Master.200", common, kCyclesAt, 3, kAll);
  WritePads("Master.201", common, kFirstPadBytesAt, 0, kAll);
  WritePads("Master.202", common, 0, 0, common.size() - 1);
  AddSigningKey("rsa1024", "b.c");
  AddSigningKey("rsa1024-protected", "p", 'a');
  WritePkcs8("des.key", {"-v1", "PBE-SHA1-3DES", "-passout", "pass:x"});
  WritePkcs8("der.key", {"-v1", "PBE-SHA1-3DES", "-passout", "pass:x", "-outform", "DER"});
  WriteFile(File("other.key"),
            Replaced(ToText(ReadFile(DataPath("rsa1024-protected.key"))), "DEK-Info: ", "DEK-Info: OTHER-"));
  WritePkcs8("plain.key", {"-nocrypt", "-outform", "DER"});
  WriteFile(File("ec.key"), ReadFile(DataPath("ec.key")));
  WriteFile(File("ec.pem"), ReadFile(DataPath("ec.pem")));
  WriteFile(File("closed.200"), user);
  WriteFile(File("Master.203"), common);
  WriteFile(File("closed.z.99.key"), ReadFile(DataPath("rsa1024.key")));
  for (const char* name : {"closed.200", "Master.203", "closed.z.99.key"}) ::chmod(File(name).c_str(), 0);
  ASSERT_EQ(::symlink("a.200", File("link.200").c_str()), 0);
  for (const char* name : {"x.199", "x.300", "x.20", ".200", "200", "x.KEY", "note.txt", ".key", ".pem"})
    WriteFile(File(name), "x");
  // Neither waited for nor looked into.
  ::mkfifo(File("fifo.200").c_str(), 0600);
  ::mkfifo(File("fifo.key").c_str(), 0600);
  ::mkdir(File("folder.pem").c_str(), 0700);
  ASSERT_EQ(::symlink("nowhere", File("gone.200").c_str()), 0);

  const bool is_root = ::geteuid() == 0;  // for whom nothing is closed
  const int generation = 1900 + std::stoi(CertificateYear());
  struct Row {
    int kind;
    const char* name;
    int year;
    char letter;
    long state;
    int protection = 0;
  };
  const std::map<std::string, Row> rows = {
      {"a.200", {KESTRUNE_PERSONAL_KEY, "a", 2000, 0, kOk}},
      {"a.201", {KESTRUNE_PERSONAL_KEY, "a", 2001, 0, kOk}},
      {"a.202", {KESTRUNE_PERSONAL_KEY, "a", 2002, 0, key::kOffset}},
      {"a.203", {KESTRUNE_PERSONAL_KEY, "a", 2003, 0, key::kOffset}},
      {"a.204", {KESTRUNE_PERSONAL_KEY, "a", 2004, 0, file::kRead}},
      {"a.205", {KESTRUNE_PERSONAL_KEY, "a", 2005, 0, file::kRead}},
      {"a.206", {KESTRUNE_PERSONAL_KEY, "a", 2006, 0, file::kRead}},
      {"link.200", {KESTRUNE_PERSONAL_KEY, "link", 2000, 0, kOk}},
      {"durand." + PersonalKeyYear(), {KESTRUNE_PERSONAL_KEY, "durand", generation, 0, kOk}},
      {"Master." + PersonalKeyYear(), {KESTRUNE_MASTER_KEY, "Master", generation, 0, kOk}},
      {"Master.200", {KESTRUNE_MASTER_KEY, "Master", 2000, 0, kOk}},
      {"Master.201", {KESTRUNE_MASTER_KEY, "Master", 2001, 0, key::kOffset}},
      {"Master.202", {KESTRUNE_MASTER_KEY, "Master", 2002, 0, file::kRead}},
      {signing_key + ".key", {KESTRUNE_SIGNING_KEY, "medecin", generation, 'z', kOk}},
      {signing_key + ".pem", {KESTRUNE_CERTIFICATE, "medecin", generation, 'z', kOk}},
      {"b.c.z." + CertificateYear() + ".key", {KESTRUNE_SIGNING_KEY, "b.c", generation, 'z', kOk}},
      {"b.c.z." + CertificateYear() + ".pem", {KESTRUNE_CERTIFICATE, "b.c", generation, 'z', kOk}},
      {"p.a." + CertificateYear() + ".key", {KESTRUNE_SIGNING_KEY, "p", generation, 'a', kOk, 1}},
      {"p.a." + CertificateYear() + ".pem", {KESTRUNE_CERTIFICATE, "p", generation, 'a', kOk}},
      {"des.key", {KESTRUNE_SIGNING_KEY, "des", 0, 0, kOk, 1}},
      {"der.key", {KESTRUNE_SIGNING_KEY, "der", 0, 0, kOk, 1}},
      {"other.key", {KESTRUNE_SIGNING_KEY, "other", 0, 0, signer::kKeyUnreadable, 2}},
      {"plain.key", {KESTRUNE_SIGNING_KEY, "plain", 0, 0, kOk}},
      {"ec.key", {KESTRUNE_SIGNING_KEY, "ec", 0, 0, signer::kKeyUnreadable}},
      {"ec.pem", {KESTRUNE_CERTIFICATE, "ec", 0, 0, verifier::kCertificate}},
      {"closed.200", {KESTRUNE_PERSONAL_KEY, "closed", 2000, 0, is_root ? kOk : file::kOpen}},
      {"Master.203", {KESTRUNE_MASTER_KEY, "Master", 2003, 0, is_root ? kOk : file::kMissing}},
      {"closed.z.99.key",
       {KESTRUNE_SIGNING_KEY, "closed", 1999, 'z', is_root ? kOk : signer::kKeyUnreadable}},
  };
  for (const std::string& folder : {path(), path().substr(0, path().size() - 1)}) {
    const Listed list = List(folder);
    ASSERT_TRUE(list && list->keys == rows.size()) << (list ? list->keys : 0);
    const kestrune_key* key = list->key;
    for (const auto& [file, row] : rows) {  // sorted by name, as the list is
      EXPECT_EQ(key->file, file);
      EXPECT_STREQ(key->name, row.name);
      EXPECT_TRUE(key->kind == row.kind && key->year == row.year && key->letter == row.letter) << file;
      EXPECT_EQ(key->state, row.state) << file;
      EXPECT_EQ(key->protection, row.protection) << file;
      if (file == "a.201") {
        EXPECT_TRUE(key->pad[0] == personal.first_pad.size() && key->pad[1] == personal.second_pad.size());
        EXPECT_TRUE(key->used[0] == 1000 && key->used[1] == 0);
      }
      EXPECT_EQ(key->turns[0], file == "Master.200" ? 3U : 0U) << file;
      ++key;
    }
  }
  for (const char* name : {"closed.200", "Master.203", "closed.z.99.key"}) ::chmod(File(name).c_str(), 0600);
}

TEST_F(KeyFolderList, Refusals) {
  kestrune_key_folder* list = nullptr;
  EXPECT_EQ(kestrune_list_keys(nullptr, &list), argument::kNoInput);
  EXPECT_EQ(kestrune_list_keys("", nullptr), argument::kNoOutput);
  EXPECT_FALSE(List(File("no"), file::kOpen));
  EXPECT_FALSE(List(Certificate(), file::kOpen));
  EXPECT_FALSE(List(std::string(256, 'x'), file::kBadName));
  EXPECT_TRUE(List(""));
  kestrune_free_key_folder(nullptr);
}

}  // namespace
}  // namespace kestrune::testing
