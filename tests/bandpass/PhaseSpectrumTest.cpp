// PhaseSpectrum: the four-lane arctangent equals AUVXComplex::phase() to the bit, on every pair of special
// values, at every edge of its argument reduction and on millions of random elements; each channel is
// written at its stride, also in a short last block.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <merovane/bandpass/APhaseUnwrap.h>

namespace {

float FromBits(std::uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

std::uint32_t Bits(float f) {
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}

std::uint64_t Bits(double d) {
    std::uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}

// The elements of `values` as one spectrum; counts the channels whose phase differs in any bit from
// phase() (NaN payloads and the signs of zeros included) and describes the first few.
struct AComparison {
    std::size_t tested = 0;
    std::size_t mismatches = 0;
    std::string first;
};

void Compare(const std::vector<AUVXComplex>& values, AComparison& result) {
    const int nChan = static_cast<int>(values.size());
    AUVXVisibility vis(1, nChan, 1);
    for (int c = 0; c < nChan; ++c) vis.At(0, c, 0) = values[static_cast<std::size_t>(c)];
    std::vector<double> out(values.size());
    PhaseSpectrum(vis, 0, 0, out.data(), 1);
    for (std::size_t c = 0; c < values.size(); ++c) {
        const double want = values[c].phase();
        ++result.tested;
        if (Bits(out[c]) == Bits(want)) continue;
        if (++result.mismatches <= 8) {
            std::ostringstream text;
            text << "atan2(" << std::hexfloat << values[c].im << ", " << values[c].re << ") gave " << out[c]
                 << ", phase() " << want << "\n";
            result.first += text.str();
        }
    }
}

// Values where the scalar code branches: signed zeros, subnormals, the normal range's ends,
// infinities, NaN of both signs and with a payload, and t = |y / x| at the edges of the reduction
// intervals (7/16, 11/16, 19/16, 39/16, 2^25, 2^-29), each with its neighbours.
std::vector<float> SpecialValues() {
    std::vector<float> magnitudes = {0.0f,
                                     FromBits(1),
                                     FromBits(0x007fffff),
                                     std::numeric_limits<float>::min(),
                                     std::numeric_limits<float>::max(),
                                     std::numeric_limits<float>::infinity(),
                                     FromBits(0x7fc00000),
                                     FromBits(0x7fc12345),
                                     1.0f,
                                     2.0f,
                                     0.5f,
                                     1.5f,
                                     3.0f,
                                     0x1.921fb6p+1f,
                                     1e30f,
                                     1e-30f};
    for (std::uint32_t edge : {0x3ee00000u, 0x3f300000u, 0x3f980000u, 0x401c0000u, 0x4c000000u, 0x31000000u})
        for (std::uint32_t d : {edge - 1, edge, edge + 1}) magnitudes.push_back(FromBits(d));
    std::vector<float> values;
    for (float m : magnitudes) {
        values.push_back(m);
        values.push_back(FromBits(Bits(m) ^ 0x80000000u));
    }
    return values;
}

TEST(PhaseSpectrum, EqualsPhaseOnEveryPairOfSpecialValues) {
    const std::vector<float> specials = SpecialValues();
    std::vector<AUVXComplex> values;
    for (float im : specials)
        for (float re : specials) values.push_back({re, im, 1.0f});
    AComparison result;
    Compare(values, result);
    EXPECT_EQ(result.tested, specials.size() * specials.size());
    EXPECT_EQ(result.mismatches, 0u) << result.first;
}

// y / x exactly on each side of every reduction edge and of the exponent gaps of 2^60 and 2^-60 where
// the scalar code skips the arctangent, for x of many sizes and both signs: the lanes of one block of
// four take different intervals.
TEST(PhaseSpectrum, EqualsPhaseAtTheEdgesOfTheReduction) {
    std::mt19937 rng(17);
    std::vector<AUVXComplex> values;
    const std::uint32_t edges[] = {0x3ee00000u, 0x3f300000u, 0x3f980000u,
                                   0x401c0000u, 0x4c000000u, 0x31000000u};
    for (int e = -126; e <= 127; e += 3) {
        const float x = std::ldexp(1.0f, e);
        for (std::uint32_t edge : edges)
            for (int d = -4; d <= 4; ++d) {
                const float t = FromBits(edge + static_cast<std::uint32_t>(d));
                const float y = t * x;  // exact unless it leaves the normal range: then still a valid input
                for (int q = 0; q < 4; ++q) values.push_back({q & 1 ? -x : x, q & 2 ? -y : y, 1.0f});
            }
    }
    // Exponent differences of about 60 either way, for random mantissas.
    std::uniform_int_distribution<std::uint32_t> mantissa(0, 0x7fffff);
    for (int i = 0; i < 20000; ++i) {
        const std::int32_t ix =
            static_cast<std::int32_t>((static_cast<std::uint32_t>(1 + i % 253) << 23) | mantissa(rng));
        for (std::int32_t gap : {60 << 23, 61 << 23, -(60 << 23), -(61 << 23)}) {
            const std::int64_t iy = static_cast<std::int64_t>(ix) + gap + mantissa(rng) - 0x400000;
            if (iy <= 0 || iy >= 0x7f800000) continue;
            const float x = FromBits(static_cast<std::uint32_t>(ix)),
                        y = FromBits(static_cast<std::uint32_t>(iy));
            for (int q = 0; q < 4; ++q) values.push_back({q & 1 ? -x : x, q & 2 ? -y : y, 1.0f});
        }
    }
    AComparison result;
    Compare(values, result);
    EXPECT_GT(result.tested, 100000u);
    EXPECT_EQ(result.mismatches, 0u) << result.first;
}

// Millions of random elements: every bit pattern (NaN, infinities and subnormals among them),
// measured-like values of every size and angle, and the axes and diagonals with their neighbours.
TEST(PhaseSpectrum, EqualsPhaseOnMillionsOfRandomElements) {
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> angle(-M_PI, M_PI), logMag(-87.0, 88.0);
    std::uniform_int_distribution<int> ulps(-3, 3);
    AComparison result;
    const int kBlock = 1 << 20;
    std::vector<AUVXComplex> values(kBlock);
    for (int block = 0; block < 2; ++block) {
        for (AUVXComplex& v : values) v = {FromBits(rng()), FromBits(rng()), 1.0f};
        Compare(values, result);
    }
    for (int block = 0; block < 2; ++block) {
        for (AUVXComplex& v : values) {
            const double a = angle(rng), m = std::exp(logMag(rng));
            v = {static_cast<float>(m * std::cos(a)), static_cast<float>(m * std::sin(a)), 1.0f};
        }
        Compare(values, result);
    }
    // On and beside the axes and diagonals: y = +-x and y = 0, x = 0, each moved by a few units.
    for (AUVXComplex& v : values) {
        const float x = FromBits(rng() & 0x7f7fffffu);
        const std::uint32_t kind = rng() % 3;
        float y = kind == 0   ? x
                  : kind == 1 ? 0.0f
                              : FromBits(Bits(x) + static_cast<std::uint32_t>(ulps(rng)));
        float re = x;
        if (rng() & 1) std::swap(re, y);
        v = {rng() & 1 ? -re : re, rng() & 1 ? -y : y, 1.0f};
    }
    Compare(values, result);
    EXPECT_EQ(result.tested, 5u * kBlock);
    EXPECT_EQ(result.mismatches, 0u) << result.first;
}

// Every channel lands at its stride and nothing between is written; a spectrum shorter than a block
// and one with a short last block take the same values as the whole.
TEST(PhaseSpectrum, WritesEachChannelAtItsStride) {
    for (int nChan : {1, 2, 3, 5, 7, 8, 13}) {
        SCOPED_TRACE(nChan);
        AUVXVisibility vis(2, nChan, 3);
        for (int iIF = 0; iIF < 2; ++iIF)
            for (int c = 0; c < nChan; ++c)
                for (int s = 0; s < 3; ++s)
                    vis.At(iIF, c, s) = {std::cos(0.3f * c + s + 5.0f * iIF),
                                         std::sin(0.3f * c + s + 5.0f * iIF), 1.0f};
        std::vector<double> out(static_cast<std::size_t>(nChan) * 3, 99.0);
        PhaseSpectrum(vis, 1, 2, out.data(), 3);
        for (int c = 0; c < nChan; ++c) {
            const std::size_t at = static_cast<std::size_t>(c) * 3;
            EXPECT_EQ(Bits(out[at]), Bits(static_cast<double>(vis.At(1, c, 2).phase()))) << c;
            EXPECT_EQ(out[at + 1], 99.0);
            EXPECT_EQ(out[at + 2], 99.0);
        }
    }
}

}  // namespace
