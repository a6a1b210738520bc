# Per-target settings of the project's own targets: warnings and floating-point contraction are set
# on each target, never on the directory, so a project that adds Merovane as a subdirectory and
# links it keeps its own flags.

# merovane_target_options(<target>): the flags every target built from this tree gets. Results must
# not depend on whether the compiler fuses a multiply and an add, hence -ffp-contract=off.
function(merovane_target_options target)
  get_target_property(done ${target} MEROVANE_OPTIONS_SET)
  if(done)
    return()
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -ffp-contract=off)
  set_target_properties(${target} PROPERTIES MEROVANE_OPTIONS_SET ON)
endfunction()

# merovane_options_in_directory(<dir>): merovane_target_options for every target built in <dir> and
# the directories beneath it (tools, tests, benchmarks, bridges, the Python module), so that those
# folders need not remember to call it.
function(merovane_options_in_directory dir)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|STATIC_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
      merovane_target_options(${target})
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdir ${subdirs})
    merovane_options_in_directory(${subdir})
  endforeach()
endfunction()

# merovane_install_program(<target>): installs a program of tools/<name>/ into the package's bin
# folder (where CMAKE_INSTALL_RPATH lets it find the installed library). Does nothing when the
# project is not installing (MEROVANE_INSTALL off, the default when it is a subproject).
function(merovane_install_program target)
  if(MEROVANE_INSTALL)
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endfunction()
