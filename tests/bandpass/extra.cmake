# The whole bandpass run derives and applies a bandpass on a simulated observation through the
# interval driver, and the host there averages with AMeanCalc.
merovane_link_subsystem(${target} interval)
if(TARGET uvxsim)
  target_link_libraries(${target} PRIVATE uvxsim)
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_UVXSIM=1)
endif()
