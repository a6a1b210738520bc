# The closed loop calibrates an observation of the simulator, an object library of the tools.
if(TARGET uvxsim)
  target_link_libraries(${target} PRIVATE uvxsim)
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_UVXSIM=1)
endif()
