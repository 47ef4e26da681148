#include "trace/sessions.h"

#include <algorithm>

namespace dpdu::trace {

void Sessions::Take(const Record& record) {
    if (record.event == Event::kLogStart || !is_open_) {
        sessions_.push_back({.process = record.U32(Field::kProcess),
                             .number = record.U32(Field::kSession),
                             .first_us = record.TimeUs()});
        is_open_ = true;
    }
    Session& session = sessions_.back();
    ++session.records;
    session.first_us = std::min(session.first_us, record.TimeUs());
    session.last_us = std::max(session.last_us, record.TimeUs());
    if (record.event == Event::kLogStop) session.was_stopped = true;
}

}  // namespace dpdu::trace
