#include <dlfcn.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <typeinfo>

#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

TEST(Factory, MakesFilesOnAPlatformOnly) {
  TypV2InstanceCreator base;
  TypV2InstanceCreatorUnix unix_creator;
  EXPECT_EQ(base.newTypV2FileRef(), nullptr);
  // As callers from outside delete: with the plain keyword, through the base.
  TypV2FileRef* made = unix_creator.newTypV2FileRef();
  EXPECT_EQ(typeid(*made), typeid(TypV2FileRefUnix));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"  // well defined all the same: see core/object.h
  delete made;
#pragma GCC diagnostic pop
}

// A function of the C library's name in a shared library would replace it in every program that loads it.
TEST(SharedLibrary, ExportsNothingThatCollidesWithTheCLibrary) {
  std::istringstream names(RunProgram({"nm", "-D", "--defined-only", KESTRUNE_LIBRARY}).out);
  void* const c_library = ::dlopen("libc.so.6", RTLD_NOW);
  ASSERT_NE(c_library, nullptr);
  int plain = 0;
  for (std::string address, kind, name; names >> address >> kind >> name;) {
    if (name.starts_with("_Z")) continue;
    ++plain;
    EXPECT_EQ(::dlsym(c_library, name.c_str()), nullptr) << name;
  }
  EXPECT_GT(plain, 0);
  ::dlclose(c_library);
}

}  // namespace
}  // namespace kestrune::testing
