#include "vehicle/behaviour.h"

namespace brennix {

namespace {

template <typename T>
void TakeOver(std::optional<T>* target, const std::optional<T>& source) {
    if (source) *target = source;
}

}  // namespace

void Behaviour::Override(const Behaviour& special) {
    TakeOver(&delay_ms, special.delay_ms);
    TakeOver(&silent, special.silent);
    TakeOver(&negative, special.negative);
    TakeOver(&pending, special.pending);
    TakeOver(&pending_interval_ms, special.pending_interval_ms);
    TakeOver(&repeat, special.repeat);
    TakeOver(&busy, special.busy);
    TakeOver(&busy_interval_ms, special.busy_interval_ms);
    TakeOver(&busy_reason, special.busy_reason);
    TakeOver(&lost, special.lost);
    TakeOver(&wrong_id, special.wrong_id);
    TakeOver(&stray, special.stray);
    TakeOver(&duplicate, special.duplicate);
    TakeOver(&fragment, special.fragment);
    TakeOver(&garbage, special.garbage);
    TakeOver(&seal, special.seal);
    TakeOver(&foreign_entries, special.foreign_entries);
    TakeOver(&for_requests, special.for_requests);
}

void Behaviour::CountRequest() {
    if (!for_requests) return;
    if (*for_requests <= 1) {
        *this = Behaviour{};
        return;
    }
    --*for_requests;
}

}  // namespace brennix
