// Fixed keys in a folder, for the targets of entry points, which take their files from nowhere else. One target, one
// source: the trap's replacement stands here.
#ifndef KESTRUNE_FUZZ_MESSAGE_FOLDER_H
#define KESTRUNE_FUZZ_MESSAGE_FOLDER_H

#include "examples/key_files.h"
#include "fuzz/short_key.h"
#include "keys/trap.h"
#include "tests/support/sealed_body.h"
#include "tests/support/temp_folder.h"

void kestrune::SleepForEver() {}

namespace kestrune::testing {

// The saved inputs name the keys of one year.
struct FuzzFolder : TempFolder {
  static constexpr char kPassPhrase[] = "a_b_c_d";
  PersonalKey personal;
  MasterKey master;
  Pads pads{personal.first_pad, personal.second_pad, master.pad};
  ShortKey key;

  FuzzFolder() {
    WriteFile(File("durand.226"), personal.File());
    WriteFile(File("Master.226"), master.File());
    key.name = "durand.z.126";
    key.WriteFiles(*this);
  }
};

}  // namespace kestrune::testing

#endif
