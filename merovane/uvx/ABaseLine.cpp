// ABaseLine: the sorted set of baselines of an interval.
#include <merovane/uvx/ABaseLine.h>

template class AArray<ABaseLineItem>;

namespace {
// Negative, 0 or positive as a sorts before, with or after b.
int compareItems(const ABaseLineItem& a, const ABaseLineItem& b) {
    if (ABaseLine::Ant1(a) != ABaseLine::Ant1(b)) return ABaseLine::Ant1(a) < ABaseLine::Ant1(b) ? -1 : 1;
    if (ABaseLine::Ant2(a) != ABaseLine::Ant2(b)) return ABaseLine::Ant2(a) < ABaseLine::Ant2(b) ? -1 : 1;
    if (a.flag != b.flag) return a.flag < b.flag ? -1 : 1;
    return 0;
}
}  // namespace

ABaseLine::ABaseLine(int n, int grow) : AArray<ABaseLineItem>(n) {
    growBy = grow;
}

int ABaseLine::checkBase(ABaseLineItem& item) {
    // Binary search for the first item not before `item`.
    int lo = 0, hi = count;
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (compareItems(data[mid], item) < 0)
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo < count && compareItems(data[lo], item) == 0) return lo;
    return InsertAt(lo, item);
}

ABaseLineItem ABaseLine::Make(std::int8_t ant1, std::int8_t ant2, std::uint8_t flag) {
    ABaseLineItem item;
    item.ants = static_cast<std::uint16_t>(
        static_cast<std::uint8_t>(ant1) | (static_cast<std::uint16_t>(static_cast<std::uint8_t>(ant2)) << 8));
    item.flag = flag;
    return item;
}
