// AAntabData: reads an ANTAB file, binds its telescopes to a UVX file and calibrates records.
#pragma once

#include <cstdint>
#include <istream>
#include <vector>

#include <merovane/antab/AAntabTlsc.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXSources.h>

extern template class MEROVANE_API AArray<AAntabTlsc*>;
extern template class MEROVANE_API APtrArray<AAntabTlsc*>;

// A-priori amplitude calibration of a UVX file. Calling order: Init (the UVX file), Load (the ANTAB
// text, ending in CheckValid), then Calibrate for each record, GetErrMsg after any false result.
// Each visibility is multiplied by sqrt(SEFD A x SEFD B) of its two antennas, each weight divided by
// SEFD A x SEFD B, where SEFD = Tsys / gain.
//
// Choices where the ANTAB format leaves a case open:
//  - DPFU, FREQ, POLY, TSYS, TIMEOFF, FT, INDEX2 and INDEX on a line before the first GAIN stop the
//    load with "Error> <AAntabData> <keyword> before any GAIN" (keyword as listed here), since they
//    would have no telescope to go to. BIF= and EIF= are accepted anywhere.
//  - "DPFU=" with no number behind it stops the load with "Error> <AAntabData> error parse DPFU. "
//    (an empty FREQ= or POLY= simply changes nothing).
//  - A data row of a single token (a day without a time) stops the load as an unreadable time:
//    "Error> <AAntabData> Time convert error " with an empty token.
//  - An empty INDEX item, and one whose first character is none of X, L, R, is a column that is read
//    and thrown away, like X (see AAntabTlsc::ColumnInfoParse).
//  - A UVX file with neither RR nor LL (m_nPol 0) has no Tsys position: Init completes its steps and
//    returns false with "Error> <AAntabData> no RR or LL product in the UVX file", and Load refuses
//    with the same text before reading anything.
//  - A visibility whose shape needs more elements than it holds is refused by Calibrate with
//    "Error> <AAntabData> visibility shape larger than its data", nothing changed. A product beyond
//    the header's eight Stokes codes counts as code 0: "Error> <AAntabData> not interpret stokes 0".
//  - A header that lists RR or LL twice gives m_nPol above 2; the L polarisation index then has no
//    DPFU member, and its products fail with the S message below. A Tsys position outside a
//    telescope's table (a record with more IF bands than the file) is a column without measurement.
//  - Copying (construction or assignment) gives the copy its own telescopes, deep copies in the same
//    order, with m_current pointing at the copy's own counterpart; assignment releases what the
//    target held. Both objects then share only m_uvx, which neither owns.
class MEROVANE_API AAntabData {
public:
    AAntabData();
    ~AAntabData() = default;
    AAntabData(const AAntabData& other);
    AAntabData& operator=(const AAntabData& other);

    // Reads header, SU table and FQ table of `uvx`, which must outlive Load. m_nPol becomes the number
    // of RR and LL codes among the header's products, m_nIF the file's IF count (at least 1).
    // False with "Error> <AAntabData> SU table not found" (what was set before stays), or with the
    // m_nPol 0 text above.
    bool Init(AUVXFile& uvx);

    // Reads an ANTAB text to its end and returns CheckValid's result; false at the first error, with
    // the message in m_errMsg and what was read so far kept. Lines of more than 1023 characters (a
    // CR before the LF counts as one) stop the load ("Error> <AAntabData> error read file.").
    // Keywords are found by plain substring search in a fixed order (BIF=, EIF=, GAIN, DPFU, FREQ,
    // POLY, TSYS, TIMEOFF, FT, INDEX2, INDEX); a keyword standing in front of an earlier-searched one
    // on the same line is lost. Call once, after Init.
    bool Load(std::basic_istream<char>& in);

    // Binds the telescopes to the AN table (ID, position, row dates) and checks that every antenna
    // has a telescope, that no DPFU is 0 and that every bound telescope's INDEX lists cover all Tsys
    // positions. Called by Load; runs once (the row dates are converted in place).
    bool CheckValid();

    // Calibrates `vis`, a record of the file with group `group`, in place; `group` is not changed.
    // Per IF band and product: factor = sqrt(SEFD A x SEFD B), values times factor, weights divided
    // by its square, each component in double and rounded to float once. A negative (or NaN)
    // SEFD product flags the elements (weight made negative, values kept); a product of 0 leaves
    // them unchanged. False at the first failure, with IF bands and products already treated left
    // corrected: the host must not use such a record. Messages (A, B the antenna IDs, W the group
    // time by timeToStr):
    //   "Error> <AAntabData> not found source ID <id>", "... not found antenna ID <id>",
    //   "Error> <AAntabData> not interpret stokes <code>", a telescope's GetGain/GetTsys message,
    //   " S == 0 => sefd invalid A-B, W" (gain 0 or NaN),
    //   " Invalid sefd. A-B, <Tsys A> <Tsys B> W" (an SEFD above 1e15, values by "%.5E"),
    //   "Invalid value mul =<M> <SEFD A> <SEFD B> A-B" (an infinite factor).
    bool Calibrate(AUVXGroup& group, AUVXVisibility& vis);

    // The message of the last failure; not cleared by a success.
    CString& GetErrMsg() { return m_errMsg; }

    int m_bif = 0;                    // "BIF=" of the file, stored only
    int m_eif = 0;                    // "EIF=" of the file, stored only
    int m_nIF = 2;                    // IF bands of the UVX file
    int m_nPol = 2;                   // parallel-hand polarisations of the UVX file (RR and/or LL)
    APtrArray<AAntabTlsc*> m_tlscs;   // telescopes in file order, owned
    AAntabTlsc* m_current = nullptr;  // the parser's current telescope, not owned
    AUVXFile* m_uvx = nullptr;        // file of Init, not owned
    AUVXSources m_sources;            // the file's SU table
    AUVXHeader m_header;              // the file's header (refJD, nStokes, stokes are used)
    AUVXFqTbl m_fqTbl;                // the file's frequency table
    CString m_errMsg;

private:
    bool fail(const CString& text);
    bool parseLine(CString& line);
    bool parseKeywords(CString& rest);
    bool parseRow(CString& line);
    void copyFrom(const AAntabData& other);
    // The factor of product iStokes in band iIF of a record on telescopes a and b with their gains;
    // false with m_errMsg at a refused product, a missing Tsys or an invalid SEFD.
    bool productFactor(AAntabTlsc* a, AAntabTlsc* b, const double* gainA, const double* gainB, double t,
                       int iIF, int iStokes, const AUVXGroup& group, double& factor);

    // What one telescope gave for one time, source and number of bands: its gains and its Tsys at
    // polarisation index 0 and m_nPol - 1 of each band, with everything the answers depend on.
    // Records of one time stamp share these, so each telescope is asked once per time stamp.
    struct AStationLookup {
        const AAntabTlsc* tlsc = nullptr;  // null: nothing kept
        double t = 0.0;
        const AUVXSourceItem* source = nullptr;
        double ra = 0.0, dec = 0.0;
        int nIF = 0, fileNIF = 0, nPol = 0;
        std::uint64_t tsysStamp = 0;
        const double* tsysData = nullptr;
        int tsysRows = 0, tsysCols = 0;
        double ft = 0.0, dpfu[2] = {0.0, 0.0}, freqLow = 0.0, freqHigh = 0.0, x = 0.0, y = 0.0, z = 0.0;
        int polyType = 0;
        std::vector<double> poly;
        double gain[2] = {0.0, 0.0};
        std::vector<double> tsys;         // nIF values for polarisation index 0, then nIF for m_nPol - 1
        std::vector<unsigned char> have;  // whether GetTsys gave each of them
    };
    // The kept lookup of telescope `index` of m_tlscs for this time, source and band count, asked
    // anew when anything it depends on changed (the gain with the start frequency of band 0 of
    // frequency row `row`); null when the telescope gives no gain there (the record then takes the
    // way that reports why).
    const AStationLookup* stationLookup(int index, double t, AUVXSourceItem& source, int nIF, int row);
    // Calibrate from kept lookups: false, with nothing changed, when a product cannot be worked out
    // from them; the record then goes the way that stops and reports at the first failure.
    bool calibrateFromLookups(const AStationLookup& a, const AStationLookup& b, AUVXVisibility& vis, int nIF,
                              int row);

    std::vector<AStationLookup> m_lookups;  // per telescope of m_tlscs, by index
    std::vector<double> m_factorScratch;    // factors and their squares of one record
};
