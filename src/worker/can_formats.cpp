#include "worker/can_formats.h"

#include <iterator>

namespace tarvik {
namespace {

// By bit: 0 with flow control, 1 29-bit identifier, 2 segmented, 3 extended addressing.
constexpr const char* kCanFormatNames[] = {
    "11-bit, unsegmented, w/o FC",
    "11-bit, unsegmented, w/ FC",
    "29-bit, unsegmented, w/o FC",
    "29-bit, unsegmented, w/ FC",
    "11-bit, segmented, w/o FC",
    "11-bit, segmented, w/ FC",
    "29-bit, segmented, w/o FC",
    "29-bit, segmented, w/ FC",
    "extended, 11-bit, unsegmented, w/o FC",
    "extended, 11-bit, unsegmented, w/ FC",
    "extended, 29-bit, unsegmented, w/o FC",
    "extended, 29-bit, unsegmented, w/ FC",
    "extended, 11-bit, segmented, w/o FC",
    "extended, 11-bit, segmented, w/ FC",
    "extended, 29-bit, segmented, w/o FC",
    "extended, 29-bit, segmented, w/ FC",
};

}  // namespace

const char* CanFormatName(std::uint32_t format) {
    return format < std::size(kCanFormatNames) ? kCanFormatNames[format] : "unknown format";
}

}  // namespace tarvik
