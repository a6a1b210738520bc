# Installs the built library into a scratch prefix, then configures, builds and runs the consumer
# example against it with find_package, as a user of the installed package would.
# Run as: cmake -DBUILD_DIR=<build> -DSOURCE_DIR=<source> -P ConsumerBuild.cmake
set(prefix ${BUILD_DIR}/consumer-prefix)
set(work ${BUILD_DIR}/consumer-build)
file(REMOVE_RECURSE ${prefix} ${work})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${work} -G Ninja
                        -DCMAKE_PREFIX_PATH=${prefix} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${work} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${work}/uvx-count RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 2)
  message(FATAL_ERROR "consumer without arguments should give exit code 2, gave ${rc}")
endif()
message(STATUS "consumer ok")
