// What all threads of the process share.
#ifndef KESTRUNE_BASE_SHARED_STATE_H
#define KESTRUNE_BASE_SHARED_STATE_H

namespace kestrune {

// Keeps all other threads out of the state that the library shares between them, for as long as it stands: the
// table of update locks, and the C library's calendar. fork waits for it, so a child finds that state whole
// and free. Nobody waits for anything else while he has it.
class SharedState {
 public:
  SharedState();
  SharedState(const SharedState&) = delete;
  SharedState& operator=(const SharedState&) = delete;
  ~SharedState();
};

}  // namespace kestrune

#endif
