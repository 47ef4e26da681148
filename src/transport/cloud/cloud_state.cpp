#include "transport/cloud/cloud_state.h"

#include <cstring>

namespace tarvik {

Immortal<CloudState> cloud;

DeviceAddress AddressFromMac(const std::uint8_t* mac) {
    DeviceAddress address;
    std::memcpy(address.data(), mac, address.size());
    return address;
}

void SetAndAnnounce(std::atomic<bool>* flag) {
    const LockGuard hold(cloud->change_lock);
    *flag = true;
    cloud->changed.WakeAll();
}

}  // namespace tarvik
