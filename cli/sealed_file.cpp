#include "cli/sealed_file.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <memory>

#include <kestrune/kestrune.h>
#include "blocks/block_cell.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"

namespace kestrune::cli {
namespace {

constexpr char kChecking[] = "Api2ExtractGrisFromHTTPSBlock";

// What Api2ExtractGrisFromHTTPSBlock says when the block is whole, but nothing vouches for its sender.
constexpr Result kUnsigned[] = {verifier::kNoBlock, verifier::kTagMissing,  verifier::kValueTooLong,
                                verifier::kBase64,  verifier::kCertificate, verifier::kBadSignature};

// The grey block of a transport block whose signature does not count.
CBuffer GreyBlockOf(const Content& transport, const std::string& path) {
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2BlockCell> cell(creator.newTypV2BlockCell());
  Result rc = cell.Init(&creator);
  if (rc == kOk) rc = cell->LoadFlatData(transport.data(), transport.size());
  CBuffer grey;
  if (rc == kOk) {
    rc = grey.Receive(
        [&](unsigned char** out, unsigned long long* length) { return cell->GetDataForkCopy(out, length); });
  }
  if (rc == kOk && !grey) rc = block::kNoInput;
  if (rc != kOk) throw LibraryFailure(kChecking, rc, path);
  return grey;
}

void CheckTransport(const std::string& path, const std::string& folder, SealedFile* sealed) {
  std::array<char, KESTRUNE_SIGNER_NAME_BYTES> signer{};
  const long code = sealed->grey.Receive([&](unsigned char** grey, unsigned long long* length) {
    return Api2ExtractGrisFromHTTPSBlock(sealed->file.data(), sealed->file.size(), folder.c_str(), grey,
                                         length, signer.data());
  });
  sealed->signer = signer.data();
  if (code == 0) return;
  if (std::find(std::begin(kUnsigned), std::end(kUnsigned), code) == std::end(kUnsigned)) {
    throw LibraryFailure(kChecking, code, path);
  }
  sealed->grey = GreyBlockOf(sealed->file, path);
  sealed->doubt = LibraryFailure(kChecking, code, path);
}

std::string ReadRouting(const SealedFile& sealed, const std::string& path) {
  char* xml = nullptr;
  const long code = kestrune_grey_routing(sealed.data(), sealed.size(), &xml);
  const std::unique_ptr<char, decltype(&::free)> owned(xml, ::free);
  if (code != 0) throw LibraryFailure("kestrune_grey_routing", code, path);
  return xml;
}

// "a,b" or "a, b"
std::vector<std::string> Listed(std::string_view list) {
  std::vector<std::string> names;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(','), list.size());
    std::string_view name = list.substr(0, end);
    while (!name.empty() && name.front() == ' ') name.remove_prefix(1);
    if (!name.empty()) names.emplace_back(name);
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return names;
}

std::string Decoded(std::string_view base64) {
  std::string text(base64.size(), 0);
  std::size_t length = text.size();
  if (base64.empty() ||
      base64_decode(reinterpret_cast<unsigned char*>(text.data()), &length,
                    reinterpret_cast<const unsigned char*>(base64.data()), base64.size()) != 0) {
    return {};
  }
  text.resize(length);
  return text;
}

}  // namespace

SealedFile ReadSealedFile(const std::string& path, const std::function<std::string()>& folder) {
  SealedFile sealed;
  sealed.file = ReadFile(path);
  const std::string called = NameOf(path);
  const int kind = kestrune_block_kind(sealed.file.data(), sealed.file.size());
  if (kind != KESTRUNE_TRANSPORT_BLOCK && kind != KESTRUNE_GREY_BLOCK) {
    throw Failure(Status::kNo,
                  Fill(_("{1} is neither a transport block nor a grey block."), {Printable(called)}),
                  _("kestrune inspect FILE says what it is."));
  }
  sealed.is_transport = kind == KESTRUNE_TRANSPORT_BLOCK;
  if (sealed.is_transport) CheckTransport(called, folder(), &sealed);
  sealed.routing = ReadRouting(sealed, called);
  const Routing routing(sealed.routing);
  if (sealed.is_transport && !sealed.doubt &&
      kestrune_is_sender(sealed.signer.c_str(), routing.sender.c_str()) == 0) {
    sealed.doubt = Failure(Status::kNo,
                           Fill(_("{1} says that {2} sent it, but {3} signed it."),
                                {Printable(called), Printable(routing.sender), Printable(sealed.signer)}),
                           _("Do not believe the sender; ask the two of them."));
  }
  return sealed;
}

std::string_view Element(std::string_view xml, std::string_view tag) {
  const std::string opening = Fill("<{1}>", {tag});
  const std::string closing = Fill("</{1}>", {tag});
  const std::size_t begin = xml.find(opening);
  const std::size_t end = xml.find(closing, begin == std::string_view::npos ? 0 : begin);
  if (begin == std::string_view::npos || end == std::string_view::npos) return {};
  return xml.substr(begin + opening.size(), end - begin - opening.size());
}

Routing::Routing(std::string_view xml)
    : sender(Element(xml, "F")),
      key(Element(xml, "C")),
      identifier(Element(xml, "I")),
      date(Element(xml, "TE")),
      subject(Decoded(Element(xml, "S"))),
      recipients(Listed(Element(xml, "D"))),
      copies(Listed(Element(xml, "CC"))) {}

}  // namespace kestrune::cli
