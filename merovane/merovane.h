// Merovane: every public declaration of the library in one include.
#pragma once

#include <merovane/platform/Afx.h>
#include <merovane/platform/AlignedAlloc.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AFile.h>
#include <merovane/foundation/AMatrix.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/AReadBuffer.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/foundation/Calendar.h>
#include <merovane/foundation/NumberConversion.h>

#include <merovane/uvx/ABaseLine.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXText.h>

#include <merovane/interval/AMeanCalc.h>
#include <merovane/interval/AUVXTimeWorks.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/antab/AAntabTlsc.h>

#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/digitisation/ACube.h>
#include <merovane/digitisation/ADigErrCorrect.h>
#include <merovane/digitisation/AVanFlakeCorrect.h>

#include <merovane/numeric/AAprox.h>
#include <merovane/numeric/ADPolyApr.h>
#include <merovane/numeric/QRKernels.h>
