#include "tests/support/sealed_message.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <memory>
#include <stdexcept>

namespace kestrune::testing {

namespace {

constexpr std::size_t kHead = 24;
constexpr std::size_t kTrailer = 64;

std::uint64_t BigEndian(const unsigned char* bytes) {
  std::uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | bytes[i];
  return value;
}

std::vector<Cell> ReadChain(const unsigned char* at, const unsigned char* end) {
  std::vector<Cell> chain;
  while (at != end) {
    if (end - at < static_cast<std::ptrdiff_t>(kHead)) throw std::runtime_error("short record");
    const std::uint64_t xml = BigEndian(at + 8), second = BigEndian(at + 16);
    const unsigned char* const forks = at + kHead;
    if (xml + second > static_cast<std::uint64_t>(end - forks)) throw std::runtime_error("forks past end");
    Cell cell;
    cell.name.assign(reinterpret_cast<const char*>(at) + 3, at[2]);
    cell.xml.assign(forks, forks + xml);
    const unsigned char* const next = forks + xml + second;
    if (at[1] == 1) {
      cell.cells = ReadChain(forks + xml, next);
    } else {
      cell.data.assign(forks + xml, next);
    }
    chain.push_back(cell);
    at = next;
  }
  return chain;
}

Bytes Sha512(const unsigned char* bytes, std::size_t count) {
  Bytes digest(kTrailer);
  SHA512(bytes, count, digest.data());
  return digest;
}

}  // namespace

Cell ReadFlatTree(const Bytes& flat) {
  if (flat.size() < kTrailer) throw std::runtime_error("no trailer");
  const std::size_t end = flat.size() - kTrailer;
  if (Sha512(flat.data(), end) != Bytes(flat.begin() + static_cast<std::ptrdiff_t>(end), flat.end())) {
    throw std::runtime_error("trailer");
  }
  const std::vector<Cell> chain = ReadChain(flat.data(), flat.data() + end);
  if (chain.size() != 1) throw std::runtime_error("not one root");
  return chain[0];
}

void SealAgain(Bytes& flat) {
  flat.resize(flat.size() - kTrailer);
  const Bytes trailer = Sha512(flat.data(), flat.size());
  flat.insert(flat.end(), trailer.begin(), trailer.end());
}

Bytes FlatLeaf(const std::string& name, const std::string& xml, const Bytes& data) {
  Bytes flat(kHead);
  flat[0] = 2;
  flat[2] = static_cast<unsigned char>(name.size());
  std::copy(name.begin(), name.end(), flat.begin() + 3);
  SetNumberAt(flat, 8, xml.size());
  SetNumberAt(flat, 16, data.size());
  flat.insert(flat.end(), xml.begin(), xml.end());
  flat.insert(flat.end(), data.begin(), data.end());
  flat.resize(flat.size() + kTrailer);
  SealAgain(flat);
  return flat;
}

std::string ValueOf(const std::string& xml, const std::string& tag) {
  const std::size_t open = xml.find("<" + tag + ">");
  if (open == std::string::npos) return "";
  const std::size_t begin = open + tag.size() + 2;
  return xml.substr(begin, xml.find("</" + tag + ">", begin) - begin);
}

Bytes FromBase64(const std::string& text) {
  Bytes bytes(text.size());
  int head = 0, tail = 0;
  const std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> context(EVP_ENCODE_CTX_new(),
                                                                                EVP_ENCODE_CTX_free);
  EVP_DecodeInit(context.get());
  EVP_DecodeUpdate(context.get(), bytes.data(), &head, reinterpret_cast<const unsigned char*>(text.data()),
                   static_cast<int>(text.size()));
  EVP_DecodeFinal(context.get(), bytes.data() + head, &tail);
  bytes.resize(static_cast<std::size_t>(head + tail));
  return bytes;
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
  if (EVP_PKEY_verify_recover(context.get(), recovered.data(), &count, signature.data(), signature.size()) <=
      0)
    return false;
  recovered.resize(count);
  return recovered == Sha512(data.data(), data.size());
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
