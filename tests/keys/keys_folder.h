// A folder with a personal key and the master key of the current year.
#ifndef KESTRUNE_TESTS_KEYS_KEYS_FOLDER_H
#define KESTRUNE_TESTS_KEYS_KEYS_FOLDER_H

#include <string>

#include "tests/support/key_files.h"
#include "tests/support/key_folder.h"
#include "tests/support/sealed_body.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {

struct KeysFolder : TempFolder {
  PersonalKey personal;
  MasterKey master;
  std::string personal_name = "cle." + PersonalKeyYear();
  std::string master_name = "Master." + PersonalKeyYear();

  KeysFolder() { Write(); }
  void Write() const {
    WriteFile(File(personal_name), personal.File());
    WriteFile(File(master_name), master.File());
  }
  Pads pads() const { return {personal.first_pad, personal.second_pad, master.pad}; }
  Bytes PersonalFile() const { return ReadFile(File(personal_name)); }
  Bytes MasterFile() const { return ReadFile(File(master_name)); }
};

}  // namespace kestrune::testing

#endif
