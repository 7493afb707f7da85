// kestrune keys pack, unpack: key files for transit and back.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "cli/console.h"
#include "cli/file_kind.h"
#include "cli/keys.h"
#include "cli/memory_file.h"
#include "cli/output.h"
#include "cli/pass_phrase.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "keys/install_cipher.h"

namespace kestrune::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHexCharacters = 64;
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

struct Options {
  std::string file, output, transport_key_file;
  bool force = false;
};

using Operation = int (TypV2AESInstallKeys::*)(const char*, const char*, const char*);

Secret TransportKey(const std::string& file) {
  Secret key;
  if (file.empty()) {
    key = AskSecret(_("Transport key (64 hexadecimal characters)"),
                    _("Give it with --transport-key-file FILE."));
  } else {
    const Content content = ReadFile(file);
    const std::size_t end = std::min(content.view().find_first_of("\r\n"), content.size());
    if (!key.Allocate(end + 1)) throw std::bad_alloc();
    std::memcpy(key.data(), content.data(), end);
  }
  const std::size_t characters = std::strlen(key.text());
  if (characters != kHexCharacters || std::strspn(key.text(), kHexDigits) != characters) {
    throw Failure(Status::kCouldNot,
                  Fill(_("{1}: a transport key is 64 hexadecimal characters in one line; here there are {2} "
                         "characters."),
                       {file.empty() ? _("the terminal") : Printable(file), std::to_string(characters)}),
                  _("This makes one: (umask 077; openssl rand -hex 32 >transport.key)"));
  }
  return key;
}

// What becomes of the file, in memory: neither a clear key nor half a file is on a disk at any time.
Content Crypt(Operation operation, const char* entry_point, const std::string& path, const Secret& key) {
  const Descriptor input = Open(path, O_RDONLY | O_NONBLOCK);
  if (!input.is_open()) throw SystemFailure(errno, path);
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2AESInstallKeys> cipher(new TypV2AESInstallKeys);
  const MemoryFile result;
  Result rc = cipher.Init(&creator);
  if (rc == kOk)
    rc = (cipher.operator->()->*operation)(PathOf(input).c_str(), result.path().c_str(), key.text());
  if (rc != kOk) throw LibraryFailure(entry_point, rc, path);
  return result.Read();
}

Status Pack(const Options& options) {
  const FileKind kind = KindOfFile(options.file);
  if (!kind.is_key()) {
    throw Failure(Status::kNo, Fill(_("{1} is no key file."), {Printable(options.file)}),
                  _("Name a personal key, a master key or a signing key."));
  }
  Manner manner;
  manner.is_secret = manner.is_binary = true;
  manner.force = options.force;
  Output output(options.output, manner);
  const Secret key = TransportKey(options.transport_key_file);
  Progress progress;
  progress.Step(Fill(_("Packing {1}"), {Printable(options.file)}));
  const Content packed =
      Crypt(&TypV2AESInstallKeys::Chiffrerfichier, "TypV2AESInstallKeys", options.file, key);
  output.Write(packed.view());
  output.Commit();
  return Status::kDone;
}

// The name that the key has in its folder: the packed file's, or that without its last suffix.
std::string KeyNameOf(const std::string& file) {
  for (const fs::path& name : {fs::path(file).filename(), fs::path(file).stem()}) {
    if (IsKeyName(name)) return name;
  }
  throw Failure(Status::kCouldNot,
                Fill(_("{1}: how the key is to be called cannot be told from that name."), {Printable(file)}),
                _("Say so: -o KEYFILE, as in -o keys/durand.226."));
}

Status Unpack(const Options& options, const Program& program) {
  const std::string target =
      options.output.empty() ? program.KeyFolder() + KeyNameOf(options.file) : options.output;
  Manner manner;
  manner.is_secret = manner.is_binary = manner.must_be_new = true;
  manner.force = options.force;
  Output output(target, manner);
  const Secret key = TransportKey(options.transport_key_file);
  Progress progress;
  progress.Step(Fill(_("Unpacking {1}"), {Printable(options.file)}));
  const Content content =
      Crypt(&TypV2AESInstallKeys::DeChiffrerfichier, "TypV2AESInstallKeys", options.file, key);
  const FileKind kind = KindOfContent(content.view(), target);
  if (!kind.is_key() && !options.force) {
    throw Failure(Status::kNo, Fill(_("{1}: what was packed is no key file."), {Printable(options.file)}),
                  _("It is written nevertheless with --force."));
  }
  // The blanks that filled it up are not the key's.
  output.Write(content.view().substr(
      0, static_cast<std::size_t>(std::min<unsigned long long>(kind.bytes, content.size()))));
  output.Commit();
  if (target != kStandard) Note(Fill(_("The key is in {1}"), {Printable(target)}));
  return Status::kDone;
}

void AddTransportKey(CLI::App& command, Options& options) {
  command
      .add_option(
          "--transport-key-file", options.transport_key_file,
          _("Transport key: 64 hexadecimal characters, the first line of FILE; without it, it is asked for"))
      ->type_name(_("FILE"));
}

}  // namespace

void AddKeysPack(Program& program, CLI::App& keys) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.Add(
      "pack", _("Enciphers a key file for transit, under a transport key"),
      "  (umask 077; openssl rand -hex 32 >transport.key)\n"
      "  kestrune keys pack keys/durand.226 -o durand.226.packed --transport-key-file transport.key",
      [options] { return Pack(*options); }, &keys);
  command.add_option("keyfile", options->file, _("Key file, as it lies in a key folder"))
      ->type_name(_("KEYFILE"))
      ->required();
  command.add_option("-o,--output", options->output, _("Where it goes; - is standard output"))
      ->type_name(_("FILE"))
      ->required();
  AddTransportKey(command, *options);
  command.add_flag("--force", options->force, _("Also to a terminal"));
}

void AddKeysUnpack(Program& program, CLI::App& keys) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.Add(
      "unpack", _("Puts a packed key file into the key folder, never over one that is there"),
      "  kestrune keys unpack durand.226.packed --transport-key-file transport.key",
      [options, &program] { return Unpack(*options, program); }, &keys);
  command
      .add_option("file", options->file, _("Packed file; its name without the last suffix becomes the key's"))
      ->type_name(_("FILE"))
      ->required();
  command.add_option("-o,--output", options->output, _("Another place and name"))->type_name(_("KEYFILE"));
  AddTransportKey(command, *options);
  command.add_flag("--force", options->force, _("Also over a key in use"));
}

}  // namespace kestrune::cli
