#include <dlfcn.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <typeinfo>

#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/utils.h"
#include "sign/key_utils.h"
#include "sign/signature.h"
#include "tests/support/process.h"
#include "tests/support/slots.h"

namespace kestrune::testing {
namespace {

TEST(Slots, OfTheFoundations) {
  using F = TypV2InstanceCreator;
  ExpectSlots<F>(&F::newTypV2FileRef, &F::newTypV2Utils, &F::newTypKeyUtils, &F::newTypApiV2Signature,
                 &F::newTypV2KestruneKey, &F::newTypV2AES, &F::newTypV2MasterKey,
                 &F::newTypApiV2SignatureVerify, &F::newTypV2BlockCell, &F::newTypV2CryptoInterface,
                 &F::newTypKestruneV2, &F::newTypV1SimpleStruc);
  using R = TypV2FileRef;
  ExpectSlots<R>(&R::InitCreate, &R::Kill, &R::OpenDF, &R::GetLength, &R::SetFilePos, &R::SetEOF, &R::Read,
                 &R::Write, &R::CloseDF, &R::GetDF, &R::Exists, &R::Delete, &R::IsOpend, &R::SetFileName,
                 &R::GetFileNameWithoutPath, &R::GetFullPathFilename, &R::GetPathSeperator,
                 &R::OSToPrivateError);
  using U = TypV2Utils;
  ExpectSlots<U>(
      &U::InitCreate, &U::Kill, &U::SwapHeader, &U::ShouldSwapBytes, &U::swapapilong, &U::swapshort,
      &U::swapUnsignedapilong, &U::swapUnsignedapilong64, &U::swapapilong64, &U::apiulong64tochars,
      &U::ExtractFileSuffix, &U::FreeElementsListContent, &U::chartohex, &U::hextodec, &U::Hexadecimalise,
      &U::DeHexadecimalise, &U::possubstring, &U::possubstringsimplenocase, &U::ExtractSmallValueFromXMLLight,
      &U::ExtractFirstPJFromMime, &U::extractprefixemail, &U::extractdomainemail, &U::endwith,
      &U::isnumericsstring, &U::isKestruneDomain, &U::BuildHexPassword, &U::Concatenate, &U::Convert0Ato0D,
      &U::GetSQLDateTime, &U::GetKeyFilenameExtensionV2, &U::GetKeyFilenameExtensionV1, &U::GetCurrentYear);
  EXPECT_EQ(SlotOf(&U::GetElementsFromList), -1);
  using K = TypKeyUtils;
  ExpectSlots<K>(&K::InitCreate, &K::Kill, &K::GetTailleIV, &K::GetSignPrivateKey, &K::GetYearCert,
                 &K::GetYearKestruneKey, &K::GetKestruneKeyName, &K::GetTimeStamp);
  using S = TypApiV2Signature;
  ExpectSlots<S>(&S::InitCreate, &S::Kill, &S::SetPassword, &S::ZeroPassword, &S::GetSignatureXMLLight,
                 &S::LoadPrivateKey, &S::FreePrivateKey, &S::Signer, &S::SignDigestSHA512, &S::DigestSHA512);
  EXPECT_EQ(SlotOf(&S::Crypter), -1);
}

TEST(Factory, MakesFilesOnAPlatformOnly) {
  TypV2InstanceCreator base;
  TypV2InstanceCreatorUnix unix_creator;
  EXPECT_EQ(base.newTypV2FileRef(), nullptr);
  // As callers from outside delete: with the plain keyword, through the base.
  TypV2FileRef* made = unix_creator.newTypV2FileRef();
  EXPECT_EQ(typeid(*made), typeid(TypV2FileRefUnix));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"  // well defined all the same: see core/object.h
  delete made;
#pragma GCC diagnostic pop
}

// A function of the C library's name in a shared library would replace it in every program that loads it.
TEST(SharedLibrary, ExportsNothingThatCollidesWithTheCLibrary) {
  std::istringstream names(RunProgram({"nm", "-D", "--defined-only", KESTRUNE_LIBRARY}).out);
  void* const c_library = ::dlopen("libc.so.6", RTLD_NOW);
  ASSERT_NE(c_library, nullptr);
  int plain = 0;
  for (std::string address, kind, name; names >> address >> kind >> name;) {
    if (name.starts_with("_Z")) continue;
    ++plain;
    EXPECT_EQ(::dlsym(c_library, name.c_str()), nullptr) << name;
  }
  EXPECT_GT(plain, 0);
  ::dlclose(c_library);
}

}  // namespace
}  // namespace kestrune::testing
