# The QR tests compare with LAPACK's least-squares driver, which only the tests link.
find_library(MEROVANE_LAPACK_LIBRARY NAMES lapack)
if(MEROVANE_LAPACK_LIBRARY)
  target_link_libraries(${target} PRIVATE ${MEROVANE_LAPACK_LIBRARY})
  target_compile_definitions(${target} PRIVATE MEROVANE_HAVE_LAPACK=1)
else()
  message(WARNING "LAPACK not found: the QR comparisons with dgels are skipped")
endif()
