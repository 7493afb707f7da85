// Which cryptographic library answers, as it tells itself while it runs. The folder of each defines it.
#ifndef KESTRUNE_CRYPTO_RUNNING_LIBRARY_H
#define KESTRUNE_CRYPTO_RUNNING_LIBRARY_H

namespace kestrune::crypto {

// "mbed TLS 2.28.3", "OpenSSL 3.0.17". Static text.
const char* RunningLibrary();

}  // namespace kestrune::crypto

#endif
