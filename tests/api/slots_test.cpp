// The slots of every class, in one place: other programs call operations by their place in the table.
#include <gtest/gtest.h>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/utils.h"
#include "envelope/crypto_interface.h"
#include "keys/aes.h"
#include "keys/install_cipher.h"
#include "keys/kestrune_key.h"
#include "keys/master_key.h"
#include "keys/message_cipher.h"
#include "sign/key_utils.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"
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
}

TEST(Slots, OfSigningAndVerifying) {
  using K = TypKeyUtils;
  ExpectSlots<K>(&K::InitCreate, &K::Kill, &K::GetTailleIV, &K::GetSignPrivateKey, &K::GetYearCert,
                 &K::GetYearKestruneKey, &K::GetKestruneKeyName, &K::GetTimeStamp);
  using S = TypApiV2Signature;
  ExpectSlots<S>(&S::InitCreate, &S::Kill, &S::SetPassword, &S::ZeroPassword, &S::GetSignatureXMLLight,
                 &S::LoadPrivateKey, &S::FreePrivateKey, &S::Signer, &S::SignDigestSHA512, &S::DigestSHA512);
  using V = TypApiV2SignatureVerify;
  ExpectSlots<V>(&V::InitCreate, &V::Kill, &V::DigestSHA512, &V::LoadPublicKey, &V::FreePublicKey);
}

TEST(Slots, OfKeysAndCiphers) {
  using A = TypV2AES;
  ExpectSlots<A>(&A::InitCreate, &A::Kill, &A::crypter, &A::decrypter, &A::zeroiv);
  using K = TypV2KestruneKey;
  ExpectSlots<K>(&K::InitCreate, &K::Kill, &K::SetOffsetOTPChiffrement, &K::SetOffsetOTPassword,
                 &K::GetLineaKey, &K::GetOTPassword, &K::LoadHeader, &K::WriteHeader, &K::LoadAndDecryptIV,
                 &K::DecryptageIV, &K::DecryptageAESChunk);
  using M = TypV2MasterKey;
  ExpectSlots<M>(&M::InitCreate, &M::Kill, &M::LoadHeader, &M::WriteHeader, &M::GetLineaKey,
                 &M::SetOffsetOTPChiffrement);
  using C = TypKestruneV2;
  ExpectSlots<C>(&C::InitCreate, &C::Kill, &C::SetPassword, &C::ZeroPassword, &C::Low_crypter,
                 &C::Low_decrypter, &C::LoadLinearKey, &C::loadRNstring, &C::loadRN2string);
  using I = TypV2AESInstallKeys;
  ExpectSlots<I>(&I::InitCreate, &I::Kill, &I::Chiffrerfichier, &I::DeChiffrerfichier);
}

TEST(Slots, OfBlocksAndMessages) {
  using B = TypV2BlockCell;
  ExpectSlots<B>(&B::InitCreate, &B::Kill, &B::SetData, &B::SetBlockName, &B::GetBlockName, &B::FindSubBlock,
                 &B::GetNextBlock, &B::GetSubBlock, &B::GetFlatData, &B::LoadFlatData, &B::GetDataForkCopy,
                 &B::GetXMLForkCopy, &B::GetDataForkPtr, &B::GetDataForkLen, &B::GetTextFromData,
                 &B::issuperblock, &B::GetFlatDataLen, &B::LoadFromFlatData, &B::GetDataLen,
                 &B::PushDataInPtr, &B::DisplayBlockInfoFull, &B::DisplayBlockInfo, &B::displayindent);
  using O = TypV1SimpleStruc;
  ExpectSlots<O>(&O::initCreate, &O::kill, &O::addpj, &O::addtexte, &O::GetTotalDataSize, &O::GetTypePJ);
  using E = TypV2CryptoInterface;
  ExpectSlots<E>(&E::InitCreate, &E::Kill, &E::GetV2InstanceCreator, &E::ExtractRoutageOnlyFromHTTPSBlock,
                 &E::ExtractRoutageOnlyFromGrisBlock, &E::ExtractVertFlatFromHTTPSBlock,
                 &E::DeCrypterVertFlat, &E::CrypterSigner, &E::GetLastMessageID, &E::SetSessionID,
                 &E::DeCrypterVertFlatToVert, &E::LoadRedFromUncryptedVertFlat, &E::Low_GetBasicServiceXML,
                 &E::GetBasicServiceXML, &E::GetServiceXMLRoutage, &E::GetRouge, &E::GetVert, &E::GetGris,
                 &E::GetPourHTTPS, &E::GetDF, &E::GetTailleMaxPJ, &E::GetTailleMaxDest, &E::GetIDMessage,
                 &E::GetGrisWithReadyXML);
}

TEST(Slots, PlatformsAddNone) {
  EXPECT_EQ(SlotCount<TypV2InstanceCreatorUnix>(), SlotCount<TypV2InstanceCreator>());
  EXPECT_EQ(SlotCount<TypV2FileRefUnix>(), SlotCount<TypV2FileRef>());
  EXPECT_EQ(SlotCount<TypKestruneV2Unix>(), SlotCount<TypKestruneV2>());
  EXPECT_EQ(SlotCount<TypV2CryptoInterfaceUnix>(), SlotCount<TypV2CryptoInterface>());
}

}  // namespace
}  // namespace kestrune::testing
