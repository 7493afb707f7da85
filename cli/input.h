// What is read: files, pipes, standard input, whole.
#ifndef KESTRUNE_CLI_INPUT_H
#define KESTRUNE_CLI_INPUT_H

#include <string>
#include <string_view>

#include "base/buffer.h"

namespace kestrune::cli {

// A file's bytes and a zero behind them; wiped when they go, since any of them may be clear text.
class Content {
 public:
  Content() = default;
  Content(SecretCBuffer buffer, std::size_t size) : buffer_(std::move(buffer)), size_(size) {}

  const unsigned char* data() const { return buffer_.data(); }
  const char* text() const { return buffer_.text(); }
  std::size_t size() const { return size_; }
  std::string_view view() const { return {text(), size_}; }

 private:
  SecretCBuffer buffer_;
  std::size_t size_ = 0;
};

inline constexpr char kStandard[] = "-";  // as a file name: standard input or output

// How a file is called in messages.
std::string NameOf(const std::string& path, bool is_output = false);

// For a regular file of which the system says that nothing is left though more was: throws.
void RefuseEarlyEnd(int fd, const std::string& name);

// Throws what the system says; also for a file of more than two gigabytes, which nothing here takes.
Content ReadFile(const std::string& path);
Content ReadDescriptor(int fd, const std::string& name);

}  // namespace kestrune::cli

#endif
