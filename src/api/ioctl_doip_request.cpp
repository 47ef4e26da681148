#include "api/ioctl_doip_request.h"

#include <cstddef>
#include <cstring>
#include <limits>

#include "link/wire.h"
#include "link/wire_packets.h"

namespace tarvik {
namespace {

constexpr std::size_t kAddressSize = 16;
static_assert(sizeof(PDU_IP_ADDR_INFO) == kAddressSize);

// These fields with type and length filled in, and `data` after them.
template <typename Wire>
DoipRequest MakeRequest(Wire fields, ByteView data = {}) {
    DoipRequest request;
    const std::size_t length = sizeof fields + data.size;
    if (length > std::numeric_limits<std::uint32_t>::max()) return request;
    request.bytes.reset(static_cast<std::uint8_t*>(AllocateMem(length)));
    if (request.bytes == nullptr) return request;

    fields.type = kTypeDoip;
    fields.length = request.length = static_cast<std::uint32_t>(length);
    std::memcpy(request.bytes.get(), &fields, sizeof fields);
    if (data.size > 0) {
        std::memcpy(request.bytes.get() + sizeof fields, data.data, data.size);
    }
    return request;
}

template <std::size_t N>
void StoreText(char (&field)[N], const char* text) {
    if (text != nullptr) std::memcpy(field, text, strnlen(text, N));
}

}  // namespace

DoipRequest BuildVehicleIdRequest(const PDU_IO_VEHICLE_ID_REQUEST& input) {
    DoipVehicleWire fields{};
    fields.kind = static_cast<std::uint32_t>(DoipRequestKind::kVehicleId);
    fields.preselection_mode = input.PreselectionMode;
    StoreText(fields.preselection, input.PreselectionValue);
    fields.combination_mode = input.CombinationMode;
    fields.discovery_time = input.VehicleDiscoveryTime;
    fields.address_count = input.NumDestinationAddresses;
    const std::size_t addresses =
        input.pDestinationAddresses == nullptr ? 0 : input.NumDestinationAddresses;
    return MakeRequest(fields, {reinterpret_cast<const std::uint8_t*>(input.pDestinationAddresses),
                                addresses * kAddressSize});
}

DoipRequest BuildValueRequest(DoipRequestKind kind, std::uint32_t first, std::uint32_t second) {
    DoipValueWire fields{};
    fields.kind = static_cast<std::uint32_t>(kind);
    fields.first_value = first;
    fields.second_value = second;
    return MakeRequest(fields);
}

}  // namespace tarvik
