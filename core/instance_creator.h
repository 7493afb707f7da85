// The factory: every class of the library is made through it.
//
// This header only names the classes, so everybody may include it; the sources behind it know them all.
#ifndef KESTRUNE_CORE_INSTANCE_CREATOR_H
#define KESTRUNE_CORE_INSTANCE_CREATOR_H

#include "base/export.h"
#include "core/object.h"

class TypApiV2Signature;
class TypApiV2SignatureVerify;
class TypKestruneV2;
class TypKeyUtils;
class TypV1SimpleStruc;
class TypV2AES;
class TypV2BlockCell;
class TypV2CryptoInterface;
class TypV2FileRef;
class TypV2KestruneKey;
class TypV2MasterKey;
class TypV2Utils;

// Makes the platform-independent classes. It has no state. Every operation returns a new object that is
// constructed but not initialised, or null; the caller calls its `InitCreate` and, when that returned 0,
// its `Kill`, and deletes it (kestrune::Owned in core/owned.h does all three).
class KESTRUNE_API TypV2InstanceCreator : public kestrune::LibraryObject<TypV2InstanceCreator> {
 public:
  virtual TypV2FileRef* newTypV2FileRef();  // null: files exist only on a platform
  virtual TypV2Utils* newTypV2Utils();
  virtual TypKeyUtils* newTypKeyUtils();
  virtual TypApiV2Signature* newTypApiV2Signature();
  virtual TypV2KestruneKey* newTypV2KestruneKey();
  virtual TypV2AES* newTypV2AES();
  virtual TypV2MasterKey* newTypV2MasterKey();
  virtual TypApiV2SignatureVerify* newTypApiV2SignatureVerify();
  virtual TypV2BlockCell* newTypV2BlockCell();
  virtual TypV2CryptoInterface* newTypV2CryptoInterface();
  virtual TypKestruneV2* newTypKestruneV2();
  virtual TypV1SimpleStruc* newTypV1SimpleStruc();
};

// Makes the Unix subclasses where the platform matters.
class KESTRUNE_API TypV2InstanceCreatorUnix : public TypV2InstanceCreator {
 public:
  TypV2FileRef* newTypV2FileRef() override;
  TypV2CryptoInterface* newTypV2CryptoInterface() override;
  TypKestruneV2* newTypKestruneV2() override;
};

#endif
