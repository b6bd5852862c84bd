# Writes the bash completion of sitelist from the tool's command tree.
#   cmake -DTOOL=<sitelist> -DTEMPLATE=<sitelist.bash.in> -DOUTPUT=<file> -P GenerateCompletion.cmake
execute_process(COMMAND ${TOOL} --command-tree
  OUTPUT_VARIABLE SITELIST_COMMAND_TREE RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT SITELIST_COMMAND_TREE MATCHES "^command\tsitelist\n")
  message(FATAL_ERROR "${TOOL} --command-tree failed (${result}): ${SITELIST_COMMAND_TREE}")
endif()
string(REGEX REPLACE "\n$" "" SITELIST_COMMAND_TREE "${SITELIST_COMMAND_TREE}")
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
