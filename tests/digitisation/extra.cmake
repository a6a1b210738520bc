# The closed loop runs the corrections inside the interval driver over a simulated observation.
merovane_link_subsystem(${target} interval)
if(TARGET uvxsim)
  target_link_libraries(${target} PRIVATE uvxsim)
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_UVXSIM=1)
endif()
