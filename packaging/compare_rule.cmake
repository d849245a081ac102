# Whether the rule in the tree is the one that the program prints: cmake -D PROGRAM=… -D FILE=… -P compare_rule.cmake
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE status)
file(READ ${FILE} kept)
if(NOT status EQUAL 0 OR NOT printed STREQUAL kept)
  message(FATAL_ERROR "${FILE} differs from the table of discovery. Renew it: ${PROGRAM} > ${FILE}")
endif()
