# Checks the dynamic symbol table of the shared library: the public classes are there, internal
# helpers are not. Run as: cmake -DLIB=<path> -P CheckExports.cmake
execute_process(COMMAND nm -DC --defined-only ${LIB} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
set(required "CString::Find" "AfxMessageBox" "ABFile::Open" "AReadBuffer::Read" "AWriteBuffer::Flush"
    "JulianToDate" "DayOfYearToJulian" "AArray<int>::InsertAt" "AArray<AUVXGroup>::InsertAt"
    "AUVXFile::Open" "AUVXFile::AddTable" "AUVXTable::ParseFormat" "AUVXAntenns::IndexForID"
    "AUVXSkanList::Create" "ABaseLine::checkBase" "strToTime" "timeToStr"
    "AUVXTimeWorks::IntervalsExec" "AMeanCalc::Calculate"
    "AAntabData::Load" "AAntabData::Calibrate" "AAntabTlsc::GetTsys"
    "AAIShortTbl::FindItem" "ADigErrCorrect::Calculate" "AVanFlakeCorrect::Calculate" "ACube<double>::Create")
foreach(name ${required})
  string(FIND "${symbols}" "${name}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "exported symbol missing: ${name}")
  endif()
endforeach()
# Anonymous-namespace helpers and the defaults of the message sink must stay inside.
# The kernel variants and the selection rule are reached only through the dispatch.
foreach(name "(anonymous namespace)" "defaultHandler" "QRDecomposeAVX" "QRSolveScalar" "KernelIndexForFeatures")
  string(FIND "${symbols}" "${name}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "internal symbol exported: ${name}")
  endif()
endforeach()
message(STATUS "exports ok")
