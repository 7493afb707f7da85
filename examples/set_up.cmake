# Makes keys in a new folder, and what else the examples find there.
include(${CMAKE_CURRENT_LIST_DIR}/compare.cmake)
file(REMOVE_RECURSE ${FOLDER})
execute_process(COMMAND ${PROGRAM} ${FOLDER} OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
compare("${printed}" ${EXPECTED})
configure_file(${KEY} ${FOLDER}${NAME}.z.${CERTIFICATE_YEAR}.key COPYONLY)
configure_file(${CERTIFICATE} ${FOLDER}${NAME}.z.${CERTIFICATE_YEAR}.pem COPYONLY)
file(WRITE ${FOLDER}pass_phrase "${PASS_PHRASE}\n")
