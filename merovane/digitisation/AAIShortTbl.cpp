// AAIShortTbl: reading the antenna-information table, row lookup by antenna and time, level checks.
#include <merovane/digitisation/AAIShortTbl.h>

#include <cmath>
#include <cstring>
#include <vector>

#include <merovane/foundation/NumberConversion.h>
#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXAntenns.h>

template class AArray<AAIShortTblItem>;

namespace {

constexpr double kSecondsPerDay = 86400.0;
// 1 / ln 2: the level count's natural logarithm times this is its base-2 logarithm.
constexpr double kInvLn2 = 1.4426950408889634;

// Bits per sample from a level count, rounded to the nearest integer.
std::int32_t bitsFromLevels(double levels) {
    if (!(levels > 0.0)) return 0;
    return TruncToInt32(std::log(levels) * kInvLn2 + 0.5);
}

// Which field a column fills; the tests run in this order because "TIME" is part of "TIME_INTERVAL".
enum class Field { None, Duration, Centre, Antenna, Levels, FreqId };

Field fieldOf(const CString& name) {
    if (name.Find("TIME_INTERVAL") >= 0) return Field::Duration;
    if (name.Find("TIME") >= 0) return Field::Centre;
    if (name.Find("ANTENNA_NO") >= 0) return Field::Antenna;
    if (name.Find("NO_LEVELS") >= 0) return Field::Levels;
    if (name.Find("FREQID") >= 0) return Field::FreqId;
    return Field::None;
}

}  // namespace

AAIShortTbl::AAIShortTbl() {
    growBy = 256;
}

AAIShortTbl::AAIShortTbl(AUVXTable* table) {
    growBy = 256;
    Load(table);
}

AAIShortTbl::AAIShortTbl(const AAIShortTbl& other) : AArray<AAIShortTblItem>(other) {}

AAIShortTbl& AAIShortTbl::operator=(const AAIShortTbl& other) {
    AArray<AAIShortTblItem>::operator=(other);
    return *this;
}

AAIShortTbl::~AAIShortTbl() {}

void AAIShortTbl::Load(AUVXTable* table) {
    const int nRows = (table != nullptr && table->nRows > 0) ? table->nRows : 0;
    SetCount(nRows);
    ZeroInit();
    if (nRows == 0) return;

    const int nCols = table->nCols;
    std::vector<Field> fields;
    std::vector<AXTblFormat> formats;
    for (int c = 0; c < nCols; ++c) {
        fields.push_back(fieldOf(table->ColumnName(c)));
        formats.push_back(table->ParseFormat(c));
    }

    const std::int64_t rowBytes = table->rowBytes;
    for (int r = 0; r < nRows; ++r) {
        AAIShortTblItem& item = data[r];
        const unsigned char* row = table->rows + static_cast<std::int64_t>(r) * rowBytes;
        std::int64_t pos = 0;
        bool rowOk = true;
        for (int c = 0; c < nCols && rowOk; ++c) {
            const AXTblFormat format = formats[c];
            for (int e = 0; e < format.count; ++e) {
                const int size = AXTblTypeSize(format.type);
                if (size <= 0 || pos + size > rowBytes) {
                    // A type of unknown width leaves no way to find the next column.
                    rowOk = false;
                    break;
                }
                const unsigned char* at = row + pos;
                pos += size;
                if (e != 0) continue;

                double value = 0.0;
                bool hasValue = true;
                if (format.type == 'D') {
                    std::memcpy(&value, at, sizeof(double));
                } else if (format.type == 'E') {
                    float f;
                    std::memcpy(&f, at, sizeof(float));
                    value = f;
                } else if (format.type == 'J') {
                    std::int32_t i;
                    std::memcpy(&i, at, sizeof(i));
                    value = i;
                } else {
                    hasValue = false;
                }
                if (!hasValue) continue;

                switch (fields[c]) {
                    case Field::Duration:
                        item.end = value * kSecondsPerDay;
                        break;
                    case Field::Centre:
                        item.start = value * kSecondsPerDay;
                        break;
                    case Field::Antenna:
                        item.antenna = TruncToInt32(value);
                        break;
                    case Field::Levels:
                        item.noLevels = bitsFromLevels(value);
                        break;
                    case Field::FreqId:
                        item.freqId = TruncToInt32(value);
                        break;
                    case Field::None:
                        break;
                }
            }
        }
        // start holds the centre and end the length: turn them into the range.
        const double centre = item.start;
        const double half = item.end * 0.5;
        item.end = centre + half;
        item.start = centre - half;
    }
}

AAIShortTblItem* AAIShortTbl::FindItem(AUVXGroup& group, bool first) {
    const int antenna = static_cast<std::int8_t>(first ? group.ant1 : group.ant2);
    const int freqId = static_cast<std::int8_t>(group.freqId);
    const double time = group.time;
    AAIShortTblItem* last = nullptr;
    for (int i = 0; i < count; ++i) {
        AAIShortTblItem& item = data[i];
        if (item.antenna != antenna || item.freqId != freqId) continue;
        if (time < item.end) return &item;
        last = &item;
    }
    return last;
}

bool AAIShortTbl::IsOK(AUVXTable* antennaTable) {
    AUVXAntenns antennas;
    if (antennaTable != nullptr) antennas.Init(*antennaTable);
    for (int i = 0; i < count; ++i) {
        const AAIShortTblItem& item = data[i];
        if (item.noLevels < 1) return false;
        const CString name = antennas.ForID(item.antenna).Name();
        if (name.Left(2).Compare("RA") != 0 && item.noLevels < 4) return false;
    }
    return true;
}

void AAIShortTbl::Correct() {
    for (int i = 0; i < count; ++i) {
        AAIShortTblItem& item = data[i];
        if (item.noLevels < 1) continue;
        int t = TruncToInt32(std::log(static_cast<double>(item.noLevels)) * kInvLn2 + 0.5);
        if (t > 29) t = 29;
        item.noLevels = 1 << (t + 1);
    }
}
