#include "keys/message_cipher.h"

#include <gtest/gtest.h>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "tests/keys/keys_folder.h"

namespace kestrune::testing {
namespace {

struct CipherTest : ::testing::Test {
  KeysFolder folder;
  TypV2InstanceCreatorUnix creator;
  TypKestruneV2Unix cipher;

  void SetUp() override {
    ASSERT_EQ(cipher.InitCreate(&creator, "cle", folder.path().c_str(), folder.personal.hex_password.c_str()),
              0);
  }
  void TearDown() override { cipher.Kill(); }

  Result Seal(const Bytes& body, Bytes* sealed) {
    SecretCBuffer out;
    const Result rc = out.Receive([&](auto** bytes, auto* length) {
      return cipher.Low_crypter(body.empty() ? sealed->data() : body.data(), body.size(), bytes, length);
    });
    sealed->assign(out.span().begin(), out.span().end());
    return rc;
  }
  Result Open(const Bytes& sealed, Bytes* body) {
    SecretCBuffer out;
    const Result rc = out.Receive([&](auto** bytes, auto* length) {
      return cipher.Low_decrypter(sealed.data(), sealed.size(), folder.personal_name.c_str(),
                                  folder.personal.hex_password.c_str(), bytes, length);
    });
    body->assign(out.span().begin(), out.span().end());
    return rc;
  }
};

TEST_F(CipherTest, IsReadByTheWitnessAndReadsIt) {
  const Pads pads = folder.pads();
  for (const std::size_t length : {1, 2, 13, 100, 4096, 70000, 5, 33, 8191}) {
    const Bytes body = PadOf(length, length);
    Bytes sealed(1), opened;
    ASSERT_EQ(Seal(body, &sealed), 0);
    SealedParts parts;
    ASSERT_TRUE(OpenParts(sealed, pads, &parts));
    EXPECT_EQ(parts.body, body);
    ASSERT_EQ(Open(sealed, &opened), 0);
    EXPECT_EQ(opened, body);
    parts = PartsOf(body, 15 + length % 44);
    parts.password_offset = 64;
    parts.run_offset = 60000;
    parts.master_offset = 4099;
    ASSERT_EQ(Open(SealParts(parts, pads), &opened), 0);
    EXPECT_EQ(opened, body);
  }
}

}  // namespace
}  // namespace kestrune::testing
