// AMSBridge: conversion of UVX files to Measurement Sets (casacore tables) and back.
#include "AMSBridge.h"

#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include <casacore/casa/Exceptions/Error.h>
#include <casacore/tables/Tables/Table.h>
#include <casacore/tables/Tables/TableInfo.h>
#include <casacore/tables/Tables/TableRecord.h>
#include <casacore/tables/Tables/TableUtil.h>

#include <merovane/uvx/AUVXFile.h>

#include "AMSExport.h"
#include "AMSImport.h"
#include "MSConventions.h"

namespace fs = std::filesystem;

namespace {

// The subtables a Measurement Set must have (MAIN keywords naming tables).
const char* const kRequiredSubtables[] = {
    "ANTENNA",     "DATA_DESCRIPTION", "FEED",         "FIELD",     "FLAG_CMD",        "HISTORY",
    "OBSERVATION", "POINTING",         "POLARIZATION", "PROCESSOR", "SPECTRAL_WINDOW", "STATE"};

void RemoveQuietly(const std::string& path) {
    std::error_code ec;
    fs::remove_all(path, ec);
}

}  // namespace

bool AMSBridge::IsMeasurementSet(const char* path) {
    try {
        std::error_code ec;
        if (path == nullptr || !fs::is_directory(path, ec) || !casacore::Table::isReadable(path))
            return false;
        return casacore::TableUtil::tableInfo(path).type() == "Measurement Set";
    } catch (const std::exception&) {
        return false;
    }
}

bool AMSBridge::IsDirectory(const char* path) {
    std::error_code ec;
    return path != nullptr && fs::is_directory(path, ec);
}

bool AMSBridge::ExportMS(const char* uvxPath, const char* msPath) {
    m_errMsg = "";
    m_records = 0;
    const std::string out(msPath);
    std::error_code ec;
    if (fs::exists(out, ec) && !IsMeasurementSet(msPath)) {
        m_errMsg = CString(msPath) + ": exists and is not a Measurement Set; not replaced";
        return false;
    }
    AUVXFile in;
    if (!in.Open(uvxPath)) {
        m_errMsg = in.m_errMsg;
        return false;
    }
    const std::string tmp = MSTemporaryPath(out);
    RemoveQuietly(tmp);
    bool ok = false;
    try {
        ok = AMSExport::Write(in, uvxPath, tmp, m_errMsg);
        if (ok) m_records = in.nGroups;
    } catch (const std::exception& e) {
        m_errMsg = CString(msPath) + ": cannot write the Measurement Set: " + e.what();
        ok = false;
    }
    in.Close();
    if (ok) {
        // A directory cannot be renamed over another: the old output goes only once the new is whole.
        if (fs::exists(out, ec)) fs::remove_all(out, ec);
        if (!ec) fs::rename(tmp, out, ec);
        if (ec) {
            m_errMsg = CString(msPath) + ": cannot put the Measurement Set in place: " + ec.message().c_str();
            ok = false;
        }
    }
    if (!ok) RemoveQuietly(tmp);
    return ok;
}

bool AMSBridge::ImportMS(const char* msPath, const char* uvxPath) {
    m_errMsg = "";
    m_records = 0;
    std::error_code ec;
    if (!fs::is_directory(msPath, ec)) {
        m_errMsg = CString(msPath) + ": is not a Measurement Set: not a directory";
        return false;
    }
    if (!IsMeasurementSet(msPath)) {
        m_errMsg = CString(msPath) + ": is not a Measurement Set: no casacore table of that type";
        return false;
    }
    const std::string in(msPath);
    try {
        const casacore::Table main(in);
        for (const char* name : kRequiredSubtables) {
            const bool defined = main.keywordSet().isDefined(name);
            if (!defined || !casacore::Table::isReadable(in + "/" + name)) {
                m_errMsg =
                    CString(msPath) + ": is not a complete Measurement Set: subtable " + name + " is missing";
                return false;
            }
        }
    } catch (const std::exception& e) {
        m_errMsg = CString(msPath) + ": cannot read the Measurement Set: " + e.what();
        return false;
    }
    const std::string tmp = MSTemporaryPath(uvxPath);
    bool ok = false;
    {
        AUVXFile out;
        try {
            ok = out.Create(tmp.c_str());
            if (!ok) m_errMsg = out.m_errMsg;
            ok = ok && AMSImport::Read(in, out, m_errMsg);
            if (ok) m_records = out.nGroups;
            if (ok && !out.Close()) {
                m_errMsg = out.m_errMsg;
                ok = false;
            }
        } catch (const std::exception& e) {
            m_errMsg = CString(msPath) + ": cannot read the Measurement Set: " + e.what();
            ok = false;
        }
    }
    if (ok) {
        fs::rename(tmp, uvxPath, ec);
        if (ec) {
            m_errMsg = CString(uvxPath) + ": cannot put the UVX file in place: " + ec.message().c_str();
            ok = false;
        }
    }
    if (!ok) RemoveQuietly(tmp);
    return ok;
}
