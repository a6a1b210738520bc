// merovane_fits_dump: a UVX file's header shape, stations and records as text, for the astropy checks.
#include <cstdio>
#include <memory>
#include <vector>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

// Lines:
//   shape <nIF> <nChan> <nStokes> <refJD> <stokes codes...>
//   station <NOSTA> <name> <x> <y> <z>
//   rec <time s> <ant1> <ant2> <u> <v> <w> <sourceId> <freqId> then re im wt of every element
int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: merovane_fits_dump FILE.uvx\n");
        return 2;
    }
    AUVXFile file;
    if (!file.Open(argv[1])) {
        std::fprintf(stderr, "%s: %s\n", argv[1], file.m_errMsg.GetString());
        return 1;
    }
    const AUVXHeader& h = file.GetHeader();
    std::printf("shape %d %d %d %.9f", h.nIF, h.nChan, h.nStokes, h.refJD);
    for (int s = 0; s < h.nStokes; ++s) std::printf(" %d", h.stokes[s]);
    std::printf("\n");
    std::unique_ptr<AUVXTable> an(file.GetTable(kLayoutAN.name));
    if (an) {
        for (int r = 0; r < an->nRows; ++r)
            std::printf("station %d %s %.6f %.6f %.6f\n", static_cast<int>(an->GetDouble(r, kANNoSta)),
                        an->GetText(r, kANName).GetString(), an->GetDouble(r, kANStabXyz, 0),
                        an->GetDouble(r, kANStabXyz, 1), an->GetDouble(r, kANStabXyz, 2));
    }
    AUVXRecordReader reader;
    if (!reader.Open(file)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], reader.m_errMsg.GetString());
        return 1;
    }
    std::vector<AUVXComplex> e(static_cast<std::size_t>(reader.ElementCount()));
    AUVXGroup g;
    while (reader.Next(g, e.data())) {
        std::printf("rec %.7f %d %d %.9g %.9g %.9g %d %d", g.time, g.ant1, g.ant2, g.u, g.v, g.w, g.sourceId,
                    g.freqId);
        for (const AUVXComplex& c : e) std::printf(" %.9g %.9g %.9g", c.re, c.im, c.wt);
        std::printf("\n");
    }
    if (reader.Failed()) {
        std::fprintf(stderr, "%s: %s\n", argv[1], reader.m_errMsg.GetString());
        return 1;
    }
    return 0;
}
