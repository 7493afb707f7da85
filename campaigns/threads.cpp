// Threads that use the library at the same time, each with objects of its own.
//
//   threads MESSAGES
//
// Eight threads seal so many messages each with one key (at most 64: then its one-time passwords are used up),
// open them again, sign and verify, as fast as they can. At the end the second reading takes every sealed
// message apart and looks for pad bytes that were handed out twice. The thread sanitizer watches where it is
// built in.
#include <kestrune/kestrune.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "campaigns/pad_use.h"
#include "core/owned.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr unsigned kThreads = 8;
constexpr unsigned kDeadlineSeconds = 240;
constexpr std::size_t kPadChunksForAMessage = 4;  // no pad starts again

void SealAndOpen(const std::string& folder, const std::string& text, Bytes* transport) {
  CBuffer block, grey, xml;
  char id[128];
  std::string no_password = "none";
  OrStop(block.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return Api2CrypterMem(text.c_str(), "", "durand", "medecin", "a_b_c_d", no_password.data(),
                          folder.c_str(), "a@x.example", "", "", "", "s", "2026-05-06 10:11:12", bytes,
                          length, id, 0);
  }) == 0,
         "a message that cannot be sealed");
  transport->assign(block.data(), block.data() + block.size());
  OrStop(grey.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return Api2ExtractGrisFromHTTPSBlock(block.data(), block.size(), folder.c_str(), bytes, length, nullptr);
  }) == 0,
         "a message whose signature does not hold");
  OrStop(xml.ReceiveText([&](char** out) {
    return Api2DecrypterGrisMem(grey.data(), grey.size(), folder.c_str(), "a_b_c_d", out);
  }) == 0,
         "a message that does not open");
}

void SignAndVerify(const std::string& folder, const std::string& text) {
  char block[1500], answer[1100];
  std::string no_password;
  OrStop(Api2GetSignatureXMLLight(text.c_str(), "medecin", no_password.data(), folder.c_str(), block) == 0 &&
             Api2ExtractFromSignature(block, folder.c_str(), answer, 0) == 0 && ValueOf(answer, "DT") == text,
         "a signature that does not hold");
}

void CheckPads(const std::vector<Bytes>& messages, const Pads& pads) {
  PersonalUse personal;
  MasterUse master;
  for (const Bytes& message : messages) {
    const Layers layers = TakeApart(message, pads);
    personal.Add(layers.green, layers.grey.data.size());
    master.Add(layers.green, layers.grey.data.size());
  }
  OrStopIf(personal.Twice());
  OrStopIf(master.Twice());
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t each = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 6;
  ::alarm(kDeadlineSeconds);
  const MessageFolder folder(kThreads * each * kPadChunksForAMessage);
  std::vector<Bytes> messages(kThreads * each);
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::size_t i = 0; i < each; ++i) {
        const std::string text = std::to_string(thread) + " " + std::to_string(i);
        SealAndOpen(folder.path(), text, &messages[thread * each + i]);
        SignAndVerify(folder.path(), text);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  CheckPads(messages, folder.pads());
  std::printf("%u threads: %zu messages sealed, opened and verified, no pad byte twice\n", kThreads,
              messages.size());
  return 0;
}
