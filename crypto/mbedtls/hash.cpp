// SHA-512 and SHA-1 behind the classic names.
//
// The library's calls can only fail in builds with an accelerator that is not there; the classic interface
// has no result to report that with, and a digest that is not one must not be used: the program ends.
#include <cstdlib>

#include "crypto/classic.h"
#include "crypto/mbedtls/version.h"
#include "crypto/state.h"

using kestrune::crypto::StateIn;
using namespace kestrune::crypto::mbedtls;

namespace {

void OrEnd(int library_error) {
  if (library_error != 0) std::abort();
}

mbedtls_sha512_context* StateOf(sha4_context* context) {
  return StateIn<mbedtls_sha512_context>(context->state);
}

mbedtls_sha1_context* StateOf(sha1_context* context) {
  return StateIn<mbedtls_sha1_context>(context->state);
}

}  // namespace

sha4_context::sha4_context() noexcept {
  mbedtls_sha512_init(StateOf(this));
}
sha4_context::~sha4_context() = default;

sha1_context::sha1_context() noexcept {
  mbedtls_sha1_init(StateOf(this));
}
sha1_context::~sha1_context() = default;

void sha4(const unsigned char* input, std::size_t length, unsigned char* digest, int is384) {
  OrEnd(Sha512(input, length, digest, is384));
}

void sha4_starts(sha4_context* context, int is384) {
  OrEnd(Sha512Starts(StateOf(context), is384));
}

void sha4_update(sha4_context* context, const unsigned char* input, std::size_t length) {
  OrEnd(Sha512Update(StateOf(context), input, length));
}

void sha4_finish(sha4_context* context, unsigned char* digest) {
  OrEnd(Sha512Finish(StateOf(context), digest));
}

void sha4_clone(sha4_context* copy, const sha4_context* context) {
  mbedtls_sha512_clone(StateOf(copy), StateIn<mbedtls_sha512_context>(context->state));
}

void sha1(const unsigned char* input, std::size_t length, unsigned char* digest) {
  OrEnd(Sha1(input, length, digest));
}

void sha1_starts(sha1_context* context) {
  OrEnd(Sha1Starts(StateOf(context)));
}

void sha1_update(sha1_context* context, const unsigned char* input, std::size_t length) {
  OrEnd(Sha1Update(StateOf(context), input, length));
}

void sha1_finish(sha1_context* context, unsigned char* digest) {
  OrEnd(Sha1Finish(StateOf(context), digest));
}
