// Makes throw-away keys to try the library with. Real keys come from the service: the library makes none, and
// a message sealed with these protects nobody.
//
//   make_keys FOLDER/
//
// makes the folder, which must not exist yet, and in it, for the current year:
//   medecin.z.YEAR.key, .pem   a signing key without pass phrase, and its self-signed certificate
//   durand.YEAR                a personal key, pass phrase a_b_c_d
//   Master.YEAR                a master key
// The pads hold 4 MiB from the system's random source, of which each message uses up its own size. It stands
// by itself: c++ -std=c++20 make_keys.cpp key_files.cpp -lcrypto
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "key_files.h"

using namespace kestrune::examples;

namespace {

constexpr std::size_t kPadBytes = 4 << 20;
constexpr std::size_t kPasswordPadBytes = 64 << 10;
constexpr unsigned kModulusBits = 2048;
constexpr long kSecondsPerYear = 365L * 24 * 3600;
constexpr mode_t kForOwnerOnly = 0700;

using File = std::unique_ptr<BIO, decltype(&BIO_free)>;

bool WriteCertificate(EVP_PKEY* key, const std::string& name, const std::string& path) {
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kSecondsPerYear);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME* const subject = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), subject);
  const File file(BIO_new_file(path.c_str(), "w"), BIO_free);
  return X509_sign(certificate.get(), key, EVP_sha256()) != 0 && file &&
         PEM_write_bio_X509(file.get(), certificate.get()) == 1;
}

bool WriteSigningKey(const std::string& folder, const std::string& name) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(kModulusBits), EVP_PKEY_free);
  const File file(BIO_new_file((folder + name + ".key").c_str(), "w"), BIO_free);
  return key && file &&
         PEM_write_bio_PrivateKey_traditional(file.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
             1 &&
         WriteCertificate(key.get(), name, folder + name + ".pem");
}

bool WriteKeyFile(const std::string& path, const Bytes& content) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  return file.flush().good();
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = argc == 2 ? argv[1] : "";
  if (folder.empty()) {
    std::fprintf(stderr, "usage: make_keys FOLDER/\n");
    return 2;
  }
  if (folder.back() != '/') folder += '/';
  if (::mkdir(folder.c_str(), kForOwnerOnly) != 0) {
    std::perror(folder.c_str());
    return 1;
  }
  const std::string signing_key = "medecin.z." + CertificateYear();
  if (!WriteSigningKey(folder, signing_key)) {
    std::fprintf(stderr, "%s: no signing key could be made\n", signing_key.c_str());
    return 1;
  }
  PersonalKey personal;
  personal.first_pad = FreshPad(kPadBytes);
  personal.second_pad = FreshPad(kPasswordPadBytes);
  personal.seed = 0;
  MasterKey master;
  master.pad = FreshPad(kPadBytes);
  if (!WriteKeyFile(folder + "durand." + PersonalKeyYear(), personal.File()) ||
      !WriteKeyFile(folder + "Master." + PersonalKeyYear(), master.File())) {
    std::fprintf(stderr, "%s: a key file could not be written\n", folder.c_str());
    return 1;
  }
  std::printf("Throw-away keys for trying the library; real ones come from the service.\n");
  std::printf("%s.key, %s.pem, durand.%s (pass phrase a_b_c_d), Master.%s\n", signing_key.c_str(),
              signing_key.c_str(), PersonalKeyYear().c_str(), PersonalKeyYear().c_str());
  return 0;
}
