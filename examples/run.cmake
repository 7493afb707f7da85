# Makes keys in a new folder, runs a program with the folder and an argument, and compares what both print with
# a file, in which @CERTIFICATE_YEAR@ and @KEY_YEAR@ stand for the year numbers of today.
file(REMOVE_RECURSE ${FOLDER})
execute_process(COMMAND ${MAKE_KEYS} ${FOLDER} OUTPUT_VARIABLE keys COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${PROGRAM} ${FOLDER} ${ARGUMENT} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(TIMESTAMP year "%Y")
math(EXPR CERTIFICATE_YEAR "${year} - 1900")
math(EXPR KEY_YEAR "${year} - 1800")
file(READ ${EXPECTED} expected)
string(CONFIGURE "${expected}" expected @ONLY)
if(NOT "${keys}${output}" STREQUAL "${expected}")
  message(FATAL_ERROR "printed:\n${keys}${output}\nexpected:\n${expected}")
endif()
