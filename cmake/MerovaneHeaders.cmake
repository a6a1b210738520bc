# Which headers the package installs, and the umbrella header that includes them.
#
# Rule: every header of a subsystem folder merovane/<subsystem>/*.h is public and installed, unless
# it matches a pattern of MEROVANE_INTERNAL_HEADERS. A public header declares only what the shared
# library exports (classes and functions marked MEROVANE_API, and inline code that calls nothing
# else) and includes only public headers. A header of a new subsystem is therefore installed and
# added to merovane/merovane.h without further steps; one whose functions stay inside the library is
# listed here. The PackageInstalled test fails, naming the header and the symbol, when an installed
# header declares a function the library does not export or includes a header that is not installed.

# Patterns relative to merovane/, as file(GLOB) understands them.
set(MEROVANE_INTERNAL_HEADERS
  # The module start stands in for the class framework of another platform; the host never calls it.
  platform/ModuleStart.h
  # Saturating conversions of file values, used by the parsers.
  foundation/NumberConversion.h
  # The fits and the QR kernels are reached by the calculators inside the library only: nothing of
  # numeric/ is exported.
  numeric/*.h
  numeric/*.inc
  # Phase helpers of the bandpass calculators.
  bandpass/APhaseUnwrap.h)

# merovane_public_headers(<out>): paths, relative to merovane/, of the public headers of the
# subsystems in MEROVANE_SUBSYSTEMS, subsystem by subsystem in layer order, sorted within each.
function(merovane_public_headers out)
  set(internal "")
  foreach(pattern ${MEROVANE_INTERNAL_HEADERS})
    file(GLOB matched RELATIVE ${PROJECT_SOURCE_DIR}/merovane CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/merovane/${pattern})
    list(APPEND internal ${matched})
  endforeach()
  set(public "")
  foreach(sub ${MEROVANE_SUBSYSTEMS})
    file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR}/merovane CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/merovane/${sub}/*.h)
    list(SORT headers)
    foreach(header ${headers})
      if(NOT header IN_LIST internal)
        list(APPEND public ${header})
      endif()
    endforeach()
  endforeach()
  set(${out} ${public} PARENT_SCOPE)
endfunction()

# merovane_write_umbrella(<file> <headers...>): writes the umbrella header that includes every
# public header, rewriting it only when its text changes (so that nothing rebuilds needlessly).
function(merovane_write_umbrella file)
  set(includes "")
  set(previous "")
  foreach(header ${ARGN})
    get_filename_component(sub ${header} DIRECTORY)
    if(previous AND NOT sub STREQUAL previous)
      string(APPEND includes "\n")
    endif()
    set(previous ${sub})
    string(APPEND includes "#include <merovane/${header}>\n")
  endforeach()
  set(MEROVANE_UMBRELLA_INCLUDES "${includes}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/merovane.h.in ${file} @ONLY)
endfunction()
