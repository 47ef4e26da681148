#include "link/wire_packets.h"

#include <numeric>

#include "link_support.h"

namespace tarvik::test {
namespace {

// A packet whose payload counts 8, 9, 10, ... so that every byte is its own offset.
PacketPtr CountingPacket(std::size_t length) {
    Bytes payload(length - MIN_PKT_SIZE);
    std::iota(payload.begin(), payload.end(), std::uint8_t{8});
    return PacketOf(kTypePing, payload);
}

// The little-endian numbers that a CountingPacket has at an offset.
constexpr std::uint32_t U32At(std::uint32_t offset) { return 0x03020100 + offset * 0x01010101; }
constexpr std::uint16_t U16At(std::uint32_t offset) {
    return static_cast<std::uint16_t>(0x0100 + offset * 0x0101);
}
std::uint32_t OffsetOf(const std::uint8_t* field) { return *field; }
std::uint32_t OffsetOf(const char* field) { return static_cast<unsigned char>(*field); }

// Reads the record from a packet of exactly its size, after a packet one byte shorter was refused.
template <typename Wire>
Wire ReadCounting(std::size_t size) {
    EXPECT_FALSE(CountingPacket(size - 1)->Fields<Wire>().has_value());
    const PacketPtr packet = CountingPacket(size);
    const auto fields = packet->Fields<Wire>();
    EXPECT_TRUE(fields.has_value());
    EXPECT_EQ(fields->type, kTypePing);
    EXPECT_EQ(fields->length, size);
    return *fields;
}

TEST(WirePackets, LoginFieldsAreAtTheirOffsets) {
    const auto login = ReadCounting<LoginWire>(192);
    EXPECT_EQ(OffsetOf(login.mac), 12u);
    EXPECT_EQ(sizeof login.mac, 6u);
    EXPECT_EQ(login.model, U32At(20));
    EXPECT_EQ(OffsetOf(login.firmware_version), 32u);
    EXPECT_EQ(sizeof login.firmware_version, 32u);
    EXPECT_EQ(OffsetOf(login.device_name), 64u);
    EXPECT_EQ(sizeof login.device_name, 32u);
    EXPECT_EQ(OffsetOf(login.build_time), 96u);
    EXPECT_EQ(sizeof login.build_time, 16u);
    EXPECT_EQ(OffsetOf(login.build_date), 112u);
    EXPECT_EQ(sizeof login.build_date, 16u);
    EXPECT_EQ(kLoginSize, 192u);
}

TEST(WirePackets, AddressFieldsAreAtTheirOffsets) {
    const auto address = ReadCounting<AddressWire>(16);
    EXPECT_EQ(OffsetOf(address.mac), 8u);
    EXPECT_EQ(sizeof address.mac, 6u);
}

TEST(WirePackets, RequestFieldsAreAtTheirOffsets) {
    const auto request = ReadCounting<CommRequestWire>(32);
    EXPECT_EQ(request.can_id_tx_func, U32At(8));
    EXPECT_EQ(request.can_id_tx_phys, U32At(12));
    EXPECT_EQ(request.can_id_rx, U32At(16));
    EXPECT_EQ(request.timeout, U32At(20));
    EXPECT_EQ(request.data_length, U16At(24));
    EXPECT_EQ(request.transport, 26u);
    EXPECT_EQ(request.reserved, 27u);
    EXPECT_EQ(request.req_id, U32At(28));
    EXPECT_EQ(kCommRequestMulti, 0xFFFFEEEEu);
    EXPECT_EQ(kCommRequestAlignment, 8u);
}

TEST(WirePackets, RequestEntryIsTwoNumbers) {
    const PacketPtr packet = CountingPacket(16);
    CommRequestEntryWire entry;
    ASSERT_EQ(sizeof entry, 8u);
    std::memcpy(&entry, packet->Bytes() + 8, sizeof entry);
    EXPECT_EQ(entry.addr_a, U32At(8));
    EXPECT_EQ(entry.addr_b, U32At(12));
}

TEST(WirePackets, ResponseFieldsAreAtTheirOffsets) {
    const auto response = ReadCounting<CommResponseWire>(20);
    EXPECT_EQ(response.wait_time, U32At(8));
    EXPECT_EQ(response.data_length, U32At(12));
    EXPECT_EQ(response.req_id, U32At(16));
    EXPECT_EQ(kWaitTimeMulti, 0xFFFFFFFDu);
    EXPECT_EQ(kWaitTimeError, 0xFFFFFFFEu);
    EXPECT_EQ(kWaitTimeNoAnswer, 0xFFFFFFFFu);
}

TEST(WirePackets, ResponseEntryIsIdAndLength) {
    const PacketPtr packet = CountingPacket(16);
    CommResponseEntryWire entry;
    ASSERT_EQ(sizeof entry, 8u);
    std::memcpy(&entry, packet->Bytes() + 8, sizeof entry);
    EXPECT_EQ(entry.id, U32At(8));
    EXPECT_EQ(entry.data_length, U32At(12));
    EXPECT_EQ(kCommResponseAlignment, 8u);
}

TEST(WirePackets, BusyFieldsAreAtTheirOffsets) {
    EXPECT_EQ(ReadCounting<BusyWire>(12).req_id, U32At(8));
}

TEST(WirePackets, RawFrameFieldsAreAtTheirOffsets) {
    const auto frame = ReadCounting<RawFrameWire>(24);
    EXPECT_EQ(frame.can_id, U32At(8));
    EXPECT_EQ(frame.data_count, U16At(12));
    EXPECT_EQ(frame.flags, U16At(14));
    EXPECT_EQ(OffsetOf(frame.data), 16u);
    EXPECT_EQ(sizeof frame.data, 8u);
    EXPECT_EQ(kRawFrame, 0u);
    EXPECT_EQ(kRawReceptionOn, 1u);
    EXPECT_EQ(kRawReceptionOff, 2u);
}

TEST(WirePackets, TesterPresentFieldsAreAtTheirOffsets) {
    const auto tester_present = ReadCounting<TesterPresentWire>(16);
    EXPECT_EQ(tester_present.period_ms, U32At(8));
    EXPECT_EQ(tester_present.value, U32At(12));
    EXPECT_EQ(kTesterPresentValue, 0x700u);
}

TEST(WirePackets, FragmentFieldsAreAtTheirOffsets) {
    const auto fragment = ReadCounting<FragmentWire>(16);
    EXPECT_EQ(fragment.index, U16At(8));
    EXPECT_EQ(fragment.count, U16At(10));
    EXPECT_EQ(fragment.total_length, U32At(12));
}

TEST(WirePackets, DoipFieldsAreAtTheirOffsets) {
    const auto values = ReadCounting<DoipValueWire>(20);
    EXPECT_EQ(values.kind, U32At(8));
    EXPECT_EQ(values.first_value, U32At(12));
    EXPECT_EQ(values.second_value, U32At(16));
    const auto vehicle = ReadCounting<DoipVehicleWire>(48);
    EXPECT_EQ(vehicle.kind, U32At(8));
    EXPECT_EQ(vehicle.preselection_mode, U32At(12));
    EXPECT_EQ(OffsetOf(vehicle.preselection), 16u);
    EXPECT_EQ(sizeof vehicle.preselection, 17u);
    EXPECT_EQ(vehicle.combination_mode, U32At(36));
    EXPECT_EQ(vehicle.discovery_time, U32At(40));
    EXPECT_EQ(vehicle.address_count, U32At(44));
}

TEST(WirePackets, DeviceIdentityFieldsAreAtTheirOffsets) {
    const auto identity = ReadCounting<DeviceIdentityWire>(84);
    EXPECT_EQ(OffsetOf(identity.short_id), 8u);
    EXPECT_EQ(sizeof identity.short_id, 6u);
    EXPECT_EQ(OffsetOf(identity.public_key), 16u);
    EXPECT_EQ(sizeof identity.public_key, 65u);
    const auto ack = ReadCounting<DeviceIdentityAckWire>(16);
    EXPECT_EQ(ack.status, U32At(8));
    EXPECT_EQ(ack.capabilities, U32At(12));
}

TEST(BuildPacket, PutsTheDataAfterTheFieldsAndCountsBoth) {
    const Bytes message = {0x3E, 0x00};
    const PacketPtr packet = BuildPacket(
        TesterPresentWire{
            .type = kTypeTspr, .length = 0, .period_ms = 2000, .value = kTesterPresentValue},
        {message.data(), message.size()});
    EXPECT_EQ(BytesOf(packet),
              (Bytes{'R', 'P', 'S', 'T', 18, 0, 0, 0, 0xD0, 7, 0, 0, 0, 7, 0, 0, 0x3E, 0x00}));
    EXPECT_EQ(packet->DataAfter<TesterPresentWire>().size, 2u);
    EXPECT_EQ(packet->DataAfter<TesterPresentWire>().data, packet->Bytes() + 16);
}

TEST(BuildPacket, WithoutDataEndsAfterTheFields) {
    const PacketPtr packet = BuildPacket(BusyWire{.type = kTypeBusy, .length = 0, .req_id = 7});
    EXPECT_EQ(BytesOf(packet), (Bytes{'Y', 'S', 'U', 'B', 12, 0, 0, 0, 7, 0, 0, 0}));
    EXPECT_EQ(packet->DataAfter<BusyWire>().size, 0u);
}

}  // namespace
}  // namespace tarvik::test
