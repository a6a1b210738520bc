# The host tests simulate observations (the simulator's object library) and run the programs.
target_link_libraries(${target} PRIVATE uvxsim)
target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/uvx-sim)
foreach(program uvx-cal uvx-cal-check uvx-cal-example-host)
  if(TARGET ${program})
    add_dependencies(${target} ${program})
  endif()
endforeach()
# With the FITS bridge, uvx-cal reads UVFITS and FITS-IDI; the tests write FITS-IDI files with the
# FITS tests' cfitsio writer.
if(TARGET merovane-fits)
  get_property(host_cfitsio_target GLOBAL PROPERTY MEROVANE_CFITSIO_TARGET)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/fits/FitsTestFiles.cpp)
  target_link_libraries(${target} PRIVATE ${host_cfitsio_target})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/fits)
  target_compile_definitions(${target} PRIVATE MEROVANE_HOST_FITS)
endif()
