#include "sign/signature.h"

#include <gtest/gtest.h>

#include <string>

#include "api/kestrune.h"
#include "tests/support/key_folder.h"

namespace kestrune::testing {
namespace {

TEST(SigningEntryPoint, NamesTheKeyFile) {
  const KeyFolder folder;
  const std::string stem = folder.AddSigningKey("rsa2048-protected", "cle");
  std::string password = "a-b=c#d";
  std::string block(2000, '\0');
  ASSERT_EQ(Api2GetSignatureXMLLight("bonjour", "cle", password.data(), folder.path().c_str(), block.data()),
            0);
  EXPECT_EQ(block.find("<SIGN><N>" + stem + "</N>\n<S>"), 0u);
}

}  // namespace
}  // namespace kestrune::testing
