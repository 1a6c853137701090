# Installs the built project into an empty tree, moves the tree, and builds a small consumer of each
# library against it: with find_package, and of the core with pkg-config.
# Arguments: BUILD_DIR, SOURCE_DIR (of the consumers), WORK_DIR, GENERATOR, CXX, LIBRARIES (with commas).
set(prefix ${WORK_DIR}/moved)
string(REPLACE "," ";" LIBRARIES "${LIBRARIES}")
# What each consumer prints, as a regular expression.
set(expected_velmora_can_bridge "^SDO read failed at 0x0000/0\n$")
set(expected_bus "^no answer within 500 ms\n$")
set(expected_config "^nodes: expected a list, found .3.\n$")
set(expected_simulator "^node 7\n$")
set(expected_values "^2C 01: nothing is wrong\n$")
set(expected_traffic "\"kind\":\"heartbeat\",\"node_id\":1,")
set(expected_bridge "\nwould answer ok: OK, data 01 00 00 00\n")

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed (${status}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_output program expression)
  run("running ${program}" ${program})
  if(NOT output MATCHES "${expression}")
    message(FATAL_ERROR "${program} printed \"${output}\", expected \"${expression}\"")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run("installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/installed)
file(RENAME ${WORK_DIR}/installed ${prefix})

# Who links a library needs its own headers and the standard library's, of no other package.
file(GLOB_RECURSE headers ${prefix}/include/*)
foreach(header IN LISTS headers)
  file(STRINGS ${header} foreign REGEX "^ *# *include *(<[^>]*[/.]|\"(\\.|[^v]))")
  if(foreign)
    message(FATAL_ERROR "${header}: ${foreign}")
  endif()
endforeach()

foreach(library IN LISTS LIBRARIES)
  set(build ${WORK_DIR}/${library})
  run("configuring the consumer of ${library}"
      ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
      -DCMAKE_CXX_COMPILER=${CXX} -DLIBRARY=${library})
  run("building the consumer of ${library}" ${CMAKE_COMMAND} --build ${build})
  expect_output(${build}/consumer "${expected_${library}}")
endforeach()

file(GLOB_RECURSE pc_file ${prefix}/*/velmora_can_bridge.pc)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
run("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
    pkg-config --cflags --libs velmora_can_bridge)
separate_arguments(flags UNIX_COMMAND "${output}")
run("building with pkg-config's flags" ${CXX} -std=c++17 ${SOURCE_DIR}/velmora_can_bridge.cpp ${flags}
    -o ${WORK_DIR}/with_pkg_config)
expect_output(${WORK_DIR}/with_pkg_config "${expected_velmora_can_bridge}")
