// The composition root: the one source that knows every class of the library. Nothing includes it.
#include "core/instance_creator.h"

#include <new>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "core/file_ref.h"
#include "core/utils.h"
#include "envelope/crypto_interface.h"
#include "keys/aes.h"
#include "keys/kestrune_key.h"
#include "keys/master_key.h"
#include "keys/message_cipher.h"
#include "sign/key_utils.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"

namespace {

template <class T>
T* Make() {
  return new (std::nothrow) T;
}

}  // namespace

TypV2FileRef* TypV2InstanceCreator::newTypV2FileRef() {
  return nullptr;
}
TypV2Utils* TypV2InstanceCreator::newTypV2Utils() {
  return Make<TypV2Utils>();
}
TypKeyUtils* TypV2InstanceCreator::newTypKeyUtils() {
  return Make<TypKeyUtils>();
}
TypApiV2Signature* TypV2InstanceCreator::newTypApiV2Signature() {
  return Make<TypApiV2Signature>();
}
TypV2KestruneKey* TypV2InstanceCreator::newTypV2KestruneKey() {
  return Make<TypV2KestruneKey>();
}
TypV2AES* TypV2InstanceCreator::newTypV2AES() {
  return Make<TypV2AES>();
}
TypV2MasterKey* TypV2InstanceCreator::newTypV2MasterKey() {
  return Make<TypV2MasterKey>();
}
TypApiV2SignatureVerify* TypV2InstanceCreator::newTypApiV2SignatureVerify() {
  return Make<TypApiV2SignatureVerify>();
}
TypV2BlockCell* TypV2InstanceCreator::newTypV2BlockCell() {
  return Make<TypV2BlockCell>();
}
TypV2CryptoInterface* TypV2InstanceCreator::newTypV2CryptoInterface() {
  return Make<TypV2CryptoInterface>();
}
TypKestruneV2* TypV2InstanceCreator::newTypKestruneV2() {
  return Make<TypKestruneV2>();
}
TypV1SimpleStruc* TypV2InstanceCreator::newTypV1SimpleStruc() {
  return Make<TypV1SimpleStruc>();
}

TypV2FileRef* TypV2InstanceCreatorUnix::newTypV2FileRef() {
  return Make<TypV2FileRefUnix>();
}
TypV2CryptoInterface* TypV2InstanceCreatorUnix::newTypV2CryptoInterface() {
  return Make<TypV2CryptoInterfaceUnix>();
}
TypKestruneV2* TypV2InstanceCreatorUnix::newTypKestruneV2() {
  return Make<TypKestruneV2Unix>();
}
