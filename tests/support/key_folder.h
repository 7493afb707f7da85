// Key folders with signing keys of the current year.
#ifndef KESTRUNE_TESTS_SUPPORT_KEY_FOLDER_H
#define KESTRUNE_TESTS_SUPPORT_KEY_FOLDER_H

#include <string>

#include "examples/key_files.h"
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {

// A folder into which the fixed keys of tests/data are copied under names of the current year.
struct KeyFolder : TempFolder {
  // Copies tests/data/DATA.key and DATA.pem as NAME.LETTER.YEAR.key and .pem; returns NAME.LETTER.YEAR.
  std::string AddSigningKey(const std::string& data, const std::string& name, char letter = 'z') const {
    const std::string stem = name + "." + letter + "." + CertificateYear();
    for (const char* suffix : {".key", ".pem"})
      WriteFile(File(stem + suffix), ReadFile(DataPath(data + suffix)));
    return stem;
  }
};

}  // namespace kestrune::testing

#endif
