// SHA-512 and SHA-1 by the library's direct calls, which reach the same assembler as its providers do and need
// nothing set up. They cannot fail.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

#include "crypto/classic.h"
#include "crypto/state.h"

using kestrune::crypto::StateIn;

namespace {

SHA512_CTX* StateOf(sha4_context* context) {
  return StateIn<SHA512_CTX>(context->state);
}

SHA_CTX* StateOf(sha1_context* context) {
  return StateIn<SHA_CTX>(context->state);
}

}  // namespace

sha4_context::sha4_context() noexcept = default;
sha4_context::~sha4_context() = default;
sha1_context::sha1_context() noexcept = default;
sha1_context::~sha1_context() = default;

void sha4(const unsigned char* input, std::size_t length, unsigned char* digest, int is384) {
  sha4_context context;
  sha4_starts(&context, is384);
  sha4_update(&context, input, length);
  sha4_finish(&context, digest);
}

void sha4_starts(sha4_context* context, int is384) {
  is384 != 0 ? SHA384_Init(StateOf(context)) : SHA512_Init(StateOf(context));
}

void sha4_update(sha4_context* context, const unsigned char* input, std::size_t length) {
  SHA512_Update(StateOf(context), input, length);
}

void sha4_finish(sha4_context* context, unsigned char* digest) {
  SHA512_Final(digest, StateOf(context));  // of SHA-384 too, which the state knows
}

void sha4_clone(sha4_context* copy, const sha4_context* context) {
  *StateOf(copy) = *StateIn<SHA512_CTX>(context->state);
}

void sha1(const unsigned char* input, std::size_t length, unsigned char* digest) {
  sha1_context context;
  sha1_starts(&context);
  sha1_update(&context, input, length);
  sha1_finish(&context, digest);
}

void sha1_starts(sha1_context* context) {
  SHA1_Init(StateOf(context));
}

void sha1_update(sha1_context* context, const unsigned char* input, std::size_t length) {
  SHA1_Update(StateOf(context), input, length);
}

void sha1_finish(sha1_context* context, unsigned char* digest) {
  SHA1_Final(digest, StateOf(context));
}
