# Writes one manual page (section 1) from a program's --help with help2man,
# with the hand-written sections of INCLUDE, then a gzip -9n copy to install.
# The page's date is the date of this version's entry in CHANGELOG.md (else
# of its newest dated entry), so that a build gives the same bytes whenever it runs.
#   cmake -DHELP2MAN=... -DPROGRAM=... -DNAME=... -DINCLUDE=... -DCHANGELOG=...
#         -DVERSION=... -DOUTPUT=page.1 -P make_man_page.cmake
file(READ ${CHANGELOG} changelog)
string(REGEX MATCH "\n## \\[${VERSION}\\] - ([0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9])" dated "${changelog}")
if(NOT dated)
  string(REGEX MATCH "\n## \\[[^]]+\\] - ([0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9])" dated "${changelog}")
endif()
if(NOT dated)
  message(FATAL_ERROR "${CHANGELOG}: no dated entry (\"## [${VERSION}] - YYYY-MM-DD\") to date the manual page")
endif()
execute_process(COMMAND date -u -d "${CMAKE_MATCH_1}" +%s OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
set(ENV{SOURCE_DATE_EPOCH} ${epoch})
# The pages read the same whatever language the build runs in.
set(ENV{LC_ALL} C.UTF-8)
# help2man takes a synopsis per "Usage:" or "or:" line; the tools wrap theirs
# and start each further form on an indented line, which is rewritten so here.
# help2man then reads the rewritten text through a stand-in of the tool's name.
get_filename_component(tool ${PROGRAM} NAME)
set(stand_in_dir ${OUTPUT}.help)
file(MAKE_DIRECTORY ${stand_in_dir})
execute_process(COMMAND ${PROGRAM} --help OUTPUT_FILE ${stand_in_dir}/help.txt COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND awk -v tool=${tool} [[
    /^[Uu]sage: / { sub(/^usage:/, "Usage:"); usage = 1; line = $0; next }
    usage && /^ *$/ { print line; usage = 0 }
    usage && $0 ~ ("^ +" tool "( |$)") { print line; sub(/^ +/, "  or: "); line = $0; next }
    usage { sub(/^ +/, " "); line = line $0; next }
    { print }
    END { if (usage) print line }]] ${stand_in_dir}/help.txt
  OUTPUT_FILE ${stand_in_dir}/help2man.txt COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${stand_in_dir}/${tool} "#!/bin/sh\nexec cat '${stand_in_dir}/help2man.txt'\n")
file(CHMOD ${stand_in_dir}/${tool} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
     WORLD_READ WORLD_EXECUTE)
execute_process(
  COMMAND ${HELP2MAN} --no-info --section=1 --name=${NAME} --include=${INCLUDE}
          "--source=ZTExport ${VERSION}" --version-string=${VERSION} --manual=ZTExport --output=${OUTPUT}
          ${stand_in_dir}/${tool}
  RESULT_VARIABLE status ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  file(REMOVE ${OUTPUT})
  message(FATAL_ERROR "help2man ${PROGRAM}: ${errors}")
endif()
execute_process(COMMAND gzip -9n -c ${OUTPUT} OUTPUT_FILE ${OUTPUT}.gz COMMAND_ERROR_IS_FATAL ANY)
