#include "comparam/comparam_table.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace tarvik {
namespace {

constexpr bool IdsArePositions() {
    for (std::uint32_t position = 0; position < kComParamCount; ++position) {
        if (kComParamTable[position].id != position + 1) return false;
    }
    return true;
}
static_assert(IdsArePositions());

constexpr std::string_view NameOf(std::uint32_t id) { return kComParamTable[id - 1].name; }

static_assert(NameOf(kCpP2Max) == "CP_P2Max");
static_assert(NameOf(kCpRC78Handling) == "CP_RC78Handling");
static_assert(NameOf(kCpTesterPresentMessage) == "CP_TesterPresentMessage");
static_assert(NameOf(kCpTesterPresentTime) == "CP_TesterPresentTime");
static_assert(NameOf(kCpCanFuncReqFormat) == "CP_CanFuncReqFormat");
static_assert(NameOf(kCpCanFuncReqId) == "CP_CanFuncReqId");
static_assert(NameOf(kCpCanPhysReqFormat) == "CP_CanPhysReqFormat");
static_assert(NameOf(kCpCanPhysReqId) == "CP_CanPhysReqId");
static_assert(NameOf(kCpCanRespUSDTFormat) == "CP_CanRespUSDTFormat");
static_assert(NameOf(kCpCanRespUSDTId) == "CP_CanRespUSDTId");
static_assert(NameOf(kCpRequestAddrMode) == "CP_RequestAddrMode");
static_assert(NameOf(kCpSessionTimingOverride) == "CP_SessionTimingOverride");
static_assert(NameOf(kCpAccessTimingOverride) == "CP_AccessTimingOverride");
static_assert(NameOf(kCpAccessTimingEcu) == "CP_AccessTiming_Ecu");
static_assert(NameOf(kCpSessionTimingEcu) == "CP_SessionTiming_Ecu");

constexpr std::array<std::uint32_t, kComParamCount> SortIdsByName() {
    std::array<std::uint32_t, kComParamCount> ids{};
    for (std::uint32_t position = 0; position < kComParamCount; ++position) {
        ids[position] = position + 1;
    }
    std::sort(ids.begin(), ids.end(),
              [](std::uint32_t a, std::uint32_t b) { return NameOf(a) < NameOf(b); });
    return ids;
}
constexpr std::array<std::uint32_t, kComParamCount> kIdsByName = SortIdsByName();

// Otherwise a search by name could return any of several rows.
constexpr bool NamesAreUnique() {
    for (std::uint32_t at = 1; at < kComParamCount; ++at) {
        if (NameOf(kIdsByName[at - 1]) == NameOf(kIdsByName[at])) return false;
    }
    return true;
}
static_assert(NamesAreUnique());

constexpr bool AllAreDescribed() {
    return std::ranges::all_of(kComParamTable, [](const ComParamDescription& row) {
        return row.description != nullptr && row.description[0] != '\0';
    });
}
static_assert(AllAreDescribed());

}  // namespace

const ComParamDescription& DescribeComParam(std::uint32_t id) { return kComParamTable[id - 1]; }

std::uint32_t FindComParamId(std::string_view name) {
    const auto found = std::lower_bound(
        kIdsByName.begin(), kIdsByName.end(), name,
        [](std::uint32_t id, std::string_view wanted) { return NameOf(id) < wanted; });
    return found != kIdsByName.end() && NameOf(*found) == name ? *found : 0;
}

}  // namespace tarvik
