# Exports IN to the Measurement Set MS with TOOL, then removes its SPECTRAL_WINDOW subtable.
file(REMOVE_RECURSE ${MS})
execute_process(COMMAND ${TOOL} ${IN} ${MS} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "export of ${IN} failed (${rc})")
endif()
file(REMOVE_RECURSE ${MS}/SPECTRAL_WINDOW)
