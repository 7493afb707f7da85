# Seals a message, makes a mail of it, and compares what a mail reader shows with a file. The message
# identifier is new each time.
file(REMOVE_RECURSE ${FOLDER})
execute_process(COMMAND ${MAKE_KEYS} ${FOLDER} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${SEAL} ${FOLDER} ${NOTE} ${FOLDER}note.grey OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${FOLDER}pass_phrase "a_b_c_d\n")
# Who signs as another sender is refused, a longer name than the signer's own, too.
foreach(signer IN ITEMS martin.z.126 medecin.x.z.126 medeci.z.126 medecin)
  execute_process(COMMAND ${PROGRAM} ${FOLDER}note.grey ${FOLDER} ${FOLDER}note.eml ${signer}
    INPUT_FILE ${FOLDER}pass_phrase RESULT_VARIABLE status ERROR_QUIET)
  if(status EQUAL 0 OR EXISTS ${FOLDER}note.eml)
    message(FATAL_ERROR "taken for the sender: ${signer}")
  endif()
endforeach()
execute_process(COMMAND ${PROGRAM} ${FOLDER}note.grey ${FOLDER} ${FOLDER}note.eml medecin.z.126
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
