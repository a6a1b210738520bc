// AMSBridge: conversion of UVX files to Measurement Sets (casacore tables) and back.
#pragma once

#include <cstdint>

#include <merovane/platform/CString.h>

#if defined(_WIN32)
#if defined(MEROVANE_MS_BUILDING)
#define MEROVANE_MS_API __declspec(dllexport)
#else
#define MEROVANE_MS_API __declspec(dllimport)
#endif
#else
#define MEROVANE_MS_API __attribute__((visibility("default")))
#endif

// The layout and the conventions (times, u v w, products, weights, which tables go where) are
// described in docs/conventions-ms.md. Both directions write under a temporary name beside the
// output and rename it at the end: a failure leaves nothing at the output's name, and an output that
// existed before is replaced only by a complete one.
//
// Operations return false with the reason in m_errMsg, which names the file and what is wrong.
// Nothing throws: casacore's exceptions are caught and their text joins m_errMsg.
class MEROVANE_MS_API AMSBridge {
public:
    // Writes the UVX file `uvxPath` as the Measurement Set directory `msPath`: one MAIN row per record
    // and IF band, one spectral window per IF of each frequency setup, one field per source. Refused:
    // a UVX file that cannot be read, products without a Measurement Set code, records whose
    // station, source or setup the tables lack, and an existing `msPath` that is not a Measurement
    // Set (never deleted).
    bool ExportMS(const char* uvxPath, const char* msPath);

    // Writes the Measurement Set directory `msPath` as the UVX file `uvxPath`: rows of one time,
    // baseline, field and frequency group become one record with an IF band per spectral window.
    // Refused with a message: a directory that is not a Measurement Set or lacks a subtable, spectral
    // windows of different channel counts, data descriptions with different products, more than 8
    // products, frequency groups of different sizes, antennas beyond the 64 that UVX numbers, rows
    // whose DATA shape differs from their spectral window.
    bool ImportMS(const char* msPath, const char* uvxPath);

    // True when `path` is a directory holding a casacore table of type "Measurement Set".
    static bool IsMeasurementSet(const char* path);
    // True when `path` is a directory, the only form a Measurement Set takes.
    static bool IsDirectory(const char* path);

    // Records read by the last ExportMS or written by the last ImportMS.
    std::int64_t m_records = 0;
    CString m_errMsg;
};
