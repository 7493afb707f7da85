// A file that is either written whole or not left behind.
#ifndef KESTRUNE_KEYS_OUTPUT_FILE_H
#define KESTRUNE_KEYS_OUTPUT_FILE_H

#include <cstddef>

#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"

namespace kestrune {

class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() {
    if (is_open()) Discard();
  }

  // Touches no file. -99: the name is missing or too long.
  [[nodiscard]] Result Name(TypV2InstanceCreator* creator, const char* path) {
    file_ = Owned<TypV2FileRef>(creator->newTypV2FileRef());
    if (const Result rc = file_.Init(); rc != kOk) return rc;
    return file_->SetFileName(path);
  }

  // Creates or empties the file. -9: it cannot be opened; each Write then fails, and so does Finish.
  Result Open() { return file_->OpenDF(kCreateOrEmpty); }

  [[nodiscard]] Result Write(const unsigned char* bytes, std::size_t count) {
    return file_->Write(bytes, count);
  }

  // Closes the file after work that ended with `rc`; a failure, also that of closing, removes it.
  [[nodiscard]] Result Finish(Result rc) {
    if (!is_open()) return rc == kOk ? file::kWrite : rc;
    if (rc != kOk) {
      Discard();
      return rc;
    }
    rc = file_->CloseDF();
    if (rc != kOk) file_->Delete();
    return rc;
  }

 private:
  static constexpr int kCreateOrEmpty = 2;

  bool is_open() const { return file_ && file_->IsOpend() == kOk; }

  void Discard() {
    // Emptied too: where the path is a link, removing it leaves the file behind it.
    file_->SetEOF(0);
    file_->CloseDF();
    file_->Delete();
  }

  Owned<TypV2FileRef> file_;
};

}  // namespace kestrune

#endif
