// Codes that no other test meets, each from the nearest operation that gives it.
#include <gtest/gtest.h>

#include <kestrune/kestrune.h>
#include "blocks/block_cell.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"
#include "envelope/crypto_interface.h"
#include "mail/charset.h"
#include "sign/signature_verify.h"

namespace kestrune::testing {
namespace {

TEST(Refusals, EachFromTheNearestOperation) {
  TypV2InstanceCreatorUnix creator;
  unsigned char* bytes = nullptr;
  unsigned long long length = 0;
  long long position = 0;
  char spoiled = 0, *text = nullptr;
  EXPECT_EQ(TypV2FileRef().OpenDF(0), file::kUnavailable);
  EXPECT_EQ(TypV2FileRefUnix().OpenDF(3), file::kUnknownMode);
  EXPECT_EQ(TypV2FileRefUnix().GetDF(&bytes, &length), file::kNotOpen);
  EXPECT_EQ(TypV2FileRefUnix().CloseDF(), kOk);
  EXPECT_EQ(TypV2Utils().Concatenate(nullptr, "a", 1, &position, 9), utils::kNoDestination);
  EXPECT_EQ(TypV2Utils().Concatenate(&spoiled, nullptr, 1, &position, 9), argument::kNoInput);
  EXPECT_EQ(TypV2Utils().Concatenate(&spoiled, "a", 1, nullptr, 9), argument::kNoInput);
  EXPECT_EQ(TypV2Utils().ExtractFirstPJFromMime(nullptr, 0, &bytes, nullptr), utils::kNoMimeOutput);
  EXPECT_EQ(TypApiV2SignatureVerify().VerifyXMLSignBlockAuthentificationOnly("<SIGN/>", nullptr),
            verifier::kNoNameOutput);
  EXPECT_EQ(Api2AesFile("in", "out", nullptr, nullptr, 0, 0), hybrid::kNoPassword);
  EXPECT_EQ(Api2ConvertRedBlockToEml(nullptr, &text), mail::kNoTree);
  EXPECT_EQ(TypV2CryptoInterface().GetDF(nullptr, "a", &bytes, &length, nullptr), envelope::kNoXmlOutput);
  EXPECT_EQ(TypV2CryptoInterface().Kill(), kOk);
  Owned<TypV2BlockCell> cell(creator.newTypV2BlockCell());
  ASSERT_EQ(cell.Init(&creator), kOk);
  EXPECT_EQ(cell->addsubblock(nullptr), block::kNoCell);
  EXPECT_EQ(cell->SetBlockName(nullptr), block::kNoInput);
  EXPECT_EQ(cell->GetBlockName(nullptr), block::kNoInput);
  EXPECT_EQ(kestrune_take_apart(cell.get(), "", nullptr), argument::kNoOutput);
  EXPECT_EQ(GetMimeSeparator(nullptr), argument::kNoInput);
  EXPECT_EQ(api2encodeQuotedPrintable(nullptr, 1, &text, &length), argument::kNoInput);
  EXPECT_EQ(api2encodeQuotedPrintable("a", 1, nullptr, &length), argument::kNoOutput);
  EXPECT_EQ(getHeaderMimeFromRoutXML("<M><I>x</I></M>", nullptr), argument::kNoOutput);
  long empty[] = {0};
  EXPECT_EQ(longStrEqual(nullptr, nullptr), 1);
  EXPECT_EQ(longStrEqual(nullptr, empty) + longStrEqual(empty, nullptr), 0);
  EXPECT_EQ(cell->ExportBlockAsV1Struct(nullptr), block::kNoStructure);
  // A record whose forks could not be read keeps the lengths that it announced.
  const unsigned char record[24] = {2, 0, 1, 'A', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
  unsigned long long at = 0;
  EXPECT_EQ(cell->LoadFromFlatData(nullptr, &at, 0), block::kNoInput);
  EXPECT_EQ(cell->LoadFromFlatData(record, nullptr, sizeof record), block::kNoInput);
  EXPECT_EQ(cell->PushDataInPtr(nullptr, &at, 0), block::kNoInput);
  EXPECT_EQ(cell->LoadFromFlatData(record, &at, sizeof record), block::kForkPastEnd);
  EXPECT_EQ(cell->GetFlatData(&bytes, &length, nullptr), block::kNoXml);
}

}  // namespace
}  // namespace kestrune::testing
