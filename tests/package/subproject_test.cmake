# Takes the repository into another project, builds that and installs it.
# Arguments: REPOSITORY, WORK_DIR, GENERATOR, CXX, WITH ("add_subdirectory" or "FetchContent").
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
run("configuring" ${CMAKE_COMMAND} -S ${REPOSITORY}/tests/package/subproject -B ${WORK_DIR}/build -G
    ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DREPOSITORY=${REPOSITORY} -DWITH=${WITH}
    -DCMAKE_UNITY_BUILD=ON
    -DFETCHCONTENT_BASE_DIR=${WORK_DIR}/fetched)
run("building" ${CMAKE_COMMAND} --build ${WORK_DIR}/build --target robot)
run("running" ${WORK_DIR}/build/robot)
if(NOT output STREQUAL "no answer within 500 ms\n")
  message(FATAL_ERROR "the program printed \"${output}\"")
endif()

run("installing" ${CMAKE_COMMAND} --install ${WORK_DIR}/build --prefix ${WORK_DIR}/installed)
file(GLOB_RECURSE installed RELATIVE ${WORK_DIR}/installed ${WORK_DIR}/installed/*)
if(NOT installed STREQUAL "bin/robot")
  message(FATAL_ERROR "installed are ${installed}, expected bin/robot alone")
endif()
