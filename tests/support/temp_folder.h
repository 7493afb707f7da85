// A folder of its own for each test.
#ifndef KESTRUNE_TESTS_SUPPORT_TEMP_FOLDER_H
#define KESTRUNE_TESTS_SUPPORT_TEMP_FOLDER_H

#include <string>

namespace kestrune::testing {

// A new empty folder, removed with all that is in it at the end.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  // The folder as the library wants it, with a separator at the end.
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + name; }

 private:
  std::string path_;
};

}  // namespace kestrune::testing

#endif
