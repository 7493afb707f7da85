// What the library leaves behind in the thread. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_OPENSSL_ERROR_QUEUE_H
#define KESTRUNE_CRYPTO_OPENSSL_ERROR_QUEUE_H

#include <openssl/err.h>

namespace kestrune::crypto {

// Takes the errors that one operation left out of the thread's queue. Those of others, which a program that uses
// the same library may not have looked at yet, stay.
class ErrorQueue {
 public:
  ErrorQueue() { ERR_set_mark(); }
  ~ErrorQueue() { ERR_pop_to_mark(); }
  ErrorQueue(const ErrorQueue&) = delete;
  ErrorQueue& operator=(const ErrorQueue&) = delete;
};

}  // namespace kestrune::crypto

#endif
