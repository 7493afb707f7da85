// Short texts under a password, from file to file.
#include <cstdio>
#include <cstring>
#include <utility>

#include <kestrune/kestrune.h>
#include "base/file_replacement.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/scrub.h"
#include "core/trace.h"
#include "keys/hybrid_text.h"
#include "keys/output_file.h"

using namespace kestrune;

namespace {

constexpr std::size_t kSpareCharacters = 2048;

// Zeros: a text of that length and its terminator.
[[nodiscard]] bool AllocateText(SecretCBuffer* text, std::size_t characters) {
  return text->Allocate(characters + 1);
}

// As much room as a form of a text of that length takes.
[[nodiscard]] bool AllocateForForm(SecretCBuffer* form, std::size_t text_length) {
  return AllocateText(form, text_length + text_length / 2 + kSpareCharacters);
}

// The whole file as a text; -8 also when it became longer meanwhile.
Result ReadText(TypV2InstanceCreator* creator, const char* path, SecretCBuffer* text,
                unsigned long long* length) {
  Owned<TypV2FileRef> input(creator->newTypV2FileRef());
  if (const Result rc = input.Init(); rc != kOk) return rc;
  if (const Result rc = input->SetFileName(path); rc != kOk) return rc;
  if (const Result rc = input->OpenDF(kReadExisting); rc != kOk) return rc;
  if (const Result rc = input->GetLength(length); rc != kOk) return rc;
  if (*length == 0) return argument::kEmptyInput;
  if (!AllocateText(text, static_cast<std::size_t>(*length))) return kNoObject;
  if (const Result rc = input->SetFilePos(0); rc != kOk) return rc;
  if (const Result rc = input->Read(text->text(), *length); rc != kOk) return rc;
  unsigned long long length_now = 0;
  if (const Result rc = input->GetLength(&length_now); rc != kOk) return rc;
  if (length_now != *length) return file::kRead;
  return input->CloseDF();
}

Result Cipher(const char* text, const char* hex_password, int mode, SecretCBuffer* result, int verbose) {
  const Result rc = Api2Aes(text, hex_password, mode, result->text(), verbose);
  TraceWhenOne(verbose).Print("Api2Aes==%d\n", rc);
  return rc;
}

// `result` holds the deciphered text, on success its form under the new password.
Result Rekey(const char* new_hex_password, SecretCBuffer* result, int verbose) {
  SecretCBuffer form;
  if (!AllocateForForm(&form, std::strlen(result->text()))) return kNoObject;
  const Result rc = Cipher(result->text(), new_hex_password, kEncipher, &form, verbose);
  if (rc != kOk) return rc;
  // Deliberate: printed whatever `verbose` is. Operators check a change of password by these lines.
  std::printf("in %s\n", result->text());
  std::printf("%s\n", new_hex_password);
  std::printf("out  %s\n", form.text());
  *result = std::move(form);
  return kOk;
}

// Onto the input itself: the old content is the only copy until the new one is safe.
Result ReplaceText(const char* path, const SecretCBuffer& text, const Trace& trace) {
  FileReplacement replacement;
  if (!replacement.Begin(path)) return file::kOpen;
  const std::size_t length = std::strlen(text.text());
  const bool written = replacement.Write(text.text(), length);
  trace.Print("outputlen==%d\n", static_cast<int>(length));
  return written && replacement.Commit() ? kOk : file::kWrite;
}

Result WriteText(OutputFile& output, const SecretCBuffer& text, const Trace& trace) {
  if (const Result rc = output.Open(); rc != kOk) return rc;
  const std::size_t length = std::strlen(text.text());
  const Result rc = output.Write(text.data(), length);
  trace.Print("outputlen==%d\n", static_cast<int>(length));
  return output.Finish(rc);
}

}  // namespace

int Api2AesFile(const char* inputPath, const char* outputPath, const char* hexPassword,
                const char* newHexPassword, int mode, int verbose) {
  return EntryPoint([&]() -> Result {
    if (inputPath == nullptr) return argument::kNoInput;
    if (hexPassword == nullptr) return hybrid::kNoPassword;
    const Trace trace = TraceWhenOne(verbose);
    TypV2InstanceCreatorUnix creator;
    SecretCBuffer input;
    const ScrubAtEnd scrub_input(input, Scrub::kAllButTerminator);
    unsigned long long length = 0;
    if (const Result rc = ReadText(&creator, inputPath, &input, &length); rc != kOk) return rc;
    trace.Print("inptextlen==%d\n", static_cast<int>(length));

    SecretCBuffer result;
    const ScrubAtEnd scrub_result(result, Scrub::kUpToDrawnZero);
    if (!AllocateForForm(&result, static_cast<std::size_t>(length))) return kNoObject;
    const int first_mode = mode == kRekey ? static_cast<int>(kDecipher) : mode;
    Result rc = Cipher(input.text(), hexPassword, first_mode, &result, verbose);
    if (rc == kOk && mode == kRekey && newHexPassword != nullptr) {
      rc = Rekey(newHexPassword, &result, verbose);
    }
    if (rc != kOk) return rc;
    OutputFile output(mode == kEncipher ? Readers::kAsUsual : Readers::kOwnerAlone);
    if (rc = output.Name(&creator, outputPath); rc != kOk) return rc;
    return IsSameFile(inputPath, outputPath) ? ReplaceText(outputPath, result, trace)
                                             : WriteText(output, result, trace);
  });
}
