#include "tests/support/sealed_message.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <memory>
#include <stdexcept>

namespace kestrune::testing {

namespace {

constexpr std::size_t kHead = 24;
constexpr std::size_t kTrailer = 64;
constexpr std::size_t kMostNameBytes = 5;

}  // namespace

std::vector<Cell> ReadRecords(const Bytes& flat, std::size_t at, std::size_t end) {
  std::vector<Cell> chain;
  do {  // one is there always
    if (end - at < kHead) throw std::runtime_error("short record");
    const std::size_t xml = NumberAt(flat, at + 8), second = NumberAt(flat, at + 16), forks = at + kHead;
    if (xml > end - forks || second > end - forks - xml) throw std::runtime_error("forks past end");
    const auto text = [&](std::size_t from, std::size_t count) {
      return std::string(flat.begin() + static_cast<std::ptrdiff_t>(from),
                         flat.begin() + static_cast<std::ptrdiff_t>(from + count));
    };
    const std::size_t name = flat[at + 2];
    Cell cell{name > kMostNameBytes ? "?" : text(at + 3, name), text(forks, xml), {}, {}};
    const std::size_t next = forks + xml + second;
    if (flat[at + 1] == 1) {
      cell.cells = ReadRecords(flat, forks + xml, next);
    } else if (flat[at + 1] == 0 || second == 0) {
      cell.data = ToBytes(text(forks + xml, second));
    } else {
      throw std::runtime_error("neither leaf nor super block");
    }
    chain.push_back(cell);
    at = next;
  } while (at != end);
  return chain;
}

Cell ReadFlatTree(const Bytes& flat) {
  Bytes right = flat;
  if (flat.size() < kTrailer) throw std::runtime_error("no trailer");
  SealAgain(right);
  if (right != flat) throw std::runtime_error("trailer");
  const std::vector<Cell> chain = ReadRecords(flat, 0, flat.size() - kTrailer);
  if (chain.size() != 1) throw std::runtime_error("not one root");
  return chain[0];
}

void SealAgain(Bytes& flat) {
  flat.resize(flat.size() - kTrailer);
  flat = ToBytes(Sealed(ToText(flat)));
}

Bytes FlatLeaf(const std::string& name, const std::string& xml, const Bytes& data) {
  return ToBytes(Sealed(Record(name, 0, xml, ToText(data))));
}

bool SignatureHolds(const std::string& block, const Bytes& data, const std::string& certificate_path) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(certificate_path.c_str(), "r"), BIO_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr), X509_free);
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
      EVP_PKEY_CTX_new(X509_get0_pubkey(certificate.get()), nullptr), EVP_PKEY_CTX_free);
  const Bytes signature = FromBase64(ValueOf(block, "S"));
  Bytes recovered(1024);
  std::size_t count = recovered.size();
  EVP_PKEY_verify_recover_init(context.get());
  EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING);
  const int rc =
      EVP_PKEY_verify_recover(context.get(), recovered.data(), &count, signature.data(), signature.size());
  recovered.resize(count);
  return rc > 0 && ToText(recovered) == Sha512(ToText(data));
}

Layers TakeApart(const Bytes& transport, const Pads& pads) {
  Layers layers;
  layers.transport = ReadFlatTree(transport);
  layers.grey = ReadFlatTree(layers.transport.data);
  if (!OpenParts(layers.grey.data, pads, &layers.green)) throw std::runtime_error("green block");
  layers.kest = ReadFlatTree(layers.green.body);
  layers.red = ReadFlatTree(layers.kest.data);
  return layers;
}

MessageFolder::MessageFolder(std::size_t pad_chunks) : signing_key(AddSigningKey("rsa2048", "medecin")) {
  personal.first_pad = PadOf(pad_chunks * kPadChunk, 1);
  master.pad = PadOf(pad_chunks * kPadChunk, 4);
  WriteFile(File("Master." + PersonalKeyYear()), master.File());
  AddUser("durand");
}

void MessageFolder::AddUser(const std::string& name) const {
  WriteFile(File(name + "." + PersonalKeyYear()), personal.File());
}

}  // namespace kestrune::testing
