#include "api/message_call.h"

#include <new>

#include "core/file_ref.h"

namespace kestrune {

MessageCall::MessageCall() : envelope_(new (std::nothrow) TypV2CryptoInterface) {}

Result ReadWholeFile(TypV2InstanceCreator* creator, const char* path, std::size_t spare, CBuffer* content) {
  Owned<TypV2FileRef> file(creator->newTypV2FileRef());
  unsigned long long length = 0;
  Result rc = file.Init();
  if (rc == kOk) rc = file->SetFileName(path);
  if (rc == kOk) rc = file->OpenDF(kReadExisting);
  if (rc == kOk) rc = file->GetLength(&length);
  if (rc != kOk) return rc;
  if (!content->Allocate(length + spare)) return kNoObject;
  (void)file->SetFilePos(0);
  (void)file->Read(content->data(), length);
  return file->CloseDF();
}

}  // namespace kestrune
