# Checks the dynamic symbol table of the shared library: the public classes are there, internal
# helpers are not. Run as: cmake -DLIB=<path> -P CheckExports.cmake
execute_process(COMMAND nm -DC --defined-only ${LIB} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
set(required "CString::Find" "AfxMessageBox" "ABFile::Open" "AReadBuffer::Read" "AWriteBuffer::Flush"
    "JulianToDate" "DayOfYearToJulian" "AArray<int>::InsertAt")
include(${CMAKE_CURRENT_LIST_DIR}/ExportsExtra.cmake OPTIONAL)
foreach(name ${required} ${MEROVANE_REQUIRED_EXPORTS})
  string(FIND "${symbols}" "${name}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "exported symbol missing: ${name}")
  endif()
endforeach()
# Anonymous-namespace helpers and the defaults of the message sink must stay inside.
foreach(name "(anonymous namespace)" "defaultHandler" ${MEROVANE_HIDDEN_SYMBOLS})
  string(FIND "${symbols}" "${name}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "internal symbol exported: ${name}")
  endif()
endforeach()
message(STATUS "exports ok")
