// Work that may never end, or end badly: done in a process of its own, under a deadline.
#ifndef KESTRUNE_CLI_APART_H
#define KESTRUNE_CLI_APART_H

#include <chrono>
#include <functional>
#include <string_view>

#include "base/buffer.h"
#include "cli/descriptor.h"

namespace kestrune::cli {

// Bytes in memory that two processes share and no disk sees; wiped when they go.
class SharedBytes {
 public:
  SharedBytes() = default;
  explicit SharedBytes(Descriptor memory);  // maps what is in it; throws where that fails
  SharedBytes(SharedBytes&& other) noexcept;
  SharedBytes& operator=(SharedBytes&& other) noexcept;
  ~SharedBytes();

  std::string_view view() const { return {static_cast<const char*>(bytes_), size_}; }

 private:
  Descriptor memory_;
  void* bytes_ = nullptr;
  std::size_t size_ = 0;
};

// Memory for SharedBytes, and writing to it.
Descriptor MakeSharedMemory();
void WriteShared(int memory, std::string_view bytes);

// The descriptors of the process apart, beside standard error: the secret, what it is to tell how far it is (a
// byte for each step), the task, the answer.
inline constexpr int kSecretDescriptor = 0;
inline constexpr int kStepDescriptor = 1;
inline constexpr int kTaskDescriptor = 3;
inline constexpr int kAnswerDescriptor = 4;
inline constexpr char kApartWord[] = "--apart";  // how that process is started; no user ever types it

enum class Ending { kDone, kTooLate, kDied };

// Starts this program again with kApartWord and waits for its end. `on_step` hears each step. The answer is empty but
// for kDone.
Ending RunApart(const Descriptor& task, std::string_view secret, std::chrono::seconds deadline,
                const std::function<void(int)>& on_step, SharedBytes* answer);

}  // namespace kestrune::cli

#endif
