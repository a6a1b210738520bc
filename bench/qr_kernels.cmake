# OpenBLAS (bench/setup-openblas.sh installs it) is the reference of the QR kernel benchmark; without
# it the benchmark times the kernel variants alone.
find_library(MEROVANE_OPENBLAS_LIBRARY NAMES openblas)
if(MEROVANE_OPENBLAS_LIBRARY)
  target_link_libraries(${target} PRIVATE ${MEROVANE_OPENBLAS_LIBRARY})
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_OPENBLAS=1)
else()
  message(STATUS "OpenBLAS not found: bench_qr_kernels runs without its reference rows")
endif()
