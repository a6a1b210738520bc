// AFitsAntabWriter: GAIN and TSYS blocks, one pair per station, from the FITS-IDI a-priori tables.
#include "AFitsAntabWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "AFitsConventions.h"
#include "AFitsUVXOutput.h"

namespace {

struct ATsysRow {
    double time;                 // days from 0h of the reference day
    std::vector<double> values;  // pol 1 bands, then pol 2 bands
};

std::string number(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.9g", v);
    return text;
}

// Day of the year and "hh:mm:ss.ssss" of a time in days from 0h of the reference day, as an ANTAB row
// starts.
std::string rowTime(double refJD, double days) {
    double jd = refJD + days;
    double dayStart = std::floor(jd - 0.5) + 0.5;
    double seconds = (jd - dayStart) * 86400.0;
    // Rounding the seconds to the printed precision may reach the next day.
    seconds = std::round(seconds * 1e4) / 1e4;
    if (seconds >= 86400.0) {
        seconds -= 86400.0;
        dayStart += 1.0;
    }
    int y, m, d;
    AFitsCalendarDate(dayStart, y, m, d);
    const int doy = static_cast<int>(dayStart - AFitsJulianDate(y, 1, 1)) + 1;
    const int h = static_cast<int>(seconds / 3600.0);
    const int mi = static_cast<int>((seconds - h * 3600.0) / 60.0);
    const double s = seconds - h * 3600.0 - mi * 60.0;
    char text[48];
    std::snprintf(text, sizeof text, "%d %02d:%02d:%07.4f", doy, h, mi, s);
    return text;
}

}  // namespace

bool AFitsAntabWriter::Write(AFitsFile& fits, const AFitsAntabContext& ctx, const std::string& path) {
    const std::string& in = fits.Path();
    std::ostringstream text;
    text << "! ANTAB from the GAIN_CURVE and SYSTEM_TEMPERATURE tables of " << in << "\n";
    text << "! Tsys values carry their scale already (FT = 1); 0.0 marks a missing measurement.\n";

    // Gain curves by antenna.
    std::map<int, std::string> gainLines;
    if (!fits.MoveToTable("GAIN_CURVE")) {
        m_err = in + ": no GAIN_CURVE table";
        return false;
    }
    {
        const long long rows = fits.RowCount();
        const int cAnt = fits.ColumnNumber("ANTENNA_NO"), cFq = fits.ColumnNumber("FREQID"),
                  cType = fits.ColumnNumber("TYPE_1"), cN = fits.ColumnNumber("NTERM_1"),
                  cGain1 = fits.ColumnNumber("GAIN_1"), cSens1 = fits.ColumnNumber("SENS_1"),
                  cSens2 = fits.ColumnNumber("SENS_2");
        if (rows < 0 || !cAnt || !cType || !cN || !cGain1 || !cSens1) {
            m_err = in + ": table GAIN_CURVE lacks one of ANTENNA_NO, TYPE_1, NTERM_1, GAIN_1, SENS_1";
            return false;
        }
        std::vector<double> ant, fq, type, nterm, gain, sens1, sens2;
        if (!fits.ReadColumn(cAnt, 1, rows, ant) || (cFq && !fits.ReadColumn(cFq, 1, rows, fq)) ||
            !fits.ReadColumn(cType, 1, rows, type) || !fits.ReadColumn(cN, 1, rows, nterm) ||
            !fits.ReadColumn(cGain1, 1, rows, gain) || !fits.ReadColumn(cSens1, 1, rows, sens1) ||
            (cSens2 && !fits.ReadColumn(cSens2, 1, rows, sens2))) {
            m_err = fits.m_err;
            return false;
        }
        const long long nb = fits.ColumnRepeat(cType);
        const long long nTab = nb > 0 ? fits.ColumnRepeat(cGain1) / nb : 0;
        if (nb < 1 || nTab < 1 || fits.ColumnRepeat(cN) != nb || fits.ColumnRepeat(cSens1) != nb ||
            (cSens2 && fits.ColumnRepeat(cSens2) != nb) || fits.ColumnRepeat(cAnt) != 1 ||
            (cFq && fits.ColumnRepeat(cFq) != 1)) {
            m_err = in +
                    ": table GAIN_CURVE: TYPE_1, NTERM_1 and SENS_1 must hold one value per band, GAIN_1 a "
                    "whole number of terms per band";
            return false;
        }
        for (long long r = 0; r < rows; ++r) {
            const int a = AFitsToInt(ant[r]);
            if (cFq && AFitsToInt(fq[r]) != ctx.freqId) continue;
            auto name = ctx.names.find(a);
            if (name == ctx.names.end() || gainLines.count(a)) continue;
            // The first band speaks for the station: an ANTAB GAIN line holds one curve.
            const int t = AFitsToInt(type[r * nb]);
            const int n = std::min<int>(AFitsToInt(nterm[r * nb]), static_cast<int>(nTab));
            if (t != 2 && t != 3) {
                gainLines[a] = "! " + name->second + ": gain curve of TYPE " + std::to_string(t) +
                               " has no ANTAB form and is left out\n";
                continue;
            }
            std::string hands = ctx.hands.count(a) ? ctx.hands.at(a) : "RL";
            double dpfu[2] = {sens1[r * nb], cSens2 ? sens2[r * nb] : sens1[r * nb]};
            // DPFU is listed R first, then L.
            if (hands[0] == 'L') std::swap(dpfu[0], dpfu[1]);
            std::string line = "GAIN " + name->second + (t == 3 ? " ELEV" : " ALTAZ") +
                               " DPFU=" + number(dpfu[0]) + "," + number(dpfu[1]);
            char freq[64];
            std::snprintf(freq, sizeof freq, " FREQ=%.0f,%.0f", std::floor(ctx.freqLowHz / 1e6) - 1.0,
                          std::ceil(ctx.freqHighHz / 1e6) + 1.0);
            line += freq;
            line += " POLY=";
            for (int k = 0; k < std::max(n, 1); ++k) {
                if (k) line += ",";
                line += number(n > 0 ? gain[r * nb * nTab + k] : 1.0);
            }
            gainLines[a] = line + " /\n";
            ++m_gainStations;
        }
    }

    // System temperatures by antenna, in time order.
    std::map<int, std::vector<ATsysRow>> tsys;
    if (!fits.MoveToTable("SYSTEM_TEMPERATURE")) {
        m_err = in + ": no SYSTEM_TEMPERATURE table";
        return false;
    }
    {
        const long long rows = fits.RowCount();
        const int cTime = fits.ColumnNumber("TIME"), cAnt = fits.ColumnNumber("ANTENNA_NO"),
                  cFq = fits.ColumnNumber("FREQID"), cT1 = fits.ColumnNumber("TSYS_1"),
                  cT2 = fits.ColumnNumber("TSYS_2");
        if (rows < 0 || !cTime || !cAnt || !cT1) {
            m_err = in + ": table SYSTEM_TEMPERATURE lacks one of TIME, ANTENNA_NO, TSYS_1";
            return false;
        }
        std::vector<double> time, ant, fq, t1, t2;
        if (!fits.ReadColumn(cTime, 1, rows, time) || !fits.ReadColumn(cAnt, 1, rows, ant) ||
            (cFq && !fits.ReadColumn(cFq, 1, rows, fq)) || !fits.ReadColumn(cT1, 1, rows, t1) ||
            (cT2 && !fits.ReadColumn(cT2, 1, rows, t2))) {
            m_err = fits.m_err;
            return false;
        }
        const long long nb = fits.ColumnRepeat(cT1);
        if (nb != ctx.nBand || (cT2 && fits.ColumnRepeat(cT2) != nb) || fits.ColumnRepeat(cTime) != 1 ||
            fits.ColumnRepeat(cAnt) != 1 || (cFq && fits.ColumnRepeat(cFq) != 1)) {
            m_err = in + ": TSYS_1 of SYSTEM_TEMPERATURE holds " + std::to_string(nb) + " values for " +
                    std::to_string(ctx.nBand) + " bands";
            return false;
        }
        for (long long r = 0; r < rows; ++r) {
            if (cFq && AFitsToInt(fq[r]) != ctx.freqId) continue;
            ATsysRow row;
            row.time = time[r];
            for (long long b = 0; b < nb; ++b) row.values.push_back(t1[r * nb + b]);
            if (cT2)
                for (long long b = 0; b < nb; ++b) row.values.push_back(t2[r * nb + b]);
            tsys[AFitsToInt(ant[r])].push_back(row);
        }
    }

    for (auto& entry : ctx.names) {
        const int a = entry.first;
        const std::string& name = entry.second;
        if (gainLines.count(a)) text << gainLines[a];
        auto it = tsys.find(a);
        if (it == tsys.end()) continue;
        std::vector<ATsysRow>& rows = it->second;
        std::stable_sort(rows.begin(), rows.end(),
                         [](const ATsysRow& x, const ATsysRow& y) { return x.time < y.time; });
        const std::string hands = ctx.hands.count(a) ? ctx.hands.at(a) : "RL";
        const int nPol = static_cast<int>(rows.front().values.size() / ctx.nBand);
        text << "TSYS " << name << " FT=1.0 TIMEOFF=0 INDEX=";
        for (int p = 0; p < nPol; ++p) {
            const char hand = hands[p];
            if (hand != 'R' && hand != 'L') {
                m_err = in + ": antenna " + name + " has polarisation " + std::string(1, hand) +
                        "; ANTAB Tsys columns are R or L";
                return false;
            }
            for (int b = 0; b < ctx.nBand; ++b) text << (p || b ? "," : "") << "'" << hand << (b + 1) << "'";
        }
        text << " /\n";
        for (const ATsysRow& row : rows) {
            text << rowTime(ctx.refJD, row.time);
            for (double v : row.values)
                text << " " << (std::isfinite(v) && v > 0 ? number(v) : std::string("0.0"));
            text << "\n";
            ++m_tsysRows;
        }
        text << "/\n";
    }

    const std::string temp = AFitsTempName(path);
    std::ofstream file(temp, std::ios::binary | std::ios::trunc);
    file << text.str();
    file.close();
    if (!file) {
        AFitsDiscardFile(path);
        m_err = path + ": cannot be written";
        return false;
    }
    return true;
}
