# The generated files of bench_interval_pass go to the build tree.
target_compile_definitions(${target} PRIVATE MEROVANE_BENCH_DIR="${PROJECT_BINARY_DIR}")
