#include "transport/cloud/cloud_state.h"

namespace tarvik {

Immortal<CloudState> cloud;

DeviceAddress AddressFromMac(const std::uint8_t* mac) { return {LoadU32(mac), LoadU16(mac + 4)}; }

void SetAndAnnounce(std::atomic<bool>* flag) {
    const LockGuard hold(cloud->change_lock);
    *flag = true;
    cloud->changed.WakeAll();
}

}  // namespace tarvik
