# bench_uvx_cal simulates its observation (the simulator's object library) into the build tree.
target_link_libraries(${target} PRIVATE uvxsim)
target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/uvx-sim)
target_compile_definitions(${target} PRIVATE MEROVANE_BENCH_DIR="${PROJECT_BINARY_DIR}")
