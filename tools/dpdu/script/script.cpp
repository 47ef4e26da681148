#include "script/script.h"

#include <iterator>

namespace dpdu::script {

const char* KindOf(const Action& action) {
    static constexpr const char* kKinds[] = {"request",        "functional", "expect",     "wait",
                                             "seed-key",       "raw send",   "raw expect", "set",
                                             "print",          "ecu",        "timeout",    "param",
                                             "tester-present", "repeat",     "test"};
    static_assert(std::size(kKinds) == std::variant_size_v<Action>);
    return kKinds[action.index()];
}

}  // namespace dpdu::script
