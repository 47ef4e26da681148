// The live table of frames, as wide and as high as the terminal allows.

#ifndef TOOLS_DPDU_RAW_FRAME_TABLE_H
#define TOOLS_DPDU_RAW_FRAME_TABLE_H

#include <string>
#include <vector>

#include "raw/frame_counts.h"

namespace dpdu {

struct FrameTableLook {
    std::size_t columns = 80;
    std::size_t lines = 24;    // of the terminal; the table leaves the last one free
    bool has_rates = true;     // and those below it; without, all identifiers are shown
    bool has_changes = false;  // shows the bytes that have changed a short time ago in reverse
};

// Columns that do not fit are left out, the least important first.
std::vector<std::string> FrameTableLines(const FrameCounts& counts, FrameRate::Time now,
                                         const FrameTableLook& look);

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_FRAME_TABLE_H
