#include "crypto/openssl/providers.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <atomic>
#include <cstdint>
#include <new>

namespace kestrune::crypto {
namespace {

std::atomic<const Providers*> own_providers{nullptr};

void Free(Providers* providers) {
  for (EVP_CIPHER* cipher : providers->aes_cbc) EVP_CIPHER_free(cipher);
  OSSL_LIB_CTX_free(providers->context);
  delete providers;
}

Providers* MakeProviders() {
  // Threads that are still at work when the program ends must not lose the ground under them; and the library, asked
  // for a cipher, looks for an engine that its configuration file names, own context or not.
  constexpr std::uint64_t kQuiet = OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG;
  if (OPENSSL_init_crypto(kQuiet, nullptr) != 1) return nullptr;
  auto* const providers = new (std::nothrow) Providers{};
  if (providers == nullptr) return nullptr;
  providers->context = OSSL_LIB_CTX_new();
  bool made = providers->context != nullptr;
  const char* const names[] = {"AES-128-CBC", "AES-192-CBC", "AES-256-CBC"};
  for (int i = 0; made && i < 3; ++i) {
    providers->aes_cbc[i] = EVP_CIPHER_fetch(providers->context, names[i], "provider=default");
    made = providers->aes_cbc[i] != nullptr;
  }
  if (made) return providers;
  Free(providers);
  return nullptr;
}

}  // namespace

// No lock: the threads that come first each make one, and the first to be done is everybody's.
const Providers* OwnProviders() {
  const Providers* held = own_providers.load(std::memory_order_acquire);
  if (held != nullptr) return held;
  Providers* const made = MakeProviders();
  if (made == nullptr) return nullptr;
  if (own_providers.compare_exchange_strong(held, made, std::memory_order_acq_rel)) return made;
  Free(made);
  return held;
}

}  // namespace kestrune::crypto
