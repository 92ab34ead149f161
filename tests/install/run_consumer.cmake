# cmake -P: installs the build into a fresh prefix under WORK, exports the
# example with the installed zt2export (so that it finds its module where the
# installation put it), then builds the consumer against the installed
# package, once through find_package and once through pkg-config, and runs it.
# Variables: BUILD, SOURCE, WORK, GENERATOR, CXX, CXX_FLAGS, PKG_CONFIG.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nexit ${rc}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

set(expected "8 nodes, 2 meshes, 24 vertices\n")
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/config)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${WORK}/prefix/bin/zt2export ${SOURCE}/examples/example.scene.json -o ${WORK}/example.zt2
    --config-dir ${WORK}/config --quiet)

run(${CMAKE_COMMAND} -S ${SOURCE}/tests/install/consumer -B ${WORK}/consumer -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK}/consumer)
run(${WORK}/consumer/consumer ${WORK}/example.zt2)
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "find_package consumer printed \"${out}\", expected \"${expected}\"")
endif()

if(PKG_CONFIG)
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${WORK}/prefix/lib/pkgconfig ${PKG_CONFIG} --cflags --libs ztexport)
  separate_arguments(flags UNIX_COMMAND "${CXX_FLAGS} ${out}")
  run(${CXX} -std=c++17 ${SOURCE}/tests/install/consumer/main.cpp ${flags} -o ${WORK}/consumer_pc)
  run(${WORK}/consumer_pc ${WORK}/example.zt2)
  if(NOT out STREQUAL expected)
    message(FATAL_ERROR "pkg-config consumer printed \"${out}\", expected \"${expected}\"")
  endif()
endif()
