// The entry points that look at a block without opening it.
#include <array>
#include <cstdio>

#include <kestrune/kestrune.h>
#include "api/message_call.h"
#include "blocks/block_cell.h"
#include "blocks/flat_name.h"
#include "core/entry_point.h"
#include "core/scrub.h"
#include "core/trace.h"
#include "envelope/lent_tree.h"

using namespace kestrune;

namespace {

static_assert(KESTRUNE_SIGNER_NAME_BYTES == kSignerNameBytes);

void PrintResult(const CBuffer& routing) {
  std::printf("<RESULT>");
  if (routing) std::printf("%s", routing.text());
  std::printf("</RESULT>");
}

}  // namespace

int kestrune_block_kind(const unsigned char* block, unsigned long long length) {
  const std::string_view name = NameOfFlatTree(block, length);
  if (name == "AUTH") return KESTRUNE_TRANSPORT_BLOCK;
  return name == "DATA" ? KESTRUNE_GREY_BLOCK : 0;
}

long kestrune_grey_routing(const unsigned char* grey, unsigned long long length, char** xml) {
  if (xml != nullptr) *xml = nullptr;
  if (grey == nullptr) return argument::kNoInput;
  if (xml == nullptr) return argument::kNoOutput;
  return EntryPoint([&]() -> long {
    TypV2InstanceCreatorUnix creator;
    Owned<TypV2BlockCell> cell;
    CBuffer routing;
    Result rc = LoadLentTree(&creator, grey, length, &cell);
    // The "routing" of any other block would be its signature, or whatever stands there.
    if (rc == kOk && kestrune_block_kind(grey, length) != KESTRUNE_GREY_BLOCK) rc = envelope::kNoInput;
    if (rc == kOk) rc = routing.ReceiveText([&](char** text) { return cell->GetXMLForkCopy(text); });
    if (rc != kOk) return rc;
    if (!routing && !routing.Allocate(1)) return kNoObject;
    *xml = routing.release_text();
    return kOk;
  });
}

long Api2ExtractGrisFromHTTPSBlock(const unsigned char* block, unsigned long long length, const char* folder,
                                   unsigned char** grey, unsigned long long* greyLength, char* signer) {
  if (grey != nullptr) *grey = nullptr;
  if (greyLength != nullptr) *greyLength = 0;
  if (signer != nullptr) *signer = 0;
  if (block == nullptr) return argument::kNoInput;
  if (length == 0) return argument::kEmptyInput;
  if (folder == nullptr) return argument::kNoInput;
  if (grey == nullptr) return argument::kNoOutput;
  if (greyLength == nullptr) return argument::kNoLengthOutput;
  return EntryPoint([&]() -> long {
    MessageCall call;
    if (const Result rc = call.Init(folder); rc != kOk) return rc;
    return call.envelope()->ExtractGrisFromHTTPSBlock(block, length, grey, greyLength, signer);
  });
}

long Api2ExtractRoutageOnlyFromHTTPSBlock(const char* blockFile, const void* /*unused*/, const char* folder,
                                          long printResult, long verbose) {
  return EntryPoint([&]() -> long {
    const Trace trace = TraceWhenOne(verbose);
    MessageCall call;
    if (!call.is_made()) return message::kNothingDone;
    Result rc = call.Init(folder);
    if (rc != kOk) return rc;
    CBuffer block;
    const ScrubAtEnd scrub(block, Scrub::kAll);
    CBuffer routing, signature;
    std::array<char, kKeyReferenceBytes> key_reference{};
    std::array<char, kSignerNameBytes> signer{};
    rc = ReadWholeFile(call.creator(), blockFile, 0, &block);
    if (block) trace.Print("inptextlen==%d\n", static_cast<int>(block.size()));
    if (rc == kOk) {
      char* routing_text = nullptr;
      char* signature_text = nullptr;
      rc = call.envelope()->ExtractRoutageOnlyFromHTTPSBlock(
          block.data(), block.size(), &routing_text, key_reference.data(), signer.data(), &signature_text);
      routing.AdoptText(routing_text);
      signature.AdoptText(signature_text);
    }
    trace.Print("ExtractRoutageOnlyFromHTTPSBlock : %d\n", rc);
    std::printf("<ERRCODE>%d</ERRCODE>", rc);
    if (rc == kOk) {
      trace.Print("xmloutput : %s\n", Shown(routing.text()));
      trace.Print("usernamekeyfilechiffrement : %s\n", key_reference.data());
      trace.Print("foundsignname : %s\n", signer.data());
      if (printResult != 0) PrintResult(routing);
    } else if (signature) {
      trace.Print("signatureblanc : %s\n", signature.text());
    }
    if (signature) std::printf("<SIGNATUREBLANC>%s</SIGNATUREBLANC>", signature.text());
    return rc;
  });
}

long Api2ExtractRoutageOnlyFromGrisBlock(const char* greyFile, const void* /*unused*/, char** xml,
                                         long printResult, long verbose) {
  if (xml != nullptr) *xml = nullptr;
  return EntryPoint([&]() -> long {
    const Trace trace = TraceWhenOne(verbose);
    MessageCall call;
    if (!call.is_made()) return message::kNothingDone;
    Result rc = call.Init("");
    if (rc != kOk) return rc;
    CBuffer grey;
    const ScrubAtEnd scrub(grey, Scrub::kAll);
    CBuffer routing;
    rc = ReadWholeFile(call.creator(), greyFile, 0, &grey);
    if (grey) trace.Print("inptextlen==%d\n", static_cast<int>(grey.size()));
    if (rc == kOk) {
      rc = routing.ReceiveText([&](char** text) {
        return call.envelope()->ExtractRoutageOnlyFromGrisBlock(grey.data(), grey.size(), text);
      });
    }
    trace.Print("ExtractRoutageOnlyFromGrisBlock : %d\n", rc);
    std::printf("<ERRCODE>%d</ERRCODE>", rc);
    if (rc == kOk) {
      trace.Print("xmloutput : %s\n", Shown(routing.text()));
      if (printResult != 0) PrintResult(routing);
      if (xml != nullptr) *xml = routing.release_text();
    }
    return rc;
  });
}
