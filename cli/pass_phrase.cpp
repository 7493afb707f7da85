#include "cli/pass_phrase.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "cli/descriptor.h"
#include "cli/ending.h"
#include "cli/failure.h"
#include "cli/input.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

// More than any key takes: the library says which is too long for what.
constexpr std::size_t kMostCharacters = 1024;

// Byte by byte, so that what follows the line is left to whoever reads next.
Secret ReadLine(int fd, const std::string& name) {
  Secret line;
  if (!line.Allocate(kMostCharacters + 1)) throw std::bad_alloc();
  std::size_t used = 0;
  char byte = 0;
  for (;;) {
    const ssize_t got = Uninterrupted([&] { return ::read(fd, &byte, 1); });
    if (got < 0) throw SystemFailure(errno, name);
    if (got == 0) RefuseEarlyEnd(fd, name);
    if (got == 0 || byte == '\n') break;
    if (used == kMostCharacters) {
      throw Failure(Status::kCouldNot, Fill(_("{1}: the pass phrase is too long."), {name}),
                    _("Its first line is the pass phrase, and nothing else."));
    }
    line.text()[used++] = byte;
  }
  ::wipe(&byte, 1);
  if (used > 0 && line.text()[used - 1] == '\r') line.text()[used - 1] = 0;
  return line;
}

// Keeps the terminal from echoing while it lives, whatever ends the program.
class NoEcho {
 public:
  explicit NoEcho(int fd) : fd_(fd) {
    if (::tcgetattr(fd, &settings_) != 0) return;
    RegisterTerminal(fd, settings_);
    termios silent = settings_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    is_silent_ = ::tcsetattr(fd, TCSAFLUSH, &silent) == 0;
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;
  ~NoEcho() {
    if (is_silent_) ::tcsetattr(fd_, TCSAFLUSH, &settings_);
    ForgetTerminal();
  }
  bool is_silent() const { return is_silent_; }

 private:
  int fd_;
  termios settings_{};
  bool is_silent_ = false;
};

void Say(int fd, const std::string& text) {
  (void)WriteAll(fd, text);
}

}  // namespace

Secret CopyOf(const Secret& secret) {
  Secret copy;
  if (!copy.Allocate(secret.size())) throw std::bad_alloc();
  std::memcpy(copy.data(), secret.data(), secret.size());
  return copy;
}

void AsInKeys(Secret& phrase) {
  for (char* c = phrase.text(); *c != 0; ++c) {
    if (std::strchr("#$&*-=@", *c) != nullptr) *c = '_';
  }
}

Secret AskSecret(const std::string& prompt, const char* remedy) {
  const Descriptor terminal = Open("/dev/tty", O_RDWR | O_NOCTTY);
  if (!terminal.is_open()) {
    throw Failure(
        Status::kCouldNot, Fill(_("{1}: there is no terminal to ask for it."), {prompt}),
        remedy != nullptr ? remedy : _("Give it with --passphrase-file FILE or --passphrase-fd NUMBER."));
  }
  const NoEcho quiet(terminal.get());
  if (!quiet.is_silent()) throw SystemFailure(errno, _("the terminal"));
  Say(terminal.get(), Fill(_("{1}: "), {prompt}));
  Secret answer = ReadLine(terminal.get(), _("the terminal"));
  Say(terminal.get(), "\n");
  return answer;
}

void PassPhraseSource::AddTo(CLI::App& command, const std::string& prefix, const std::string& whose) {
  command
      .add_option("--" + prefix + "passphrase-file", file_,
                  Fill(_("Pass phrase of {1}: the first line of FILE"), {whose}))
      ->type_name(_("FILE"));
  command
      .add_option("--" + prefix + "passphrase-fd", fd_,
                  Fill(_("Pass phrase of {1}: a line from this open descriptor"), {whose}))
      ->type_name(_("NUMBER"));
}

Secret PassPhraseSource::Read() const {
  if (file_.empty()) return ReadLine(fd_, Fill(_("descriptor {1}"), {std::to_string(fd_)}));
  if (file_ == kStandard) return ReadLine(STDIN_FILENO, NameOf(file_));
  const Descriptor file = Open(file_, O_RDONLY);
  if (!file.is_open()) throw SystemFailure(errno, file_);
  return ReadLine(file.get(), file_);
}

void PassPhrases::AddTo(CLI::App& command) {
  source_.AddTo(command, "", _("the key"));
}
void PassPhrases::AddSigningTo(CLI::App& command) {
  signing_source_.AddTo(command, "signing-", _("the signing key, where it has another"));
}

Secret PassPhrases::Of(const std::string& key) {
  if (!source_.is_given()) return AskSecret(Fill(_("Pass phrase of {1}"), {key}));
  if (!read_) read_ = source_.Read();
  return CopyOf(read_);
}

Secret PassPhrases::OfNew(const std::string& what) {
  Secret first = Of(what);
  if (!source_.is_given() && std::strcmp(first.text(), AskSecret(_("Once more")).text()) != 0) {
    throw Failure(Status::kCouldNot, _("The two are not the same."), _("Type it again."));
  }
  return first;
}

Secret PassPhrases::OfSigningKey(const std::string& key) {
  return signing_source_.is_given() ? signing_source_.Read() : Of(key);
}

}  // namespace kestrune::cli
