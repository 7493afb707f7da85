# What every target of this project is compiled with; never handed on to those who link against it.
add_library(kestrune_compiler INTERFACE)
target_compile_options(kestrune_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  -fstack-protector-strong -ffunction-sections -fdata-sections
  # No path of this build in what it makes: two builds in two folders give the same bytes.
  -ffile-prefix-map=${PROJECT_BINARY_DIR}/= -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_options(kestrune_compiler INTERFACE -Wl,--gc-sections -Wl,-z,relro
  # All names are bound before the first line runs: what binds one later saves the vector registers, and with them
  # a piece of the clear text that was copied last, on the stack, where nothing wipes it.
  -Wl,-z,now)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KESTRUNE_SANITIZE)
  target_compile_definitions(kestrune_compiler INTERFACE _FORTIFY_SOURCE=2)
endif()
if(KESTRUNE_SANITIZE)
  add_compile_options(-fsanitize=${KESTRUNE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KESTRUNE_SANITIZE})
endif()
if(KESTRUNE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
