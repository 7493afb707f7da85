# Runs a program in the folder, keeps what it prints there, and compares it with a file.
include(${CMAKE_CURRENT_LIST_DIR}/compare.cmake)
set(input)
if(INPUT)
  set(input INPUT_FILE ${FOLDER}${INPUT})
endif()
execute_process(COMMAND ${PROGRAM} ${ARGUMENTS} ${input} OUTPUT_VARIABLE printed WORKING_DIRECTORY ${FOLDER}
  COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${FOLDER}${PRINTED} "${printed}")
compare("${printed}" ${EXPECTED})
