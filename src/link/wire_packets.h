#pragma once

#include <cstddef>
#include <cstdint>

// The packets between the library and a dongle or relay: type codes, sizes, and the layout of every
// packet that has fields. All integers are little-endian, as on every system this library runs on.
// A packet is built and read in memory in exactly this form. Fields named `reserved` are sent as 0
// and not read. The secure channel's NHS1, NHS2 and CRYP are laid out in transport/cloud.
namespace tarvik {

// Type codes are 32-bit integers whose most significant byte is the first letter.
// Deliberate: stored little-endian, the letters are in reverse order on the wire ("QERC").
constexpr std::uint32_t TypeCode(const char (&letters)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(letters[0])) << 24 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[1])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[2])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[3]));
}

inline constexpr std::uint32_t kTypeSync = TypeCode("SYNC");
inline constexpr std::uint32_t kTypeIden = TypeCode("IDEN");
inline constexpr std::uint32_t kTypeLogn = TypeCode("LOGN");
inline constexpr std::uint32_t kTypeAddr = TypeCode("ADDR");
inline constexpr std::uint32_t kTypeCreq = TypeCode("CREQ");
inline constexpr std::uint32_t kTypeCres = TypeCode("CRES");
inline constexpr std::uint32_t kTypeBusy = TypeCode("BUSY");
inline constexpr std::uint32_t kTypeRawc = TypeCode("RAWC");
inline constexpr std::uint32_t kTypeTspr = TypeCode("TSPR");
inline constexpr std::uint32_t kTypeDoip = TypeCode("DOIP");
inline constexpr std::uint32_t kTypeTele = TypeCode("TELE");
inline constexpr std::uint32_t kTypeFrag = TypeCode("FRAG");
inline constexpr std::uint32_t kTypePing = TypeCode("PING");
inline constexpr std::uint32_t kTypeRepl = TypeCode("REPL");
inline constexpr std::uint32_t kTypeLog = TypeCode("LOG ");
inline constexpr std::uint32_t kTypeCryp = TypeCode("CRYP");
inline constexpr std::uint32_t kTypeNhs1 = TypeCode("NHS1");
inline constexpr std::uint32_t kTypeNhs2 = TypeCode("NHS2");
inline constexpr std::uint32_t kTypeDevi = TypeCode("DEVI");
inline constexpr std::uint32_t kTypeDeva = TypeCode("DEVA");

inline constexpr std::uint32_t MIN_PKT_SIZE = 8;
inline constexpr std::uint32_t MAX_PKT_SIZE = 4096;  // on a byte stream, and after reassembly

// The whole of SYNC, IDEN and every other packet without fields; the start of all others.
struct PacketHeaderWire {
    std::uint32_t type;
    std::uint32_t length;  // whole packet, header included
};
static_assert(offsetof(PacketHeaderWire, type) == 0);
static_assert(offsetof(PacketHeaderWire, length) == 4);
static_assert(sizeof(PacketHeaderWire) == MIN_PKT_SIZE);

// LOGN: who a dongle, or the library towards the relay, is. A text that fills its field has no NUL.
struct LoginWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t reserved_8[4];
    std::uint8_t mac[6];
    std::uint8_t reserved_18[2];
    std::uint32_t model;
    std::uint8_t reserved_24[8];
    char firmware_version[32];
    char device_name[32];
    char build_time[16];
    char build_date[16];
    std::uint8_t reserved_128[64];
};
static_assert(offsetof(LoginWire, mac) == 12);
static_assert(offsetof(LoginWire, model) == 20);
static_assert(offsetof(LoginWire, firmware_version) == 32);
static_assert(offsetof(LoginWire, device_name) == 64);
static_assert(offsetof(LoginWire, build_time) == 96);
static_assert(offsetof(LoginWire, build_date) == 112);
static_assert(offsetof(LoginWire, reserved_128) == 128);
static_assert(sizeof(LoginWire) == 192);
inline constexpr std::uint32_t kLoginSize = sizeof(LoginWire);

// ADDR: selects the dongle behind the relay that has this address.
struct AddressWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t mac[6];
    std::uint8_t reserved[2];
};
static_assert(offsetof(AddressWire, mac) == 8);
static_assert(sizeof(AddressWire) == 16);

// CREQ. Single form: data_length request bytes follow. Multi form: the entries follow, then the
// request bytes, then zeros up to a multiple of kCommRequestAlignment.
struct CommRequestWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t can_id_tx_func;
    std::uint32_t can_id_tx_phys;  // multi form: kCommRequestMulti
    std::uint32_t can_id_rx;       // multi form: the number of entries
    std::uint32_t timeout;         // ms that the dongle waits for the control unit
    std::uint16_t data_length;
    std::uint8_t transport;
    std::uint8_t reserved;
    std::uint32_t req_id;  // of the answering CRES or BUSY too
};
static_assert(offsetof(CommRequestWire, can_id_tx_func) == 8);
static_assert(offsetof(CommRequestWire, can_id_tx_phys) == 12);
static_assert(offsetof(CommRequestWire, can_id_rx) == 16);
static_assert(offsetof(CommRequestWire, timeout) == 20);
static_assert(offsetof(CommRequestWire, data_length) == 24);
static_assert(offsetof(CommRequestWire, transport) == 26);
static_assert(offsetof(CommRequestWire, reserved) == 27);
static_assert(offsetof(CommRequestWire, req_id) == 28);
static_assert(sizeof(CommRequestWire) == 32);

inline constexpr std::uint32_t kCommRequestMulti = 0xFFFFEEEE;
inline constexpr std::uint32_t kCommRequestAlignment = 8;

// One entry of a CREQ in multi form.
struct CommRequestEntryWire {
    std::uint32_t addr_a;
    std::uint32_t addr_b;
};
static_assert(offsetof(CommRequestEntryWire, addr_a) == 0);
static_assert(offsetof(CommRequestEntryWire, addr_b) == 4);
static_assert(sizeof(CommRequestEntryWire) == 8);

// CRES. Single form: data_length response bytes follow. Multi form: the entries follow.
struct CommResponseWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t wait_time;    // ms, or one of the values below
    std::uint32_t data_length;  // multi form: the number of entries
    std::uint32_t req_id;
};
static_assert(offsetof(CommResponseWire, wait_time) == 8);
static_assert(offsetof(CommResponseWire, data_length) == 12);
static_assert(offsetof(CommResponseWire, req_id) == 16);
static_assert(sizeof(CommResponseWire) == 20);

// Values of wait_time that are not a time.
inline constexpr std::uint32_t kWaitTimeMulti = 0xFFFFFFFD;     // marks the multi form
inline constexpr std::uint32_t kWaitTimeError = 0xFFFFFFFE;     // the exchange failed
inline constexpr std::uint32_t kWaitTimeNoAnswer = 0xFFFFFFFF;  // the control unit was silent

// One entry of a CRES in multi form. Its response bytes follow, then zeros up to a multiple of
// kCommResponseAlignment from the entry's start; the last entry's may be missing.
struct CommResponseEntryWire {
    std::uint32_t id;
    std::uint32_t data_length;
};
static_assert(offsetof(CommResponseEntryWire, id) == 0);
static_assert(offsetof(CommResponseEntryWire, data_length) == 4);
static_assert(sizeof(CommResponseEntryWire) == 8);
inline constexpr std::size_t kCommResponseAlignment = 8;

// BUSY. A reason may follow: text up to the first NUL or the packet's end.
struct BusyWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t req_id;
};
static_assert(offsetof(BusyWire, req_id) == 8);
static_assert(sizeof(BusyWire) == 12);

inline constexpr std::uint32_t kMaxRawFrameData = 8;

// RAWC: a raw CAN frame, or a switch of their reception.
struct RawFrameWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t can_id;
    std::uint16_t data_count;
    std::uint16_t flags;                  // one of the values below
    std::uint8_t data[kMaxRawFrameData];  // data_count are used, the rest is 0
};
static_assert(offsetof(RawFrameWire, can_id) == 8);
static_assert(offsetof(RawFrameWire, data_count) == 12);
static_assert(offsetof(RawFrameWire, flags) == 14);
static_assert(offsetof(RawFrameWire, data) == 16);
static_assert(sizeof(RawFrameWire) == 24);

inline constexpr std::uint16_t kRawFrame = 0;
inline constexpr std::uint16_t kRawReceptionOn = 1;
inline constexpr std::uint16_t kRawReceptionOff = 2;

// TSPR: the dongle's cyclic tester present. The message follows; without one it is switched off.
struct TesterPresentWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t period_ms;
    std::uint32_t value;  // kTesterPresentValue
};
static_assert(offsetof(TesterPresentWire, period_ms) == 8);
static_assert(offsetof(TesterPresentWire, value) == 12);
static_assert(sizeof(TesterPresentWire) == 16);
inline constexpr std::uint32_t kTesterPresentValue = 0x700;

// FRAG. The next slice of the original packet, its own header included, follows.
struct FragmentWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint16_t index;
    std::uint16_t count;
    std::uint32_t total_length;  // of the original packet
};
static_assert(offsetof(FragmentWire, index) == 8);
static_assert(offsetof(FragmentWire, count) == 10);
static_assert(offsetof(FragmentWire, total_length) == 12);
static_assert(sizeof(FragmentWire) == 16);

// DOIP that asks for two values.
struct DoipValueWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t kind;
    std::uint32_t first_value;
    std::uint32_t second_value;
};
static_assert(offsetof(DoipValueWire, kind) == 8);
static_assert(offsetof(DoipValueWire, first_value) == 12);
static_assert(offsetof(DoipValueWire, second_value) == 16);
static_assert(sizeof(DoipValueWire) == 20);

// DOIP that looks for vehicles; the destination addresses follow, 16 bytes each.
struct DoipVehicleWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t kind;
    std::uint32_t preselection_mode;
    char preselection[17];  // without its NUL where the text fills it
    std::uint8_t reserved[3];
    std::uint32_t combination_mode;
    std::uint32_t discovery_time;
    std::uint32_t address_count;
};
static_assert(offsetof(DoipVehicleWire, kind) == 8);
static_assert(offsetof(DoipVehicleWire, preselection_mode) == 12);
static_assert(offsetof(DoipVehicleWire, preselection) == 16);
static_assert(offsetof(DoipVehicleWire, combination_mode) == 36);
static_assert(offsetof(DoipVehicleWire, discovery_time) == 40);
static_assert(offsetof(DoipVehicleWire, address_count) == 44);
static_assert(sizeof(DoipVehicleWire) == 48);

// DEVI: the library's identity, for the relay.
struct DeviceIdentityWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t short_id[6];
    std::uint8_t reserved_14[2];
    std::uint8_t public_key[65];  // uncompressed point
    std::uint8_t reserved_81[3];
};
static_assert(offsetof(DeviceIdentityWire, short_id) == 8);
static_assert(offsetof(DeviceIdentityWire, public_key) == 16);
static_assert(sizeof(DeviceIdentityWire) == 84);

// DEVA: whether the relay lets the library in.
struct DeviceIdentityAckWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t status;
    std::uint32_t capabilities;
};
static_assert(offsetof(DeviceIdentityAckWire, status) == 8);
static_assert(offsetof(DeviceIdentityAckWire, capabilities) == 12);
static_assert(sizeof(DeviceIdentityAckWire) == 16);

}  // namespace tarvik
