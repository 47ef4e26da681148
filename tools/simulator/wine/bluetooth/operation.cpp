#include "wine/bluetooth/operation.h"

#include <atomic>

namespace brennix {

bool NextIsEarly() {
    static std::atomic<unsigned> begun{0};
    return begun++ % 2 == 0;
}

}  // namespace brennix
