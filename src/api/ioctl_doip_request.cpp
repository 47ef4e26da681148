#include "api/ioctl_doip_request.h"

#include <cstddef>
#include <cstring>
#include <limits>

#include "link/wire.h"

namespace tarvik {
namespace {

constexpr char kMagic[4] = {'P', 'I', 'O', 'D'};

// Offsets in the record.
constexpr std::size_t kLengthAt = 4;
constexpr std::size_t kKindAt = 8;
constexpr std::size_t kFirstValueAt = 12;
constexpr std::size_t kSecondValueAt = 16;  // kinds 4 to 6
constexpr std::size_t kVinAt = 16;          // kind 3, as are the following
constexpr std::size_t kCombinationModeAt = 36;
constexpr std::size_t kDiscoveryTimeAt = 40;
constexpr std::size_t kAddressCountAt = 44;
constexpr std::size_t kAddressesAt = 48;

constexpr std::size_t kValueRequestSize = 20;
constexpr std::size_t kVinSize = 17;
constexpr std::size_t kAddressSize = 16;
static_assert(sizeof(PDU_IP_ADDR_INFO) == kAddressSize);

DoipRequest StartRequest(DoipRequestKind kind, std::size_t length, std::uint32_t first_value) {
    DoipRequest request;
    if (length > std::numeric_limits<std::uint32_t>::max()) return request;
    request.bytes.reset(static_cast<std::uint8_t*>(AllocateMem(length)));
    if (request.bytes == nullptr) return request;

    request.length = static_cast<std::uint32_t>(length);
    std::uint8_t* bytes = request.bytes.get();
    std::memcpy(bytes, kMagic, sizeof kMagic);
    StoreU32(bytes + kLengthAt, request.length);
    StoreU32(bytes + kKindAt, static_cast<std::uint32_t>(kind));
    StoreU32(bytes + kFirstValueAt, first_value);
    return request;
}

std::size_t VinLength(const char* text) {
    std::size_t length = 0;
    while (length < kVinSize && text[length] != '\0')
        ++length;
    return length;
}

}  // namespace

DoipRequest BuildVehicleIdRequest(const PDU_IO_VEHICLE_ID_REQUEST& input) {
    const std::size_t addresses =
        input.pDestinationAddresses == nullptr ? 0 : input.NumDestinationAddresses;
    DoipRequest request =
        StartRequest(DoipRequestKind::kVehicleId, kAddressesAt + addresses * kAddressSize,
                     input.PreselectionMode);
    if (request.bytes == nullptr) return request;

    std::uint8_t* bytes = request.bytes.get();
    if (input.PreselectionValue != nullptr) {
        std::memcpy(bytes + kVinAt, input.PreselectionValue, VinLength(input.PreselectionValue));
    }
    StoreU32(bytes + kCombinationModeAt, input.CombinationMode);
    StoreU32(bytes + kDiscoveryTimeAt, input.VehicleDiscoveryTime);
    StoreU32(bytes + kAddressCountAt, input.NumDestinationAddresses);
    if (addresses > 0) {
        std::memcpy(bytes + kAddressesAt, input.pDestinationAddresses, addresses * kAddressSize);
    }
    return request;
}

DoipRequest BuildValueRequest(DoipRequestKind kind, std::uint32_t first, std::uint32_t second) {
    DoipRequest request = StartRequest(kind, kValueRequestSize, first);
    if (request.bytes != nullptr) StoreU32(request.bytes.get() + kSecondValueAt, second);
    return request;
}

}  // namespace tarvik
