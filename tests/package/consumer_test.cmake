# Installs the built project into an empty tree, moves the tree, and builds a small consumer of each
# library against it, with find_package and with pkg-config.
# Arguments: BUILD_DIR, SOURCE_DIR (of the consumers), WORK_DIR, GENERATOR, CXX, LIBRARIES (with commas),
# SHARED, VERSION.
cmake_minimum_required(VERSION 3.22)
set(prefix ${WORK_DIR}/moved)
string(REPLACE "," ";" LIBRARIES "${LIBRARIES}")
# What each consumer prints, as a regular expression.
set(expected_velmora_can_bridge "^${VERSION}: SDO read failed at 0x0000/0\n$")
set(expected_bus "^no answer within 500 ms\n$")
set(expected_config "^nodes: expected a list, found .3.\n$")
set(expected_simulator "^node 7\n$")
set(expected_values "^2C 01: nothing is wrong\n$")
set(expected_traffic "\"kind\":\"heartbeat\",\"node_id\":1,")
set(expected_bridge "\nwould answer ok: OK, data 01 00 00 00\n")

include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

function(expect_output program expression)
  run("running ${program}" ${program})
  if(NOT output MATCHES "${expression}")
    message(FATAL_ERROR "${program} printed \"${output}\", expected \"${expression}\"")
  endif()
endfunction()

# configure_consumer(BUILD LIBRARY COMPONENT...): the command.
function(configure_consumer build library)
  set(command ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} -G ${GENERATOR}
              -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DLIBRARY=${library}
              "-DCOMPONENTS=${ARGN}" PARENT_SCOPE)
endfunction()

# expect_refusal(TEXT COMPONENT [OPTION...]): what find_package says when it is asked for that.
function(expect_refusal expected component)
  configure_consumer(${WORK_DIR}/refused velmora_can_bridge ${component})
  list(APPEND command ${ARGN})
  execute_process(COMMAND ${command} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  string(FIND "${output}" "${expected}" place)
  if(status EQUAL 0 OR place EQUAL -1)
    message(FATAL_ERROR "component ${component} (${status}): expected \"${expected}\", was:\n${output}")
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

# The program finds its libraries, wherever the tree was moved to.
if(EXISTS ${prefix}/bin/velmora-can-bridge)
  expect_output("${prefix}/bin/velmora-can-bridge;--version" "^velmora-can-bridge ${VERSION}\n$")
  run("the tour of the installed program" ${prefix}/bin/velmora-can-bridge demo --json)
endif()

file(GLOB_RECURSE pc_files ${prefix}/*/velmora_can_bridge.pc)
get_filename_component(pc_dir ${pc_files} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)
foreach(library IN LISTS LIBRARIES)
  set(build ${WORK_DIR}/${library})
  configure_consumer(${build} ${library} ${library})
  run("configuring the consumer of ${library}" ${command})
  run("building the consumer of ${library}" ${CMAKE_COMMAND} --build ${build})
  expect_output(${build}/consumer "${expected_${library}}")

  set(name velmora_can_bridge)
  if(NOT library STREQUAL name)
    string(APPEND name _${library})
  endif()
  # A shared library of an earlier install must not be linked instead of an archive.
  if(NOT SHARED)
    file(WRITE ${lib_dir}/lib${name}.so "of an earlier install")
  endif()
  run("pkg-config ${name}" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
      pkg-config --cflags --libs "${name} = ${VERSION}")
  separate_arguments(flags UNIX_COMMAND "${output}")
  run("building with the flags of ${name}"
      ${CXX} -std=c++17 ${SOURCE_DIR}/${library}.cpp ${flags} -o ${build}/with_pkg_config)
  expect_output(${build}/with_pkg_config "${expected_${library}}")

  # What a program asks the loader for is the version of the binary interface.
  string(REGEX MATCH "^[0-9]+[.][0-9]+" interface ${VERSION})
  run("readelf" readelf -d ${build}/consumer)
  if(SHARED AND NOT output MATCHES "NEEDED[^\n]*lib${name}\\.so\\.${interface}\\]")
    message(FATAL_ERROR "the consumer of ${library} does not need lib${name}.so.${interface}:\n${output}")
  elseif(NOT SHARED AND output MATCHES "velmora_can_bridge")
    message(FATAL_ERROR "the consumer of ${library} needs a shared library:\n${output}")
  endif()
endforeach()

# Without components all is there that is installed.
list(GET LIBRARIES -1 last)
configure_consumer(${WORK_DIR}/all ${last})
run("configuring a consumer of all" ${command})

list(JOIN LIBRARIES ", " installed)
expect_refusal("velmora_can_bridge has no component \"bsu\" here. Installed are: ${installed}." bsu)

# A package that is missing is named; an optional component does without.
if("config" IN_LIST LIBRARIES AND NOT SHARED)
  set(without_yaml -DCMAKE_DISABLE_FIND_PACKAGE_yaml-cpp=ON)
  expect_refusal(
    "The component \"config\" of velmora_can_bridge needs yaml-cpp, which was not found." config
    ${without_yaml})
  configure_consumer(${WORK_DIR}/optional bus bus)
  run("an optional component" ${command} ${without_yaml} -DOPTIONAL=values)
endif()

# Where programs only run there are no headers and no files for pkg-config.
if(SHARED)
  file(REMOVE_RECURSE ${prefix})
  run("installing what runs" ${CMAKE_COMMAND} --install ${BUILD_DIR} --component runtime --prefix
      ${prefix})
  foreach(library IN LISTS LIBRARIES)
    expect_output(${WORK_DIR}/${library}/with_pkg_config "${expected_${library}}")
  endforeach()
endif()
