// A folder of its own for each test.
#ifndef KESTRUNE_TESTS_SUPPORT_TEMP_FOLDER_H
#define KESTRUNE_TESTS_SUPPORT_TEMP_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <string>

namespace kestrune::testing {

// A new empty folder, removed with all that is in it at the end.
class TempFolder {
 public:
  TempFolder() = default;
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  // The folder as the library wants it, with a separator at the end.
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + name; }

 private:
  static std::string New() {
    std::string name = (std::filesystem::temp_directory_path() / "kestrune-XXXXXX").string();
    return ::mkdtemp(name.data()) == nullptr ? "/no folder/" : name + "/";
  }
  std::string path_ = New();
};

}  // namespace kestrune::testing

#endif
