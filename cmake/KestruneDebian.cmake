# What Debian packages need to know before anything is placed: the architecture that the compiler builds for, which has
# a folder of its own for libraries, and Debian's programs. Whatever is missing ends the configuring: cpack itself would
# make packages without dependencies and say nothing.
find_program(KESTRUNE_DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(KESTRUNE_DPKG_ARCHITECTURE dpkg-architecture)
if(NOT KESTRUNE_DPKG_SHLIBDEPS OR NOT KESTRUNE_DPKG_ARCHITECTURE)
  message(FATAL_ERROR "Debian packages need dpkg-shlibdeps and dpkg-architecture: install dpkg-dev")
endif()
if(NOT CMAKE_LIBRARY_ARCHITECTURE)
  message(FATAL_ERROR "Debian packages need a compiler that names its multi-arch folder, as Debian's do")
endif()

execute_process(COMMAND ${KESTRUNE_DPKG_ARCHITECTURE} --force --host-type ${CMAKE_LIBRARY_ARCHITECTURE} --query DEB_HOST_ARCH
  OUTPUT_VARIABLE kestrune_debian_architecture OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT kestrune_debian_architecture)
  message(FATAL_ERROR "dpkg-architecture knows no architecture ${CMAKE_LIBRARY_ARCHITECTURE}")
endif()
set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries, for more than one architecture")

# kestrune_source_package(FILE RESULT): the source package that a file on this machine comes from, as "NAME (= VERSION)".
function(kestrune_source_package file result)
  file(REAL_PATH ${file} real_file)
  foreach(path IN ITEMS ${file} ${real_file})
    execute_process(COMMAND dpkg-query --search ${path} OUTPUT_VARIABLE owner ERROR_QUIET)
    if(owner MATCHES "^([^ ]+): ")
      execute_process(COMMAND dpkg-query --show --showformat "\${source:Package} (= \${source:Version})" ${CMAKE_MATCH_1}
        OUTPUT_VARIABLE source)
      set(${result} "${source}" PARENT_SCOPE)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "No package holds ${file}, so Built-Using cannot say what the tool embeds: "
    "configure with -DKESTRUNE_TOOL_SHARED_CRYPTO=ON")
endfunction()
