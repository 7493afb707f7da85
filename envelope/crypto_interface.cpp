// The envelope's life, its state and its limits.
#include "envelope/crypto_interface.h"

#include <cstring>

#include "core/instance_creator.h"
#include "core/random.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr int kLargestAttachmentBytes = 1000000;
constexpr int kMostRecipients = 100;

}  // namespace

int TypV2CryptoInterface::InitCreate(TypV2InstanceCreator* creator, const char* message_key_folder,
                                     const char* signing_key_folder) {
  creator_ = creator;
  SeedRandomWithTime();
  session_ = DrawRandom();
  if (creator == nullptr) return envelope::kNoCreator;
  const char* const message_folder = message_key_folder == nullptr ? "" : message_key_folder;
  const char* const signing_folder = signing_key_folder == nullptr ? "" : signing_key_folder;
  if (!IsShorterThan(message_folder, message_key_folder_.size()) ||
      !IsShorterThan(signing_folder, signing_key_folder_.size())) {
    return envelope::kFolderTooLong;
  }
  CopyText(message_key_folder_, message_folder);
  CopyText(signing_key_folder_, signing_folder);
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  return utils_.Init();
}

int TypV2CryptoInterface::Kill() {
  utils_.Reset();
  return kOk;
}

TypV2InstanceCreator* TypV2CryptoInterface::GetV2InstanceCreator() {
  return nullptr;
}

void TypV2CryptoInterface::GetLastMessageID(char* out) {
  if (out != nullptr) std::strcpy(out, last_identifier_.data());
}

void TypV2CryptoInterface::SetSessionID(long long session) {
  session_ = session;
}

int TypV2CryptoInterface::GetTailleMaxPJ() {
  return kLargestAttachmentBytes;
}

int TypV2CryptoInterface::GetTailleMaxDest() {
  return kMostRecipients;
}
