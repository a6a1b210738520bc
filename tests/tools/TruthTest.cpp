// Tests of the ANTAB file that the simulator writes and of its truth sidecar.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "SimTestSupport.h"

namespace {

std::vector<std::string> Words(const std::string& line) {
    std::istringstream s(line);
    std::vector<std::string> out;
    std::string w;
    while (s >> w) out.push_back(w);
    return out;
}

// The value of KEY= on a line, up to the next blank.
std::string After(const std::string& line, const std::string& key) {
    const std::size_t k = line.find(key + "=");
    if (k == std::string::npos) return "";
    const std::size_t b = k + key.size() + 1;
    return line.substr(b, line.find(' ', b) - b);
}

std::vector<std::string> SplitComma(const std::string& s) {
    std::vector<std::string> out;
    std::stringstream in(s);
    std::string item;
    while (std::getline(in, item, ',')) out.push_back(item);
    return out;
}

}  // namespace

TEST(Antab, OneGainAndTsysBlockPerStation) {
    ASimConfig c = SmallConfig();
    c.stations = {"EF", "WB", "ON", "MC"};
    c.bits.clear();
    std::ostringstream antab;
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, nullptr, &antab, nullptr, &t, &error)) << error.GetString();
    std::istringstream in(antab.str());
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(in, line)) lines.push_back(line);

    std::size_t i = 0;
    int comments = 0;
    for (const ASimStationTruth& st : t.stations) {
        while (i < lines.size() && lines[i][0] == '!') ++i, ++comments;
        ASSERT_LT(i + 1, lines.size());
        const std::vector<std::string> gain = Words(lines[i]);
        ASSERT_GE(gain.size(), 3u);
        EXPECT_EQ(gain[0], "GAIN");
        EXPECT_EQ(gain[1], st.code);
        EXPECT_EQ(gain[2], st.polyType == 2 ? "ALTAZ" : "ELEV");
        EXPECT_EQ(lines[i].substr(lines[i].size() - 2), " /");
        const std::vector<std::string> dpfu = SplitComma(After(lines[i], "DPFU"));
        ASSERT_EQ(dpfu.size(), 2u);
        EXPECT_EQ(std::atof(dpfu[0].c_str()), st.dpfu[0]);
        EXPECT_EQ(std::atof(dpfu[1].c_str()), st.dpfu[1]);
        const std::vector<std::string> freq = SplitComma(After(lines[i], "FREQ"));
        ASSERT_EQ(freq.size(), 2u);
        EXPECT_EQ(std::atof(freq[0].c_str()) * 1e6, st.freqLow);
        EXPECT_EQ(std::atof(freq[1].c_str()) * 1e6, st.freqHigh);
        // Every IF band's start lies within the range.
        EXPECT_LE(st.freqLow, t.IFFreq(0));
        EXPECT_GE(st.freqHigh, t.IFFreq(t.nIF - 1));
        const std::vector<std::string> poly = SplitComma(After(lines[i], "POLY"));
        ASSERT_EQ(poly.size(), st.poly.size());
        for (std::size_t k = 0; k < poly.size(); ++k) EXPECT_EQ(std::atof(poly[k].c_str()), st.poly[k]);
        ++i;
        while (i < lines.size() && lines[i][0] == '!') ++i, ++comments;
        const std::vector<std::string> tsys = Words(lines[i]);
        ASSERT_GE(tsys.size(), 4u);
        EXPECT_EQ(tsys[0], "TSYS");
        EXPECT_EQ(tsys[1], st.code);
        EXPECT_EQ(std::atof(After(lines[i], "FT").c_str()), st.ft);
        const std::string indexText = After(lines[i], "INDEX");
        const std::vector<std::string> items = SplitComma(indexText);
        if (st.tsysPerIF)
            EXPECT_EQ(indexText, "'R1','R2','L1','L2'");
        else
            EXPECT_EQ(indexText, "'R1:2','L1:2'");
        ++i;
        // Rows: day, hh:mm.mm and one value per INDEX item, ascending in time; the truth holds
        // the same numbers at the same Modified Julian Dates.
        std::size_t row = 0;
        double last = -1;
        for (; i < lines.size() && lines[i] != "/"; ++i, ++row) {
            const std::vector<std::string> w = Words(lines[i]);
            ASSERT_EQ(w.size(), items.size() + 2) << lines[i];
            ASSERT_LT(row, st.tsys.size());
            const int day = std::atoi(w[0].c_str());
            const int hh = std::atoi(w[1].c_str());
            const double mm = std::atof(w[1].c_str() + 3);
            ASSERT_EQ(w[1][2], ':');
            const double mjd = 60409.0 + (day - 100) + (hh * 60.0 + mm) / 1440.0;
            EXPECT_NEAR(st.tsys[row].mjd, mjd, 1e-9);
            EXPECT_GT(mjd, last);
            last = mjd;
            for (std::size_t k = 0; k < items.size(); ++k) {
                const double v = std::atof(w[k + 2].c_str());
                if (st.tsysPerIF) {
                    EXPECT_EQ(st.tsys[row].values[k], v);
                } else {
                    EXPECT_EQ(st.tsys[row].values[2 * k], v);
                    EXPECT_EQ(st.tsys[row].values[2 * k + 1], v);
                }
            }
        }
        EXPECT_EQ(row, st.tsys.size());
        ASSERT_LT(i, lines.size());
        ++i;  // the closing "/"
    }
    EXPECT_GT(comments, 0);
    while (i < lines.size()) EXPECT_EQ(lines[i++][0], '!');
}

TEST(Antab, TsysIsInterpolatedBetweenMeasuredRows) {
    ASimConfig c = SmallConfig();
    std::ostringstream antab;
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, nullptr, &antab, nullptr, &t, &error));
    // WB has FT 1.05 and one Tsys for both IF bands of a hand.
    const ASimStationTruth& wb = *t.Station(2);
    EXPECT_EQ(wb.ft, 1.05);
    const ASimTsysRow& r0 = wb.tsys[0];
    const ASimTsysRow& r1 = wb.tsys[1];
    double v = 0;
    ASSERT_TRUE(t.Tsys(2, 0, (r0.mjd + r1.mjd) / 2, v));
    EXPECT_NEAR(v, (r0.values[0] + r1.values[0]) / 2 * 1.05, 1e-9);
    ASSERT_TRUE(t.Tsys(2, 2, r1.mjd, v));
    EXPECT_NEAR(v, r1.values[2] * 1.05, 1e-12);
    // Before the first row and after the last the value is held.
    ASSERT_TRUE(t.Tsys(2, 1, r0.mjd - 1.0, v));
    EXPECT_EQ(v, r0.values[1] * 1.05);
    ASSERT_TRUE(t.Tsys(2, 3, wb.tsys.back().mjd + 1.0, v));
    EXPECT_EQ(v, wb.tsys.back().values[3] * 1.05);
    EXPECT_FALSE(t.Tsys(2, 4, r0.mjd, v));
    EXPECT_FALSE(t.Tsys(9, 0, r0.mjd, v));

    // A position without a measurement in a row is passed over: interpolation runs across it.
    ASimTruth edited = t;
    ASimStationTruth& ef = edited.stations[0];
    ef.tsys[1].values[0] = 0.0;
    const double mid = (ef.tsys[0].mjd + ef.tsys[2].mjd) / 2;
    ASSERT_TRUE(edited.Tsys(1, 0, mid, v));
    const double w = (mid - ef.tsys[0].mjd) / (ef.tsys[2].mjd - ef.tsys[0].mjd);
    EXPECT_NEAR(v, ef.tsys[0].values[0] + w * (ef.tsys[2].values[0] - ef.tsys[0].values[0]), 1e-9);
}

TEST(Truth, SidecarGivesTheTruthBack) {
    ASimConfig c = SmallConfig();
    c.noiseScale = 0.5;
    std::ostringstream text;
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, nullptr, nullptr, &text, &t, &error));
    std::istringstream in(text.str());
    ASimTruth back;
    ASSERT_TRUE(back.Load(in, &error)) << error.GetString();
    EXPECT_EQ(back.refJD, t.refJD);
    EXPECT_EQ(back.nIF, 2);
    EXPECT_EQ(back.nChan, 8);
    EXPECT_EQ(back.nPol, 2);
    EXPECT_EQ(back.stokes, t.stokes);
    EXPECT_EQ(back.chanWidth, t.chanWidth);
    EXPECT_EQ(back.noiseScale, 0.5);
    ASSERT_EQ(back.sources.size(), 2u);
    EXPECT_EQ(back.sources[1].name, "4C39.25");
    EXPECT_EQ(back.sources[1].flux, 7.0);
    EXPECT_EQ(back.sources[1].crossFlux, t.sources[1].crossFlux);
    ASSERT_EQ(back.stations.size(), 3u);
    for (std::size_t s = 0; s < 3; ++s) {
        const ASimStationTruth &a = t.stations[s], &b = back.stations[s];
        EXPECT_EQ(b.code, a.code);
        EXPECT_EQ(b.bits, a.bits);
        EXPECT_EQ(b.quantFactor, a.quantFactor);
        EXPECT_EQ(b.dpfu[1], a.dpfu[1]);
        EXPECT_EQ(b.poly, a.poly);
        EXPECT_EQ(b.level, a.level);
        EXPECT_EQ(b.bandpass, a.bandpass);
        ASSERT_EQ(b.tsys.size(), a.tsys.size());
        EXPECT_EQ(b.tsys.back().mjd, a.tsys.back().mjd);
        EXPECT_EQ(b.tsys.back().values, a.tsys.back().values);
    }
    AUVXGroup g{};
    g.time = 72345.0;
    g.sourceId = 2;
    g.ant1 = 1;
    g.ant2 = 3;
    EXPECT_EQ(back.RawModel(g, 1, 5, 2), t.RawModel(g, 1, 5, 2));
    EXPECT_EQ(back.NoiseSigma(g, 1, 5, 2), t.NoiseSigma(g, 1, 5, 2));
    // Written again, the text is the same.
    std::ostringstream again;
    ASSERT_TRUE(back.Save(again));
    EXPECT_EQ(again.str(), text.str());

    // A text of another kind, or one cut short, is refused with the line.
    std::istringstream other("GAIN EF ELEV\n");
    EXPECT_FALSE(back.Load(other, &error));
    EXPECT_STREQ(error.GetString(), "truth file line 1: not a uvx-sim truth file");
    const std::string full = text.str();
    std::istringstream cut(full.substr(0, full.size() / 2));
    EXPECT_FALSE(back.Load(cut, &error));
    EXPECT_NE(error.Find("truth file line"), -1);
    std::istringstream badStation("uvx-sim-truth 1\nshape 2 8 2\nlevel 7 0 0 1.0\nend\n");
    EXPECT_FALSE(back.Load(badStation, &error));
    EXPECT_STREQ(error.GetString(), "truth file line 3: unknown station");
    EXPECT_FALSE(back.Load("/nonexistent-dir/x.truth", &error));
    EXPECT_STREQ(error.GetString(), "cannot open /nonexistent-dir/x.truth");
}

TEST(Truth, BandpassIsNormalisedAndWraps) {
    ASimConfig c = SmallConfig();
    c.nChan = 64;
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, nullptr, nullptr, nullptr, &t, &error));
    for (const ASimStationTruth& st : t.stations)
        for (int f = 0; f < 2; ++f)
            for (int hand = 0; hand < 2; ++hand) {
                double power = 0, span = 0;
                for (int ch = 0; ch < 64; ++ch) {
                    power += std::norm(t.Bandpass(st.id, f, hand, ch));
                    if (ch > 0) {
                        // Unwrapped phase steps add up to the phase span across the band.
                        span += std::arg(t.Bandpass(st.id, f, hand, ch) / t.Bandpass(st.id, f, hand, ch - 1));
                    }
                }
                EXPECT_NEAR(power / 64, 1.0, 1e-12);
                // Between 0.6 and 1.6 turns across the band: the phase wraps at least once.
                EXPECT_GT(std::abs(span), 0.5 * 2 * 3.14159265358979);
                const double m = t.Level(st.id, f, hand);
                EXPECT_GE(m, 0.6);
                EXPECT_LE(m, 1.5);
            }
}
