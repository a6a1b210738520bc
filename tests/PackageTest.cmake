# Uses Merovane as a consumer would and checks what it gets. Run as
#   cmake -DMODE=<mode> -DBUILD_DIR=<build> -DSOURCE_DIR=<source> -DWORK=<scratch folder>
#         -DGENERATOR=<generator> -DCXX=<compiler> -DOBJECTS_FILE=<file> -DWITH_PROGRAMS=<bool>
#         -P PackageTest.cmake
# MODE installed: installs the build into a scratch prefix, checks that every installed header
#   declares only what the library exports and compiles and links on its own, builds the consumer
#   example with find_package and with pkg-config, and runs the installed programs.
# MODE buildtree: builds the consumer example against the build tree (merovane_DIR = the build).
# MODE subdirectory: builds the consumer example with the source tree added by add_subdirectory.
# The consumer example writes an observation, averages it through the interval driver and prints the
# averaged file; its output must equal examples/consumer/expected.txt.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${rc}): ${command}\n${out}\n${err}")
  endif()
  set(run_out "${out}" PARENT_SCOPE)
endfunction()

# check_consumer(<build folder> <configure arguments...>): configures, builds and runs the example.
function(check_consumer folder)
  file(REMOVE_RECURSE ${folder})
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${folder} -G ${GENERATOR}
      -DCMAKE_CXX_COMPILER=${CXX} ${ARGN})
  run(${CMAKE_COMMAND} --build ${folder} --target uvx-average)
  check_average(${folder}/uvx-average ${folder})
endfunction()

# check_average(<program> <folder>): runs the example program and compares what it prints.
function(check_average program folder)
  run(${program} ${folder})
  file(READ ${SOURCE_DIR}/examples/consumer/expected.txt expected)
  if(NOT run_out STREQUAL expected)
    message(FATAL_ERROR "${program} printed\n${run_out}\nexpected (examples/consumer/expected.txt)\n${expected}")
  endif()
endfunction()

if(MODE STREQUAL "buildtree")
  check_consumer(${WORK}/consumer -Dmerovane_DIR=${BUILD_DIR})
  message(STATUS "consumer of the build tree ok")
  return()
endif()

if(MODE STREQUAL "subdirectory")
  check_consumer(${WORK}/consumer -DMEROVANE_SOURCE_DIR=${SOURCE_DIR})
  # A project that adds Merovane gets the library alone: no tests, benchmarks or programs of its own.
  run(${CMAKE_COMMAND} --build ${WORK}/consumer --target help)
  if(NOT run_out MATCHES "(^|\n)merovane: ")
    message(FATAL_ERROR "the target list of the consumer lacks merovane:\n${run_out}")
  endif()
  foreach(target uvx-sim uvx-info merovane_uvx_tests bench_interval_pass)
    if(run_out MATCHES "(^|\n)${target}: ")
      message(FATAL_ERROR "the added project defines ${target}, which a subproject should leave out")
    endif()
  endforeach()
  message(STATUS "consumer with add_subdirectory ok")
  return()
endif()

if(NOT MODE STREQUAL "installed")
  message(FATAL_ERROR "unknown MODE '${MODE}'")
endif()

set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${prefix})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The package's files: library, CMake package, pkg-config file, umbrella header, programs.
file(GLOB_RECURSE libs ${prefix}/*/libmerovane.so)
file(GLOB_RECURSE pcs ${prefix}/*/merovane.pc)
file(GLOB_RECURSE configs ${prefix}/*/merovaneConfig.cmake)
foreach(what libs pcs configs)
  list(LENGTH ${what} n)
  if(NOT n EQUAL 1)
    message(FATAL_ERROR "the install holds ${n} of ${what} (${${what}}), not one")
  endif()
endforeach()
set(files include/merovane/merovane.h)
if(WITH_PROGRAMS)
  list(APPEND files bin/uvx-sim bin/uvx-info)
endif()
foreach(file ${files})
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "the install lacks ${prefix}/${file}")
  endif()
endforeach()

# Every installed program and library finds what it links, from the install alone.
file(GLOB programs ${prefix}/bin/*)
file(GLOB libraries ${prefix}/lib*/*.so)
foreach(binary ${programs} ${libraries})
  file(READ ${binary} magic LIMIT 4 HEX)
  if(NOT magic STREQUAL "7f454c46")
    continue()  # a script
  endif()
  run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ldd ${binary})
  if(run_out MATCHES "([^\n]*not found)")
    message(FATAL_ERROR "installed ${binary} does not find ${CMAKE_MATCH_1}")
  endif()
endforeach()

# Every installed header declares only what the library exports.
run(${CMAKE_COMMAND} -DINCLUDE_DIR=${prefix}/include -DLIB=${libs} -DOBJECTS_FILE=${OBJECTS_FILE}
    -P ${CMAKE_CURRENT_LIST_DIR}/CheckInstalledHeaders.cmake)

# Every installed header compiles on its own (and twice in one unit), and the inline functions it
# defines, all emitted, link against the library: a call of a function the library hides fails here.
set(headers_dir ${WORK}/headers)
file(REMOVE_RECURSE ${headers_dir})
file(GLOB_RECURSE headers RELATIVE ${prefix}/include ${prefix}/include/merovane/*.h)
list(SORT headers)
set(sources "")
set(n 0)
foreach(header ${headers})
  math(EXPR n "${n} + 1")
  file(WRITE ${headers_dir}/header${n}.cpp "#include <${header}>\n#include <${header}>\n")
  list(APPEND sources header${n}.cpp)
endforeach()
file(WRITE ${headers_dir}/main.cpp "int main() { return 0; }\n")
file(WRITE ${headers_dir}/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)
project(merovane_headers LANGUAGES CXX)
find_package(merovane REQUIRED)
add_executable(headers main.cpp ${sources})
target_compile_options(headers PRIVATE -fkeep-inline-functions)
target_link_libraries(headers PRIVATE merovane::merovane)
")
run(${CMAKE_COMMAND} -S ${headers_dir} -B ${headers_dir}/build -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${headers_dir}/build)
list(LENGTH headers n)
message(STATUS "${n} installed headers compile and link on their own")

# The example with find_package, which must have found the install and not the build tree.
check_consumer(${WORK}/consumer -DCMAKE_PREFIX_PATH=${prefix})
file(STRINGS ${WORK}/consumer/CMakeCache.txt found REGEX "^merovane_DIR:")
string(FIND "${found}" "${prefix}/" at)
if(NOT at GREATER -1)
  message(FATAL_ERROR "the consumer found another package than the install: ${found}")
endif()

# The example with pkg-config and the compiler alone.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  get_filename_component(pcdir ${pcs} DIRECTORY)
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} ${PKG_CONFIG} --cflags --libs merovane)
  string(STRIP "${run_out}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  get_filename_component(libdir ${libs} DIRECTORY)
  file(MAKE_DIRECTORY ${WORK}/pkgconfig)
  run(${CXX} -std=c++17 ${SOURCE_DIR}/examples/consumer/main.cpp ${flags} -Wl,-rpath,${libdir}
      -o ${WORK}/pkgconfig/uvx-average)
  check_average(${WORK}/pkgconfig/uvx-average ${WORK}/pkgconfig)
else()
  message(STATUS "pkg-config not found: the pkg-config file is not tried")
endif()

# The installed programs, run from the install: a short simulated observation and its summary.
if(NOT WITH_PROGRAMS)
  message(STATUS "installed package ok (built without the programs)")
  return()
endif()
file(MAKE_DIRECTORY ${WORK}/programs)
run(${prefix}/bin/uvx-sim --stations EF,WB,ON --duration 240 --int 10 --nchan 4 ${WORK}/programs/sim.uvx)
run(${prefix}/bin/uvx-info ${WORK}/programs/sim.uvx)
# Three stations give three cross and three autocorrelations for each of 24 time stamps.
set(info "${run_out}")
foreach(pattern "144 records of" "\n  AN +3 rows" "\n  SU +" "\n  SL +")
  if(NOT info MATCHES "${pattern}")
    message(FATAL_ERROR "installed uvx-info does not show '${pattern}' for the simulated file:\n${info}")
  endif()
endforeach()
message(STATUS "installed package ok")
