# Writes the man page of sitelist, gzipped, from the tool's own help: the
# top-level --help through help2man, and a COMMANDS section with the --help of
# every command in the tool's command tree.
#   cmake -DTOOL=<sitelist> -DHELP2MAN=<help2man> -DGZIP=<gzip> -DOUTPUT=<sitelist.1.gz> -P GenerateManPage.cmake
cmake_minimum_required(VERSION 3.25)

function(run_tool out)
  execute_process(COMMAND ${TOOL} ${ARGN} OUTPUT_VARIABLE text RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${TOOL} ${ARGN} failed (${result})")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Help text as literal roff: backslashes escaped, hyphens kept as minus signs
# (options stay copyable), no line taken for a request.
function(roff_literal out text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

run_tool(tree --command-tree)
# Only the command lines: option lines may hold brackets, which a CMake list
# would take for a quoted run and join with the lines after them.
string(REGEX MATCHALL "command\tsitelist[^\n]*" tree_lines "${tree}")
set(section "[COMMANDS]\nEvery command takes the global options too; they may come before or after it.\n")
foreach(line IN LISTS tree_lines)
  if(NOT line MATCHES "^command\tsitelist (.+)$")
    continue()
  endif()
  set(path "${CMAKE_MATCH_1}")
  string(REPLACE " " ";" words "${path}")
  run_tool(help ${words} --help)
  roff_literal(help "${help}")
  roff_literal(heading "sitelist ${path}")
  string(APPEND section ".SS \"${heading}\"\n.nf\n${help}.fi\n")
endforeach()

get_filename_component(dir ${OUTPUT} DIRECTORY)
string(REGEX REPLACE "\\.gz$" "" page "${OUTPUT}")
file(WRITE ${dir}/commands.h2m "${section}")
execute_process(
  COMMAND ${HELP2MAN} --no-info --no-discard-stderr
          --name "look at and change the agent's repository site list"
          --include ${dir}/commands.h2m --output ${page} ${TOOL}
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "help2man failed (${result})")
endif()
# -n: no name or time stamp in the gzip header, so the page is reproducible.
execute_process(COMMAND ${GZIP} -9nf ${page} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "gzip failed (${result})")
endif()
