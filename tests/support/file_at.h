// A file behind the library's door to files.
#ifndef KESTRUNE_TESTS_SUPPORT_FILE_AT_H
#define KESTRUNE_TESTS_SUPPORT_FILE_AT_H

#include <gtest/gtest.h>

#include <string>

#include "core/file_ref.h"
#include "core/owned.h"

namespace kestrune::testing {

inline Owned<TypV2FileRef> FileAt(const std::string& path) {
  Owned<TypV2FileRef> file(new TypV2FileRefUnix);
  EXPECT_EQ(file.Init(), 0);
  EXPECT_EQ(file->SetFileName(path.c_str()), 0);
  return file;
}

}  // namespace kestrune::testing

#endif
