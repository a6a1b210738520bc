// ABaseLine: the set of baselines of an interval, kept in ascending baseline order.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>

#pragma pack(push, 1)
struct ABaseLineItem {
    // Both antenna bytes as they lie in AUVXGroup: ant1 in the low byte, ant2 in the high byte.
    std::uint16_t ants;
    std::uint8_t flag;
};
#pragma pack(pop)
static_assert(sizeof(ABaseLineItem) == 3, "ABaseLineItem is 3 bytes");

// Declared before the class that derives from it, so that the instantiation is exported.
extern template class MEROVANE_API AArray<ABaseLineItem>;

// Items sort by ant1, then ant2 (as the signed bytes of the group), then flag; each is held once.
class MEROVANE_API ABaseLine : public AArray<ABaseLineItem> {
public:
    // `n` and `grow` as for AArray; (0, 64) gives an empty list.
    ABaseLine(int n, int grow);
    // Makes sure `item` is held once and returns its index in the list.
    int checkBase(ABaseLineItem& item);

    static ABaseLineItem Make(std::int8_t ant1, std::int8_t ant2, std::uint8_t flag);
    static std::int8_t Ant1(const ABaseLineItem& item) { return static_cast<std::int8_t>(item.ants & 0xFF); }
    static std::int8_t Ant2(const ABaseLineItem& item) { return static_cast<std::int8_t>(item.ants >> 8); }
};
