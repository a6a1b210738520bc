// FuzzSupport: a small UVX file in memory for fuzz targets that need an observation to bind to.
#pragma once

#include <cstring>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

// Bytes of a UVX file with `nIF` bands of 4 channels, RR and LL, stations EF WB ON MC (IDs 1..4),
// one source and a few records; its tables AN, SU and FQ.
inline std::vector<unsigned char> FuzzObservation(int nIF) {
    AMemFile mem;
    AUVXFile out;
    out.Create(&mem, false);
    AUVXHeader h;
    AUVXHeader::SetText(h.dateObs, sizeof h.dateObs, "2024-04-09");
    h.refJD = 2460409.5;
    h.refFreq = 4.99e9;
    h.chanWidth = 4e6;
    h.totalBandwidth = 16e6;
    h.nStokes = 2;
    h.stokes[0] = -1;
    h.stokes[1] = -2;
    h.nIF = nIF;
    h.nChan = 4;
    AUVXRecordWriter writer;
    writer.Open(out, h);
    AUVXVisibility vis(nIF, 4, 2);
    for (int i = 0; i < vis.count; ++i) vis.data[i] = {1.0f, 0.5f, 1.0f};
    for (int k = 0; k < 4; ++k) {
        AUVXGroup g;
        std::memset(&g, 0, sizeof g);
        g.freqId = 1;
        g.sourceId = 1;
        g.time = 72000.0 + 60.0 * k;
        g.ant1 = 1;
        g.ant2 = static_cast<std::int8_t>(1 + k % 4);
        writer.Write(g, vis);
    }
    writer.Finish();
    AUVXTable an, su, fq;
    CreateTable(an, kLayoutAN, nIF);
    const char* names[] = {"EF", "WB", "ON", "MC"};
    const double xyz[4][3] = {{4033947.2, 486990.8, 4900430.8},
                              {3828750.7, 442589.2, 5064921.6},
                              {3370965.9, 711466.2, 5349664.2},
                              {4461369.7, 919597.1, 4449559.4}};
    for (int s = 0; s < 4; ++s) {
        const int r = an.AddRow();
        an.SetText(r, kANName, names[s]);
        for (int c = 0; c < 3; ++c) an.SetDouble(r, kANStabXyz, xyz[s][c], c);
        an.SetDouble(r, kANNoSta, s + 1);
    }
    CreateTable(su, kLayoutSU, nIF);
    const int r = su.AddRow();
    su.SetDouble(r, kSUId, 1);
    su.SetText(r, kSUSource, "3C84");
    su.SetDouble(r, kSURaEpo, 49.95);
    su.SetDouble(r, kSUDecEpo, 41.51);
    CreateTable(fq, kLayoutFQ, nIF);
    const int f = fq.AddRow();
    fq.SetDouble(f, kFQFrqSel, 1);
    for (int i = 0; i < nIF; ++i) {
        fq.SetDouble(f, kFQIfFreq, 16e6 * i, i);
        fq.SetDouble(f, kFQChWidth, 4e6, i);
        fq.SetDouble(f, kFQTotalBandwidth, 16e6, i);
        fq.SetDouble(f, kFQSideband, 1, i);
    }
    out.AddTable(an);
    out.AddTable(su);
    out.AddTable(fq);
    out.Close();
    return mem.Bytes();
}
