# What every target of this project is compiled with; never handed on to those who link against it. Warnings are errors
# in the presets alone: another compiler has others.
add_library(kestrune_compiler INTERFACE)
target_compile_options(kestrune_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  -fstack-protector-strong -ffunction-sections -fdata-sections
  # No path of this build in what it makes: two builds in two folders give the same bytes.
  -ffile-prefix-map=${PROJECT_BINARY_DIR}/= -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_options(kestrune_compiler INTERFACE -Wl,--gc-sections -Wl,-z,relro
  # All names are bound before the first line runs: what binds one later saves the vector registers, and with them
  # a piece of the clear text that was copied last, on the stack, where nothing wipes it.
  -Wl,-z,now)

# The C library checks bounds only where it is optimised; at which level is the choice of those who already made one,
# with their flags or in their compiler.
include(CheckCXXSourceCompiles)
if(CMAKE_BUILD_TYPE)
  set(CMAKE_TRY_COMPILE_CONFIGURATION ${CMAKE_BUILD_TYPE})
endif()
set(CMAKE_REQUIRED_QUIET ON)
unset(KESTRUNE_CHOOSES_FORTIFY_SOURCE CACHE)  # the flags may be others than the last time
check_cxx_source_compiles("
#if defined(_FORTIFY_SOURCE) || !defined(__OPTIMIZE__)
#error
#endif
int main() {}" KESTRUNE_CHOOSES_FORTIFY_SOURCE)
unset(CMAKE_REQUIRED_QUIET)
unset(CMAKE_TRY_COMPILE_CONFIGURATION)
if(KESTRUNE_CHOOSES_FORTIFY_SOURCE AND NOT KESTRUNE_SANITIZE)
  target_compile_definitions(kestrune_compiler INTERFACE _FORTIFY_SOURCE=2)
endif()

if(KESTRUNE_SANITIZE)
  add_compile_options(-fsanitize=${KESTRUNE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # What the sanitizers put in makes g++ take the standard library's own variables for uninitialised.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${KESTRUNE_SANITIZE})
endif()
if(KESTRUNE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
