// The sessions of a trace: what one process wrote from log_start to log_stop.

#ifndef TOOLS_DPDU_TRACE_SESSIONS_H
#define TOOLS_DPDU_TRACE_SESSIONS_H

#include <cstdint>
#include <vector>

#include "trace/record.h"

namespace dpdu::trace {

struct Session {
    std::uint32_t process = 0;
    std::uint32_t number = 0;  // 0: its first line is missing
    std::uint64_t records = 0;
    std::uint64_t first_us = 0;
    std::uint64_t last_us = 0;
    bool was_stopped = false;  // false: the process ended or the file was copied before log_stop
};

class Sessions {
public:
    void Take(const Record& record);
    // What follows belongs to another session, also without log_start.
    void EndOfFile() { is_open_ = false; }

    const std::vector<Session>& All() const { return sessions_; }

private:
    std::vector<Session> sessions_;
    bool is_open_ = false;
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_SESSIONS_H
