#include "base/shared_state.h"

#include <pthread.h>

namespace kestrune {
namespace {

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;

void Enter() {
  ::pthread_mutex_lock(&g_mutex);
}

void Leave() {
  ::pthread_mutex_unlock(&g_mutex);
}

// As the library is loaded: later, a thread could fork while another one is at it.
[[maybe_unused]] const int g_registered = ::pthread_atfork(Enter, Leave, Leave);

}  // namespace

SharedState::SharedState() {
  Enter();
}

SharedState::~SharedState() {
  Leave();
}

}  // namespace kestrune
