# bench_fits_import times the FITS bridge: linked with the shared libraries instead of the objects, so
# that the bridge and the program share one copy of the core; without the bridge it only says so.
if(TARGET merovane-fits)
  set_property(TARGET ${target} PROPERTY LINK_LIBRARIES benchmark::benchmark merovane-fits merovane)
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_FITS)
endif()
