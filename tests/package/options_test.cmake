# What options of the build refuse, and what they allow.
# Arguments: REPOSITORY, WORK_DIR, GENERATOR, CXX.
file(REMOVE_RECURSE ${WORK_DIR})

# configure(BUILD [OPTION...]): sets status and output.
function(configure build)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${REPOSITORY} -B ${build} -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
            -DBUILD_TESTING=OFF ${ARGN}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  set(status ${status} PARENT_SCOPE)
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_refusal expected)
  string(FIND "${output}" "${expected}" place)
  if(status EQUAL 0 OR place EQUAL -1)
    message(FATAL_ERROR "(${status}) expected \"${expected}\", was:\n${output}")
  endif()
endfunction()

configure(${WORK_DIR}/contradiction -DVELMORA_CAN_BRIDGE_BUS=OFF -DVELMORA_CAN_BRIDGE_CLI=ON)
expect_refusal("VELMORA_CAN_BRIDGE_CLI is ON and needs VELMORA_CAN_BRIDGE_BRIDGE, which is OFF")

configure(${WORK_DIR}/without_yaml -DCMAKE_DISABLE_FIND_PACKAGE_yaml-cpp=ON)
expect_refusal("yaml-cpp is missing. Install it (on Debian: libyaml-cpp-dev), or leave this part out \
with -DVELMORA_CAN_BRIDGE_CONFIG=OFF.")

# One part alone.
configure(${WORK_DIR}/bus -DVELMORA_CAN_BRIDGE_COMPANIONS=OFF -DVELMORA_CAN_BRIDGE_BUS=ON)
if(NOT status EQUAL 0
   OR NOT EXISTS ${WORK_DIR}/bus/velmora_can_bridge_bus.pc
   OR EXISTS ${WORK_DIR}/bus/velmora_can_bridge_simulator.pc)
  message(FATAL_ERROR "(${status}) the bus alone:\n${output}")
endif()

# In the folder of the sources: of a copy, as something would be left behind.
file(COPY ${REPOSITORY}/CMakeLists.txt ${REPOSITORY}/cmake DESTINATION ${WORK_DIR}/sources)
set(REPOSITORY ${WORK_DIR}/sources)
configure(${WORK_DIR}/sources)
expect_refusal("A build needs a folder of its own")
