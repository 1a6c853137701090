# run(WHAT COMMAND...): sets output; ends the test where the command fails.
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed (${status}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()
