// ASimCatalogue: positions of real VLBI stations and compact sources, with round receiver figures.
#include "ASimCatalogue.h"

namespace {

// Degrees from hours, minutes, seconds and from degrees, arcminutes, arcseconds.
constexpr double Hms(double h, double m, double s) {
    return (h + m / 60.0 + s / 3600.0) * 15.0;
}
constexpr double Dms(double sign, double d, double m, double s) {
    return sign * (d + m / 60.0 + s / 3600.0);
}

}  // namespace

const std::vector<ASimStationInfo>& ASimCatalogue::Stations() {
    // Positions from the public geodetic solutions, to the metre or better; Tsys and DPFU are
    // round 5 GHz figures, enough to give each baseline a plausible sensitivity.
    static const std::vector<ASimStationInfo> stations = {
        {"EF", 4033947.153, 486990.898, 4900431.098, 25.0, 1.50, 2},
        {"WB", 3828750.697, 442589.218, 5064921.570, 30.0, 0.12, 2},
        {"ON", 3370605.803, 711917.725, 5349830.876, 35.0, 0.09, 2},
        {"MC", 4461369.570, 919597.240, 4449559.497, 60.0, 0.16, 2},
        {"NT", 4934562.841, 1321201.551, 3806484.727, 50.0, 0.16, 1},
        {"YS", 4848761.758, -261484.056, 4123085.135, 40.0, 0.20, 2},
        {"TR", 3638558.510, 1221969.720, 5077036.760, 40.0, 0.12, 2},
        {"HH", 5085442.780, 2668263.483, -2768697.034, 55.0, 0.06, 2},
        {"GB", 882589.640, -4924872.320, 3943729.348, 25.0, 1.90, 2},
        {"AR", 2390486.900, -5564731.440, 1994720.450, 30.0, 8.00, 2},
        {"JB", 3822846.760, -153802.280, 5086285.900, 40.0, 0.14, 2},
        {"SR", 4865182.766, 791922.689, 4035137.174, 30.0, 0.40, 2},
        {"IR", 3183649.341, 1276902.985, 5359264.715, 60.0, 0.03, 2},
        {"SH", -2831687.450, 4675733.482, 3275327.493, 40.0, 0.11, 2},
        {"UR", 228310.726, 4631922.805, 4367064.061, 40.0, 0.10, 2},
        {"SV", 2730173.672, 1562442.793, 5529969.164, 40.0, 0.06, 1},
        {"ZC", 3451207.506, 3060375.448, 4391915.058, 40.0, 0.06, 1},
        {"BD", -838201.114, 3865751.549, 4987670.892, 40.0, 0.06, 1},
        {"BR", -2112065.206, -3705356.505, 4726813.676, 35.0, 0.11, 2},
        {"FD", -1324009.331, -5332181.956, 3231962.396, 35.0, 0.11, 2},
        {"HN", 1446374.863, -4447939.677, 4322306.188, 35.0, 0.11, 2},
        {"KP", -1995678.842, -5037317.697, 3357328.025, 35.0, 0.11, 2},
        {"LA", -1449752.585, -4975298.576, 3709123.830, 35.0, 0.11, 2},
        {"MK", -5464075.185, -2495248.106, 2148297.565, 35.0, 0.11, 2},
        {"NL", -130872.499, -4762317.093, 4226850.993, 35.0, 0.11, 2},
        {"OV", -2409150.402, -4478573.118, 3838617.339, 35.0, 0.11, 2},
        {"PT", -1640953.937, -5014816.028, 3575411.779, 35.0, 0.11, 2},
        {"SC", 2607848.664, -5488069.566, 1932739.641, 35.0, 0.11, 2},
    };
    return stations;
}

const std::vector<ASimSourceInfo>& ASimCatalogue::Sources() {
    static const std::vector<ASimSourceInfo> sources = {
        {"3C84", Hms(3, 19, 48.1601), Dms(1, 41, 30, 42.104), 20.0},
        {"4C39.25", Hms(9, 27, 3.0139), Dms(1, 39, 2, 20.852), 8.0},
        {"3C345", Hms(16, 42, 58.8100), Dms(1, 39, 48, 36.994), 5.0},
        {"3C279", Hms(12, 56, 11.1665), Dms(-1, 5, 47, 21.525), 15.0},
        {"3C273", Hms(12, 29, 6.6997), Dms(1, 2, 3, 8.598), 20.0},
        {"3C454.3", Hms(22, 53, 57.7479), Dms(1, 16, 8, 53.561), 10.0},
        {"3C286", Hms(13, 31, 8.2881), Dms(1, 30, 30, 32.959), 7.0},
        {"BLLAC", Hms(22, 2, 43.2914), Dms(1, 42, 16, 39.980), 4.0},
        {"OJ287", Hms(8, 54, 48.8749), Dms(1, 20, 6, 30.641), 4.0},
        {"DA193", Hms(5, 55, 30.8056), Dms(1, 39, 48, 49.165), 3.0},
        {"0528+134", Hms(5, 30, 56.4167), Dms(1, 13, 31, 55.150), 2.0},
        {"1803+784", Hms(18, 0, 45.6839), Dms(1, 78, 28, 4.018), 2.0},
        {"1928+738", Hms(19, 27, 48.4952), Dms(1, 73, 58, 1.570), 3.0},
        {"0016+731", Hms(0, 19, 45.7864), Dms(1, 73, 27, 30.017), 1.0},
    };
    return sources;
}

const ASimStationInfo* ASimCatalogue::Station(const std::string& code) {
    for (const ASimStationInfo& s : Stations())
        if (code == s.code) return &s;
    return nullptr;
}

const ASimSourceInfo* ASimCatalogue::Source(const std::string& name) {
    for (const ASimSourceInfo& s : Sources())
        if (name == s.name) return &s;
    return nullptr;
}
