# What the shared libraries show: every namespace of a public header, and nothing that no public header
# names.
# Arguments: BUILD_DIR, WORK_DIR.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

set(public "")
file(GLOB_RECURSE headers ${WORK_DIR}/include/*.hpp)
foreach(header IN LISTS headers)
  file(READ ${header} text)
  string(REGEX REPLACE "//[^\n]*" "" code "${text}")
  string(APPEND public "${code}")
  # The version's constants have no symbols.
  if(NOT header MATCHES "/version.hpp$" AND text MATCHES "\nnamespace velmora_can_bridge {")
    message(FATAL_ERROR "${header}: a namespace without VELMORA_CAN_BRIDGE_EXPORT")
  endif()
endforeach()

file(GLOB_RECURSE libraries ${WORK_DIR}/*.so)
if(NOT libraries)
  message(FATAL_ERROR "no shared library is installed under ${WORK_DIR}")
endif()
foreach(library IN LISTS libraries)
  execute_process(COMMAND nm --dynamic --defined-only --demangle ${library}
                  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL " [A-Z] (vtable for |typeinfo for )?velmora_can_bridge::[a-zA-Z0-9_]+" shown
               "${symbols}")
  if(NOT shown)
    message(FATAL_ERROR "${library} shows nothing")
  endif()
  list(TRANSFORM shown REPLACE ".*::" "")
  list(REMOVE_DUPLICATES shown)
  foreach(name IN LISTS shown)
    if(NOT public MATCHES "[^a-zA-Z0-9_]${name}[^a-zA-Z0-9_]")
      message(FATAL_ERROR "${library} shows ${name}, which no public header names")
    endif()
  endforeach()
endforeach()
