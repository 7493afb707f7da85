#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace kestrune::testing {

TempFolder::TempFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "kestrune-XXXXXX").string();
  EXPECT_NE(::mkdtemp(name.data()), nullptr);
  path_ = name + "/";
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace kestrune::testing
