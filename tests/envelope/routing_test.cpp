// The routing XML and the message identifiers.
#include <cstdio>
#include <cstring>

#include "tests/envelope/envelope_folder.h"

namespace kestrune::testing {
namespace {

struct Routing : ::testing::Test, EnvelopeFolder {
  std::string Compose(const char* to, const char* cc, const char* bcc, const char* reply_to, long merge,
                      const char* ready) {
    CBuffer xml;
    const Result rc = xml.ReceiveText([&](char** text) {
      return envelope->Low_GetBasicServiceXML(text, "k1", "s1", to, cc, bcc, reply_to, "Bonjour",
                                              "2024-05-06 10:11:12", "ID", merge, ready);
    });
    return rc == kOk ? xml.text() : std::to_string(rc);
  }
};

TEST_F(Routing, EveryShapeOfTheLists) {
  const std::string head = "<M><C>k1." + PersonalKeyYear() + "</C>";
  const std::string middle = "<R>s1</R><I>ID</I><TE>2024-05-06 10:11:12</TE>";
  const std::string tail = "<S>Qm9uam91cg==</S></M>";
  const struct {
    const char *to, *cc, *bcc;
    long merge;
    const char *ready, *want;
  } rows[] = {
      {"r1", nullptr, nullptr, 0, nullptr, "<D>r1</D><CC></CC>"},
      {"a", "b", "c", 0, "", "<D>a</D><CC>b</CC>"},
      {"", nullptr, "c", 0, nullptr, "<D></D><CC></CC>"},
      {"a", "b", "c", 1, nullptr, "<D>a,b,c</D>"},
      {"", "b", "c", 1, nullptr, "<D>b,c</D>"},
      {"a", nullptr, "c", 1, nullptr, "<D>a,c</D>"},
      {"a", "b", "c", 2, nullptr, "<D>a,b"},
      {"a", "", "c", -1, nullptr, "<D>a"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Compose(row.to, row.cc, row.bcc, nullptr, row.merge, row.ready),
              head + "<F>s1</F>" + middle + row.want + tail);
  }
  EXPECT_EQ(Compose("a", "b", nullptr, nullptr, 0, "<X/>"), head + middle + "<X/>" + tail);
  EXPECT_EQ(ValueOf(Compose("a", "b", nullptr, "", 0, nullptr), "R"), "");
  EXPECT_EQ(Compose("", nullptr, "", nullptr, 0, "<X/>"), std::to_string(envelope::kNoRecipient));
  const std::string long_list(100000, 'r');
  EXPECT_EQ(Compose(long_list.c_str(), long_list.c_str(), nullptr, nullptr, 7, nullptr),
            head + "<F>s1</F>" + middle + "<D>" + long_list + "," + long_list + tail);
}

TEST_F(Routing, ThePageShowsWhatIsComposed) {
  const std::string composed = Compose("r1", nullptr, nullptr, nullptr, 0, nullptr);
  const std::string page = Replaced(Page("routing_xml.md"), ".224<", "." + PersonalKeyYear() + "<");
  EXPECT_NE(page.find(composed), std::string::npos) << composed;
}

TEST_F(Routing, Identifiers) {
  char first[kMessageIdentifierBytes], out[kMessageIdentifierBytes + 1];
  envelope->GetIDMessage(first, "medecin", "a", nullptr, nullptr, "s");
  envelope->GetIDMessage(out, "medecin", "a", nullptr, nullptr, "s");
  EXPECT_STRNE(first, out);
  EXPECT_EQ(std::string(out).find_first_not_of("0123456789ABCDEF"), std::string::npos);
  EXPECT_TRUE(std::strlen(out) > 40 && std::strlen(out) < 50) << out;

  TypV2CryptoInterface base;
  ASSERT_EQ(base.InitCreate(&unix_creator, nullptr, nullptr), kOk);
  base.SetSessionID(-5);
  base.GetIDMessage(out, "medecin", "a", nullptr, nullptr, nullptr);
  int day, second, end = 0;
  long random;
  EXPECT_EQ(std::sscanf(out, "Mmedecin[-5].%d.%d.%ld%n", &day, &second, &random, &end), 3) << out;
  EXPECT_EQ(out[end], 0);
  std::memset(out, '#', sizeof out);
  base.GetIDMessage(out, std::string(5000, 's').c_str(), "a", nullptr, nullptr, nullptr);
  EXPECT_EQ(std::strlen(out), kMessageIdentifierBytes - 1);
  EXPECT_EQ(out[kMessageIdentifierBytes], '#');
  for (TypV2CryptoInterface* either : {&base, envelope.get()}) {
    either->GetIDMessage(out, nullptr, "a", nullptr, nullptr, nullptr);
    EXPECT_STREQ(out, "");
  }
  base.Kill();
}

TEST_F(Routing, AnEnvelopeNeedsAFactoryAndFoldersOfAtMost2048) {
  const std::string most(2048, 'f'), more(2049, 'f');
  TypV2CryptoInterface base;
  EXPECT_EQ(base.InitCreate(nullptr, "", ""), envelope::kNoCreator);
  EXPECT_EQ(base.InitCreate(&unix_creator, more.c_str(), ""), envelope::kFolderTooLong);
  EXPECT_EQ(base.InitCreate(&unix_creator, nullptr, more.c_str()), envelope::kFolderTooLong);
  EXPECT_EQ(base.InitCreate(&unix_creator, most.c_str(), most.c_str()), kOk);
  base.Kill();
}

}  // namespace
}  // namespace kestrune::testing
