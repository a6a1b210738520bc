// ACalBandpass: the bandpass passes of a calibration run (solve per interval, apply per record).
// Internal to the host layer: not installed, not exported.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <merovane/foundation/AArray.h>
#include <merovane/host/ACalOptions.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

class ACalBandpass {
public:
    explicit ACalBandpass(const ACalOptions& options);
    ~ACalBandpass();

    // Binds header and antennas (both must outlive this object); false with m_err when the options
    // cannot be served by this file (reference station unknown, products the bandpass cannot treat).
    bool Init(AUVXHeader& header, AUVXAntenns& antennas);
    // Solves one interval of (digitisation-corrected) records and stores the solution under
    // [start, end). Records of other sources than `sourceId` (when it is 0 or above) are not used.
    // False with m_err when a solver failed in a way that must stop the run.
    bool Solve(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start, double end,
               int sourceId);
    // Divides one record by the stored solution nearest in time; false on a product it cannot treat.
    bool Apply(AUVXGroup& group, AUVXVisibility& vis);
    // Solutions stored so far (per interval, not per station).
    int Intervals() const;
    // The store in the file form of its matrices, one after another, and a table for plots.
    bool Write(const std::string& storePath, const std::string& csvPath);

    std::string m_err;
    // What the solve could not do (an interval without a reference, a failed network solve), once
    // per kind, for the summary.
    std::vector<std::string> m_notes;

private:
    struct AImpl;
    std::unique_ptr<AImpl> m_impl;
};
