# step(COMMAND...): runs it, leaves what it said in `said`, and ends everything if it fails.
function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE said ERROR_VARIABLE said)
  if(failed)
    message(FATAL_ERROR "${ARGN} gave ${failed}:\n${said}")
  endif()
  set(said "${said}" PARENT_SCOPE)
endfunction()
