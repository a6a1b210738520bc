// AMSImport: reads a Measurement Set into a new UVX file.
#pragma once

#include <string>

#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXFile.h>

class AMSImport {
public:
    // Writes the Measurement Set at `msPath` (checked to be one, with its subtables) into `out`,
    // created and empty; the caller closes it. False with `error` (naming `msPath`) for what UVX
    // cannot hold; casacore's own failures arrive as casacore::AipsError.
    static bool Read(const std::string& msPath, AUVXFile& out, CString& error);
};
