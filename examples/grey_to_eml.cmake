# Seals a message, makes a mail of it, and compares what a mail reader shows with a file. The message
# identifier is new each time.
file(REMOVE_RECURSE ${FOLDER})
execute_process(COMMAND ${MAKE_KEYS} ${FOLDER} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${SEAL} ${FOLDER} ${NOTE} ${FOLDER}note.grey OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${FOLDER}pass_phrase "a_b_c_d\n")
execute_process(COMMAND ${PROGRAM} ${FOLDER}note.grey ${FOLDER} ${FOLDER}note.eml
  INPUT_FILE ${FOLDER}pass_phrase COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${READER} ${FOLDER} COMMAND_ERROR_IS_FATAL ANY)
file(READ ${FOLDER}note.read shown)
string(REGEX REPLACE "MessageID: [^\n]+" "MessageID: NEW" shown "${shown}")
file(READ ${NOTE} note HEX)
file(READ ${EXPECTED} expected)
string(CONFIGURE "${expected}" expected @ONLY)
if(NOT "${shown}" STREQUAL "${expected}")
  message(FATAL_ERROR "the reader shows:\n${shown}\nexpected:\n${expected}")
endif()
