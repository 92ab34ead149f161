# Fills ztexport.bash.in from the tools themselves: the options each one's
# --help names, the option fields zt2export --list-fields prints and the
# model extensions its --help lists, so that no second list is kept by hand.
#   cmake -DZT2EXPORT=... -DZT2DUMP=... -DZT2VIEW=... -DTEMPLATE=... -DOUTPUT=... -P make_completion.cmake
function(run_tool out)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN}: exit status ${status}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# The options a help text names: words that start with a dash after a blank,
# a bracket, a bar, a parenthesis or a comma.
function(options_of out text)
  # Brackets and semicolons would split CMake's lists where the text does not.
  string(REGEX REPLACE "[][|,();]" " " text "${text}")
  string(REGEX MATCHALL "[ \n]--?[a-zA-Z][a-zA-Z0-9-]*" found "${text}")
  set(options "")
  foreach(word ${found})
    string(SUBSTRING "${word}" 1 -1 word)
    list(APPEND options ${word})
  endforeach()
  list(REMOVE_DUPLICATES options)
  list(SORT options)
  list(JOIN options " " options)
  set(${out} "${options}" PARENT_SCOPE)
endfunction()

run_tool(help ${ZT2EXPORT} --help)
# One export's options are those its "Options:" list names; the usage names --batch's too.
string(FIND "${help}" "\nOptions:\n" options_at)
string(SUBSTRING "${help}" ${options_at} -1 options)
options_of(ZT2EXPORT_OPTIONS "${options}")
# The model formats' paragraph: lower-case extensions, wrapped, up to the next blank line.
if(NOT help MATCHES "\nModel formats[^\n]*:\n(([^\n]+\n)+)")
  message(FATAL_ERROR "${ZT2EXPORT} --help lists no model formats")
endif()
string(REGEX REPLACE "[ \n]+" " " models "${CMAKE_MATCH_1}")
string(STRIP "${models}" ZT2EXPORT_MODELS)

run_tool(help ${ZT2EXPORT} --batch --help)
options_of(ZT2EXPORT_BATCH_OPTIONS "${help}")
run_tool(fields ${ZT2EXPORT} --list-fields)
string(STRIP "${fields}" fields)
string(REPLACE "\n" " " ZT2EXPORT_FIELDS "${fields}")
run_tool(help ${ZT2DUMP} --help)
options_of(ZT2DUMP_OPTIONS "${help}")
if(ZT2VIEW)
  run_tool(help ${ZT2VIEW} --help)
  options_of(ZT2VIEW_OPTIONS "${help}")
endif()
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
