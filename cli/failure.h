// How a command ends when it does not do what was asked.
#ifndef KESTRUNE_CLI_FAILURE_H
#define KESTRUNE_CLI_FAILURE_H

#include <exception>
#include <string>
#include <string_view>

namespace kestrune::cli {

// The program's exit status.
enum class Status : int {
  kDone = 0,
  kNo = 1,        // the answer is no: what does not hold, is damaged, is not what it should be
  kCouldNot = 2,  // no answer: usage, missing files, rights, a full disk, the deadline
};
inline Status Worst(Status a, Status b) {
  return a < b ? b : a;
}

// Thrown by whatever cannot go on; main() prints it. This program's own way: no exception crosses the library.
class Failure : public std::exception {
 public:
  // `what` is a sentence that names the file, `remedy` one that says what to do; both end in a full stop.
  Failure(Status status, std::string what, std::string remedy = {})
      : status_(status), what_(std::move(what)), remedy_(std::move(remedy)) {}

  Status status() const noexcept { return status_; }
  const char* what() const noexcept override { return what_.c_str(); }
  const std::string& remedy() const noexcept { return remedy_; }

 private:
  Status status_;
  std::string what_;
  std::string remedy_;
};

// Nobody reads standard output any more: the program ends as SIGPIPE ends others, without a word.
class NobodyReads : public std::exception {};

// What a result code of the library means from this entry point, about `subject` (a file, a key; "": none).
Failure LibraryFailure(const char* entry_point, long code, std::string_view subject);

// What the system said (errno) about a file.
Failure SystemFailure(int error, std::string_view subject);

}  // namespace kestrune::cli

#endif
