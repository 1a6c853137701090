# Installs the built project into an empty tree, moves the tree, and builds small consumers against
# it: with find_package and with pkg-config.
# Arguments: BUILD_DIR, SOURCE_DIR (of the consumer), WORK_DIR, GENERATOR, CXX, COMPONENTS.
set(prefix ${WORK_DIR}/moved)
set(expected "SDO read failed at 0x0000/0\n")

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed (${status}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_output program text)
  run("running ${program}" ${program})
  if(NOT output STREQUAL text)
    message(FATAL_ERROR "${program} printed \"${output}\", expected \"${text}\"")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run("installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/installed)
file(RENAME ${WORK_DIR}/installed ${prefix})

run("configuring the consumer"
    ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} "-DCOMPONENTS=${COMPONENTS}")
run("building the consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
expect_output(${WORK_DIR}/build/consumer "${expected}")
if(COMPONENTS)
  expect_output(${WORK_DIR}/build/companions "companions work\n")
endif()

file(GLOB_RECURSE pc_file ${prefix}/*/velmora_can_bridge.pc)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
run("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
    pkg-config --cflags --libs velmora_can_bridge)
separate_arguments(flags UNIX_COMMAND "${output}")
run("building with pkg-config's flags" ${CXX} -std=c++17 ${SOURCE_DIR}/main.cpp ${flags}
    -o ${WORK_DIR}/with_pkg_config)
expect_output(${WORK_DIR}/with_pkg_config "${expected}")
