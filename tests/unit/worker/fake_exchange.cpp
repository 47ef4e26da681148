#include "unit/worker/fake_exchange.h"

namespace tarvik {

bool CommRequest(const CommLink* link, const CommRequestData& request, CommAnswer* answer) {
    return test::exchange && test::exchange(*link, request, answer);
}

bool CommRequestMulti(const CommLink* link, CommMultiRequest* request,
                      const std::atomic<bool>* abort) {
    return test::multi_exchange && test::multi_exchange(*link, *request, abort);
}

}  // namespace tarvik
