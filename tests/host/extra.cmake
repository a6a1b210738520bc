# The host tests simulate observations (the simulator's object library) and run the programs.
target_link_libraries(${target} PRIVATE uvxsim)
target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/uvx-sim)
foreach(program uvx-cal uvx-cal-check)
  if(TARGET ${program})
    add_dependencies(${target} ${program})
  endif()
endforeach()
