// What the library leaves behind of secrets: every operation is made with marked ones, and neither memory that
// it freed nor the stack that it used may still hold one.
//
//   leftovers [BYTES]      BYTES: length of the attachment, 20000 if not given, at most 1000000
#include <kestrune/kestrune.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "blocks/block_cell.h"
#include "campaigns/freed_memory.h"
#include "campaigns/leftover_trial.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "keys/install_cipher.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr std::size_t kUsualAttachment = 20000;
constexpr const char* kDate = "2026-05-06 10:11:12";

using Yard = MarkedYard;

// A planted fault of each sort must be seen, and what is wiped must not.
void CheckTheWatch(const Yard& yard, Trial* trial) {
  const auto fill = [&](unsigned char* bytes) {
    std::memcpy(bytes, yard.letter.data(), 64);
    asm volatile("" : : "r"(bytes) : "memory");  // the compiler would leave out what nobody reads
  };
  const auto seen = [&](const std::function<void()>& operation) {
    return LeftoversOf(yard.marks, operation).size();
  };
  const auto expect = [&](std::size_t found, std::size_t wanted, const char* what) {
    if (found != wanted) trial->Fail(std::string("the watch saw ") + std::to_string(found) + " in " + what);
  };
  const auto plain_owner = [&] {
    CBuffer owner;
    if (owner.Allocate(100)) fill(owner.data());
  };
  const auto wiping_owner = [&] {
    SecretCBuffer owner;
    if (owner.Allocate(100)) fill(owner.data());
    SecretArray<100> array;
    fill(array.data());
  };
  const auto plain_string = [&] {
    std::string text(yard.letter.data(), 64);
    text.reserve(100);
    asm volatile("" : : "r"(text.data()) : "memory");
  };
  const auto moved_block = [&] {
    CBuffer owner;
    if (!owner.Allocate(100)) return;
    fill(owner.data());
    unsigned char* const moved = static_cast<unsigned char*>(std::realloc(owner.release(), 200));
    wipe(moved, 200);
    std::free(moved);
  };
  const auto plain_array = [&] {
    std::array<unsigned char, 32768> array;  // deep enough that what comes behind does not write over it
    fill(array.data());
  };
  expect(seen(plain_owner), 1, "a plain owner");
  expect(seen(plain_string), 2, "a plain string that grows");
  expect(seen(moved_block), 1, "a block that moves");
  expect(seen(plain_array), 1, "a plain array");
  expect(seen(wiping_owner), 0, "wiping owners");
}

std::string DecipherWith(EVP_PKEY* key, const Bytes& sealed) {
  EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new(key, nullptr);
  std::string clear(sealed.size(), 0);
  std::size_t length = clear.size();
  if (EVP_PKEY_decrypt_init(context) != 1 ||
      EVP_PKEY_decrypt(context, reinterpret_cast<unsigned char*>(clear.data()), &length, sealed.data(),
                       sealed.size()) != 1) {
    std::abort();
  }
  EVP_PKEY_CTX_free(context);
  clear.resize(length);
  return clear;
}

void SignAndVerify(const Yard& yard, Trial* trial) {
  const Text phrase(kSignerPhrase), none(""), wrong("faux"), block, answer;
  const char* const folder = yard.path().c_str();
  trial->Run("signing", kOk, [&] {
    return Api2GetSignatureXMLLight("bonjour", "protege", phrase.get(), folder, block.get());
  });
  trial->Run("signing with an open key", kOk,
             [&] { return Api2GetSignatureXMLLight("bonjour", "ouvert", none.get(), folder, block.get()); });
  trial->Run("signing with a wrong pass phrase", signer::kWrongPassword, [&] {
    return Api2GetSignatureXMLLight("bonjour", "protege", wrong.get(), folder, answer.get());
  });
  trial->Run("verifying", kOk,
             [&] { return Api2ExtractFromSignature(block.get(), folder, answer.get(), 0); });
}

void ShortTexts(Yard& yard, Trial* trial) {
  const Text hex, form, out, wrong_form("<IV></IV><AE>QUJD</AE>");
  const std::string short_file = yard.File("short"), form_file = yard.File("form"),
                    changed = yard.File("changed");
  const std::string certificate = yard.protected_name + ".pem";
  trial->Run("making a key of a pass phrase", kOk, [&] {
    return BuildHexPassword(reinterpret_cast<const unsigned char*>("a_PhraseDuLecteur"),
                            reinterpret_cast<unsigned char*>(hex.get()));
  });
  trial->Run("enciphering a text", kOk,
             [&] { return Api2Aes(yard.short_text.c_str(), yard.hex.c_str(), 0, form.get(), 0); });
  trial->Run("deciphering a text", kOk,
             [&] { return Api2Aes(form.get(), yard.hex.c_str(), 1, out.get(), 0); });
  trial->Run("deciphering a text, no noise", kOk,
             [&] { return kestrune_decipher_text(form.get(), yard.hex.c_str(), out.get()); });
  trial->Run("deciphering a text under a wrong password", hybrid::kNoText,
             [&] { return kestrune_decipher_text(form.get(), "00", out.get()); });
  TypV2InstanceCreatorUnix creator;
  TypV2AESInstallKeys cipher;
  const auto transit = [&](auto operation, const std::string& from, const std::string& to) {
    const long rc = cipher.InitCreate(&creator);
    return rc != kOk ? rc : (cipher.*operation)(from.c_str(), to.c_str(), yard.hex.c_str());
  };
  trial->Run("enciphering for installation", kOk,
             [&] { return transit(&TypV2AESInstallKeys::Chiffrerfichier, short_file, form_file); });
  trial->Run("deciphering for installation", kOk,
             [&] { return transit(&TypV2AESInstallKeys::DeChiffrerfichier, form_file, changed); });
  Bytes damaged = ReadFile(form_file);
  damaged[damaged.size() - 40] ^= 1;
  WriteFile(form_file, damaged);
  trial->Run("deciphering a damaged installation", install::kDigest,
             [&] { return transit(&TypV2AESInstallKeys::DeChiffrerfichier, form_file, changed); });
  trial->Run("deciphering a malformed text", -2064,
             [&] { return Api2Aes(wrong_form.get(), yard.hex.c_str(), 1, out.get(), 0); });
  trial->Run("enciphering a file", kOk, [&] {
    return Api2AesFile(short_file.c_str(), form_file.c_str(), yard.hex.c_str(), nullptr, 0, 0);
  });
  trial->Run("deciphering a file", kOk, [&] {
    return Api2AesFile(form_file.c_str(), changed.c_str(), yard.hex.c_str(), nullptr, 1, 0);
  });
  const auto encipher = [&] {
    return Api2AesPub(yard.short_text.c_str(), certificate.c_str(), yard.path().c_str(), form.get(), 0);
  };
  trial->LearnAndRun("enciphering for a certificate", encipher, [&] {
    const PrivateKey key = ReadPrivateKey(DataPath("rsa2048.key"));
    const std::string drawn = DecipherWith(key.get(), FromBase64(ValueOf(form.get(), "S")));
    yard.marks.push_back({"drawn key", drawn.substr(0, 16)});
    yard.marks.push_back(
        {"drawn key, hexadecimal", ToHex(reinterpret_cast<const unsigned char*>(drawn.data()), 16)});
  });
  trial->Run("deciphering with a private key", kOk,
             [&] { return Api2DeAesPriv(form.get(), kSignerPhrase, yard.path().c_str(), out.get(), 0); });
  trial->Run("deciphering with a private key, no noise", kOk, [&] {
    return kestrune_decipher_text_for_holder(form.get(), kSignerPhrase, yard.path().c_str(), out.get());
  });
}

void Messages(Yard& yard, Trial* trial) {
  const Text phrase(kSignerPhrase), identifier, routing;
  const char* const folder = yard.path().c_str();
  const std::string sealed_file = yard.File("sealed"), grey_file = yard.File("grey"),
                    text_file = yard.File("text");
  CBuffer block, grey;
  unsigned char* bytes = nullptr;
  unsigned long long length = 0;
  const auto seal = [&] {
    const long rc = Api2CrypterMem(yard.letter.c_str(), yard.attachment.c_str(), "durand", "protege",
                                   kUserPhrase, phrase.get(), folder, "a@x.example", "", "", "", "s", kDate,
                                   &bytes, &length, identifier.get(), 0);
    block.Adopt(bytes, length);
    return rc;
  };
  trial->LearnAndRun("sealing from memory", seal, [&] {
    const SealedParts parts = TakeApart(Bytes(block.data(), block.data() + block.size()), yard.pads()).green;
    yard.marks.push_back({"leading random string", ToText(parts.r1).substr(1, 12)});
    yard.marks.push_back({"trailing random string", ToText(parts.r2).substr(0, 12)});
  });
  trial->Run("sealing from files", kOk, [&] {
    return Api2Crypterfile(text_file.c_str(), yard.attachment.c_str(), "durand", "protege", yard.hex.c_str(),
                           phrase.get(), folder, "a@x.example", nullptr, nullptr, nullptr, "s", kDate,
                           nullptr, sealed_file.c_str(), identifier.get(), 0);
  });
  bytes = nullptr;
  trial->Run("taking the grey block out", kOk, [&] {
    return Api2ExtractGrisFromHTTPSBlock(block.data(), block.size(), folder, &bytes, &length, nullptr);
  });
  grey.Adopt(bytes, length);
  if (!grey) return;
  WriteFile(grey_file, Bytes(grey.data(), grey.data() + grey.size()));

  char* xml = nullptr;
  trial->Run("opening in memory", kOk,
             [&] { return Api2DecrypterGrisMem(grey.data(), grey.size(), folder, kUserPhrase, &xml); });
  SecretCBuffer().AdoptText(xml);
  TypV2BlockCell* red = nullptr;
  const auto open = [&] { return Api2DecrypterfileGris(grey_file.c_str(), folder, yard.hex.c_str(), &red); };
  trial->Run("opening a file", kOk, open);
  const Text texts;
  const std::unique_ptr<char[]> long_parts(new char[4 * ReadFile(yard.attachment).size() + kOutBytes]());
  trial->Run("taking the texts out", kOk, [&] { return GetFlatTextFromRedBlock(red, texts.get()); });
  trial->Run("taking the attachments out", kOk,
             [&] { return GetMimePJFromRedBlock(red, long_parts.get(), "boundary"); });
  kestrune_message* message = nullptr;
  trial->Run("taking a tree apart", kOk, [&] { return kestrune_take_apart(red, folder, &message); });
  trial->Run("freeing what was taken apart", kOk, [&] { return kestrune_free_message(message), 0L; });
  trial->Run("opening a message", kOk,
             [&] { return kestrune_open_message(grey.data(), grey.size(), folder, kUserPhrase, &message); });
  trial->Run("freeing a message", kOk, [&] { return kestrune_free_message(message), 0L; });
  trial->Run("listing the keys", kOk, [&] {
    kestrune_key_folder* list = nullptr;
    const long rc = kestrune_list_keys(folder, &list);
    kestrune_free_key_folder(list);
    return rc;
  });
  char* eml = nullptr;
  trial->Run("making a mail", kOk, [&] { return Api2ConvertRedBlockToEml(red, &eml); });
  SecretCBuffer().AdoptText(eml);
  trial->Run("opening a file again", kOk, open);
  trial->Run("freeing what was opened", kOk, [&] { return Api2FreeRedBlock(red); });

  // The pads end in the middle of what is read of them.
  const SealedParts parts = TakeApart(Bytes(block.data(), block.data() + block.size()), yard.pads()).green;
  const auto cut_short = [&](const std::string& name, std::uint64_t offset, Result wanted) {
    const std::string file = yard.File(name);
    const Bytes whole = ReadFile(file);
    WriteFile(file, ToText(whole).substr(0, kMasterPadAt + offset + kPadChunk));
    trial->Run("opening with " + name + " cut short", wanted, open);
    WriteFile(file, whole);
  };
  cut_short("durand." + PersonalKeyYear(), parts.run_offset, key::kOffset);
  cut_short("Master." + PersonalKeyYear(), parts.master_offset, file::kRead);
  trial->Run("opening with a wrong key", key::kCheckFailed,
             [&] { return Api2DecrypterGrisMem(grey.data(), grey.size(), folder, "faux", &xml); });
}

}  // namespace

int main(int argc, char** argv) {
  // A function that is bound when it is first called has the registers, and what they hold, put on the stack.
  if (::getenv("LD_BIND_NOW") == nullptr) {
    ::setenv("LD_BIND_NOW", "1", 1);
    ::execv("/proc/self/exe", argv);
  }
  Yard yard(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : kUsualAttachment);
  Trial trial(yard);
  CheckTheWatch(yard, &trial);
  SignAndVerify(yard, &trial);
  ShortTexts(yard, &trial);
  Messages(yard, &trial);
  OtherLeftovers(yard, &trial);
  std::printf("%d operations, %d failures\n", trial.operations(), trial.failures());
  return trial.failures() == 0 ? 0 : 1;
}
