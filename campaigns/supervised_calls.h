// System calls of a child, seen by its parent before they are made: the library's, the C library's, those of a program
// that the child became.
#ifndef KESTRUNE_CAMPAIGNS_SUPERVISED_CALLS_H
#define KESTRUNE_CAMPAIGNS_SUPERVISED_CALLS_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kestrune::testing {

// A call that waits for its answer.
struct SystemCall {
  pid_t thread = 0;
  int number = 0;  // SYS_...
  std::array<std::uint64_t, 6> arguments{};
  std::uint64_t instruction = 0;  // the one behind it

  int Descriptor(int argument = 0) const {
    return static_cast<int>(arguments[static_cast<unsigned>(argument)]);
  }
  std::string Text(int argument) const;                                 // zero-terminated
  std::string Bytes(std::uint64_t address, std::uint64_t count) const;  // of the child's memory

  // Of a descriptor of the child's: the path that it stands for now, and where it is in the file.
  std::string PathOf(int descriptor) const;
  std::uint64_t PositionOf(int descriptor) const;

  // Makes a read or a write of half the bytes in the child's stead; its result.
  long MakeHalf() const;
};

// What becomes of a call.
struct Answer {
  bool is_made = true;  // as it is
  long result = 0;      // else: what the child gets, -errno for a failure
};
inline Answer Instead(long result) {
  return {false, result};
}

// For a program that cannot work where nothing is supervised; ctest takes it for a test that was left out.
inline constexpr int kLeftOut = 77;

class SupervisedChild {
 public:
  // Whether the system supervises: not where a processor is emulated for one program alone.
  static bool IsPossible();

  // Starts a child that does `work` and ends with its result; its calls of these numbers wait for Run. To be made by
  // a program without other threads.
  SupervisedChild(const std::vector<int>& numbers, const std::function<int()>& work);
  SupervisedChild(const SupervisedChild&) = delete;
  SupervisedChild& operator=(const SupervisedChild&) = delete;
  ~SupervisedChild();

  // Answers until the child and all that it started have ended; the child's status as waitpid tells it.
  int Run(const std::function<Answer(const SystemCall&)>& answer);

  pid_t process() const { return process_; }

 private:
  pid_t process_ = -1;
  int listener_ = -1;
};

}  // namespace kestrune::testing

#endif
