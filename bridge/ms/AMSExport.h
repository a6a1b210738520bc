// AMSExport: writes an open UVX file as a Measurement Set.
#pragma once

#include <string>

#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXFile.h>

class AMSExport {
public:
    // Writes the records and tables of `in` (opened for reading; `uvxName` names it in messages) as a
    // new Measurement Set at `msPath`, which must not exist. False with `error` for what the
    // Measurement Set cannot take; casacore's own failures arrive as casacore::AipsError.
    static bool Write(AUVXFile& in, const char* uvxName, const std::string& msPath, CString& error);
};
