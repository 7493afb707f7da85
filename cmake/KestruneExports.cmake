# The shared library exports exactly the names of exported_names.txt (sorted with LC_ALL=C, as `nm -DC` shows
# them). Classes are marked as a whole; what is private in them has no business outside, so that it can change
# without anybody noticing.
set(export_list ${PROJECT_SOURCE_DIR}/cmake/exported_names.txt)
set(export_map ${PROJECT_BINARY_DIR}/generated/kestrune.map)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${export_list})

file(STRINGS ${export_list} c_names REGEX "^[A-Za-z0-9_]+$")
file(STRINGS ${export_list} cxx_names REGEX "[^A-Za-z0-9_]")
list(TRANSFORM c_names REPLACE "(.+)" "    \\1")
list(TRANSFORM cxx_names REPLACE "(.+)" "      \"\\1\"")
list(JOIN c_names ";\n" c_names)
list(JOIN cxx_names ";\n" cxx_names)
file(CONFIGURE OUTPUT ${export_map} @ONLY CONTENT
"{
  global:
@c_names@;
    extern \"C++\" {
@cxx_names@;
    };
  local:
    *;
};
")
target_link_options(kestrune PRIVATE -Wl,--version-script=${export_map})
set_target_properties(kestrune PROPERTIES LINK_DEPENDS ${export_map})
