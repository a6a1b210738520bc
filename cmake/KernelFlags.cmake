# Instruction-set flags of the QR kernel variants: each variant file is built for its own processor
# level, and the dispatch picks one at run time. Only these files get flags beyond the x86-64 baseline.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(MEROVANE_KERNEL_DIR ${PROJECT_SOURCE_DIR}/merovane/numeric)
  # Scalar and SSE2 variants: no automatic vectorisation, so their sums run element by element
  # (the SSE2 file writes its packed sums by hand).
  set_source_files_properties(${MEROVANE_KERNEL_DIR}/QRVariantScalar.cpp ${MEROVANE_KERNEL_DIR}/QRVariantSSE2.cpp
    PROPERTIES COMPILE_OPTIONS "-fno-tree-vectorize;-fno-tree-slp-vectorize")
  set_source_files_properties(${MEROVANE_KERNEL_DIR}/QRVariantSSE41.cpp
    PROPERTIES COMPILE_OPTIONS "-msse4.1")
  set_source_files_properties(${MEROVANE_KERNEL_DIR}/QRVariantAVX.cpp
    PROPERTIES COMPILE_OPTIONS "-mavx")
endif()
