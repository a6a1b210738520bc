// Tests of the ANTAB file that the simulator writes and of its truth sidecar.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
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

// The text of KEY= on a line, up to the next blank.
std::string After(const std::string& line, const std::string& key) {
    const std::size_t k = line.find(key + "=");
    if (k == std::string::npos) return "";
    const std::size_t b = k + key.size() + 1;
    return line.substr(b, line.find(' ', b) - b);
}

// The comma-separated numbers of KEY= on a line.
std::vector<double> Numbers(const std::string& line, const std::string& key) {
    std::vector<double> out;
    std::stringstream in(After(line, key));
    std::string item;
    while (std::getline(in, item, ',')) out.push_back(std::atof(item.c_str()));
    return out;
}

}  // namespace

TEST(Antab, OneGainAndTsysBlockPerStation) {
    // Four stations give each kind of gain polynomial and both kinds of Tsys INDEX.
    ASimConfig c = SmallConfig();
    c.stations = {"EF", "WB", "ON", "MC"};
    c.bits.clear();
    std::ostringstream antab;
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, nullptr, &antab, nullptr, &t, &error)) << error.GetString();
    std::istringstream in(antab.str());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);

    std::size_t i = 0;
    int comments = 0;
    auto skipComments = [&] {
        while (i < lines.size() && lines[i][0] == '!') ++i, ++comments;
        return i + 1 < lines.size();
    };
    for (const ASimStationTruth& st : t.stations) {
        SCOPED_TRACE(st.code);
        ASSERT_TRUE(skipComments());
        const std::string& gain = lines[i++];
        const std::vector<std::string> gw = Words(gain);
        ASSERT_GE(gw.size(), 3u);
        EXPECT_EQ(gw[0], "GAIN");
        EXPECT_EQ(gw[1], st.code);
        EXPECT_EQ(gw[2], st.polyType == 2 ? "ALTAZ" : "ELEV");
        EXPECT_EQ(gain.substr(gain.size() - 2), " /");
        EXPECT_EQ(Numbers(gain, "DPFU"), (std::vector<double>{st.dpfu[0], st.dpfu[1]}));
        EXPECT_EQ(Numbers(gain, "FREQ"), (std::vector<double>{st.freqLow / 1e6, st.freqHigh / 1e6}));
        EXPECT_EQ(Numbers(gain, "POLY"), st.poly);
        // Every IF band's start lies within the range.
        EXPECT_LE(st.freqLow, t.IFFreq(0));
        EXPECT_GE(st.freqHigh, t.IFFreq(t.nIF - 1));

        ASSERT_TRUE(skipComments());
        const std::string& tsys = lines[i++];
        const std::vector<std::string> tw = Words(tsys);
        ASSERT_GE(tw.size(), 4u);
        EXPECT_EQ(tw[0], "TSYS");
        EXPECT_EQ(tw[1], st.code);
        EXPECT_EQ(std::atof(After(tsys, "FT").c_str()), st.ft);
        const std::string index = After(tsys, "INDEX");
        EXPECT_EQ(index, st.tsysPerIF ? "'R1','R2','L1','L2'" : "'R1:2','L1:2'");
        const std::size_t items = st.tsysPerIF ? 4 : 2;
        // Rows: day, hh:mm.mm and one value per INDEX item, ascending in time; the truth holds
        // the same numbers at the same Modified Julian Dates.
        std::size_t row = 0;
        double last = -1;
        for (; i < lines.size() && lines[i] != "/"; ++i, ++row) {
            const std::vector<std::string> w = Words(lines[i]);
            ASSERT_EQ(w.size(), items + 2) << lines[i];
            ASSERT_LT(row, st.tsys.size());
            ASSERT_EQ(w[1][2], ':');
            const double minutes = std::atoi(w[1].c_str()) * 60.0 + std::atof(w[1].c_str() + 3);
            const double mjd = 60409.0 + (std::atoi(w[0].c_str()) - 100) + minutes / 1440.0;
            EXPECT_NEAR(st.tsys[row].mjd, mjd, 1e-9);
            EXPECT_GT(mjd, last);
            last = mjd;
            // A value per IF, or one for both IF bands of a hand.
            for (std::size_t k = 0; k < 4; ++k)
                EXPECT_EQ(st.tsys[row].values[k], std::atof(w[2 + (st.tsysPerIF ? k : k / 2)].c_str()));
        }
        EXPECT_EQ(row, st.tsys.size());
        ASSERT_LT(i++, lines.size());  // the closing "/"
    }
    EXPECT_GT(comments, 0);
    while (i < lines.size()) EXPECT_EQ(lines[i++][0], '!');
}

TEST(Antab, TsysIsInterpolatedBetweenMeasuredRows) {
    ASimTruth t;
    CString error;
    ASSERT_TRUE(SimulateToStreams(SmallConfig(), nullptr, nullptr, nullptr, &t, &error));
    // WB has FT 1.05 and one Tsys for both IF bands of a hand.
    const ASimStationTruth& wb = *t.Station(2);
    EXPECT_EQ(wb.ft, 1.05);
    const ASimTsysRow &r0 = wb.tsys[0], &r1 = wb.tsys[1], &rn = wb.tsys.back();
    double v = 0;
    ASSERT_TRUE(t.Tsys(2, 0, (r0.mjd + r1.mjd) / 2, v));
    EXPECT_NEAR(v, (r0.values[0] + r1.values[0]) / 2 * 1.05, 1e-9);
    ASSERT_TRUE(t.Tsys(2, 2, r1.mjd, v));
    EXPECT_NEAR(v, r1.values[2] * 1.05, 1e-12);
    // Before the first row and after the last the value is held.
    ASSERT_TRUE(t.Tsys(2, 1, r0.mjd - 1.0, v));
    EXPECT_EQ(v, r0.values[1] * 1.05);
    ASSERT_TRUE(t.Tsys(2, 3, rn.mjd + 1.0, v));
    EXPECT_EQ(v, rn.values[3] * 1.05);
    EXPECT_FALSE(t.Tsys(2, 4, r0.mjd, v));
    EXPECT_FALSE(t.Tsys(9, 0, r0.mjd, v));
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
    // Every field that a model value uses comes back: compare them over all baselines, sources and
    // elements; the rest is compared directly or through the text written again.
    for (int a1 = 1; a1 <= 3; ++a1)
        for (int a2 = a1; a2 <= 3; ++a2)
            for (int e = 0; e < 2 * 2 * 8 * 4; ++e) {
                AUVXGroup g{};
                g.time = 72345.0;
                g.sourceId = static_cast<std::int16_t>(1 + e / 64);
                g.ant1 = static_cast<std::int8_t>(a1);
                g.ant2 = static_cast<std::int8_t>(a2);
                const int iIF = e / 32 % 2, ch = e / 4 % 8, p = e % 4;
                ASSERT_EQ(back.RawModel(g, iIF, ch, p), t.RawModel(g, iIF, ch, p)) << a1 << a2 << e;
                ASSERT_EQ(back.NoiseSigma(g, iIF, ch, p), t.NoiseSigma(g, iIF, ch, p)) << a1 << a2 << e;
            }
    for (std::size_t s = 0; s < t.stations.size(); ++s) {
        EXPECT_EQ(back.stations[s].code, t.stations[s].code);
        EXPECT_EQ(back.stations[s].bits, t.stations[s].bits);
        EXPECT_EQ(back.stations[s].tsys.back().values, t.stations[s].tsys.back().values);
    }
    EXPECT_EQ(back.sources[1].name, "4C39.25");
    EXPECT_EQ(back.noiseScale, 0.5);
    // Written again, the text is the same.
    std::ostringstream again;
    ASSERT_TRUE(back.Save(again));
    EXPECT_EQ(again.str(), text.str());

    // A text of another kind, or one cut short, is refused with the line.
    const std::string full = text.str();
    const struct {
        std::string text;
        const char* message;  // null: any message naming the line
    } bad[] = {
        {"GAIN EF ELEV\n", "truth file line 1: not a uvx-sim truth file"},
        {full.substr(0, full.size() / 2), nullptr},
        {"uvx-sim-truth 1\nshape 2 8 2\nlevel 7 0 0 1.0\nend\n", "truth file line 3: unknown station"}};
    for (const auto& k : bad) {
        std::istringstream s(k.text);
        EXPECT_FALSE(back.Load(s, &error));
        if (k.message)
            EXPECT_STREQ(error.GetString(), k.message);
        else
            EXPECT_NE(error.Find("truth file line"), -1);
    }
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
                    // Unwrapped phase steps add up to the phase span across the band.
                    if (ch > 0)
                        span += std::arg(t.Bandpass(st.id, f, hand, ch) / t.Bandpass(st.id, f, hand, ch - 1));
                }
                EXPECT_NEAR(power / 64, 1.0, 1e-12);
                // Between 0.6 and 1.6 turns across the band: the phase wraps at least once.
                EXPECT_GT(std::abs(span), 0.5 * 2 * 3.14159265358979);
                const double m = t.Level(st.id, f, hand);
                EXPECT_GE(m, 0.6);
                EXPECT_LE(m, 1.5);
            }
}
