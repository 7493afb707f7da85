# Read by cpack as it starts.
if(NOT CPACK_GENERATOR STREQUAL "External")
  message(FATAL_ERROR "The packages are made by cpack without -G: cmake/debian/make_packages")
endif()
