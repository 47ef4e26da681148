#include "trace/pcapng.h"

namespace dpdu::trace {
namespace {

constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kVersion = 1;
constexpr std::uint32_t kNotStated = 0xFFFFFFFF;
constexpr std::size_t kBlockFrame = 12;  // type, and the length before and behind the body
constexpr std::size_t kLongestText = 0xFFFF;

// Options; the numbers begin anew in each kind of block.
constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kComment = 1;
constexpr std::uint16_t kSectionApplication = 4;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kInterfaceDescription = 3;
constexpr std::uint16_t kInterfaceResolution = 9;
constexpr char kMicroseconds = 6;  // ten to the power of minus six
constexpr std::uint16_t kPacketFlags = 2;
constexpr std::uint32_t kInbound = 1;
constexpr std::uint32_t kOutbound = 2;

constexpr std::uint32_t kExtendedFrame = 0x80000000;

// Tags of exported PDUs, big-endian.
constexpr std::uint16_t kEndOfTags = 0;
constexpr std::uint16_t kDissectorTag = 12;
constexpr std::uint16_t kPortTypeTag = 24;
constexpr std::uint16_t kSourceTag = 25;
constexpr std::uint16_t kDestinationTag = 26;
constexpr std::uint32_t kNoPortType = 0;

template <typename T>
void AppendLittle(T value, std::string* text) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        text->push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

template <typename T>
void AppendBig(T value, std::string* text) {
    for (std::size_t i = sizeof value; i-- > 0;)
        text->push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

void Pad(std::string* text) { text->append((4 - text->size() % 4) % 4, '\0'); }

void AppendOption(std::uint16_t code, const std::string& value, std::string* text) {
    const std::string kept = value.substr(0, kLongestText);
    AppendLittle(code, text);
    AppendLittle(static_cast<std::uint16_t>(kept.size()), text);
    *text += kept;
    Pad(text);
}

void AppendEndOfOptions(std::string* text) {
    AppendLittle(kEndOfOptions, text);
    AppendLittle(std::uint16_t{0}, text);
}

std::string Block(std::uint32_t type, const std::string& body) {
    const auto length = static_cast<std::uint32_t>(body.size() + kBlockFrame);
    std::string block;
    AppendLittle(type, &block);
    AppendLittle(length, &block);
    block += body;
    AppendLittle(length, &block);
    return block;
}

void AppendTag(std::uint16_t tag, const std::string& value, std::string* text) {
    AppendBig(tag, text);
    AppendBig(static_cast<std::uint16_t>(value.size()), text);
    *text += value;
}

void AppendTag(std::uint16_t tag, std::uint32_t number, std::string* text) {
    std::string value;
    AppendBig(number, &value);
    AppendTag(tag, value, text);
}

Bytes BytesOf(const std::string& header, const Bytes& data) {
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

}  // namespace

std::string PcapngSection(const std::string& application) {
    std::string body;
    AppendLittle(kByteOrderMagic, &body);
    AppendLittle(kVersion, &body);
    AppendLittle(std::uint16_t{0}, &body);
    AppendLittle(kNotStated, &body);  // the length of the section, of 64 bits
    AppendLittle(kNotStated, &body);
    AppendOption(kSectionApplication, application, &body);
    AppendEndOfOptions(&body);
    return Block(kSectionBlock, body);
}

std::string PcapngInterface(PcapngLink link, const std::string& name,
                            const std::string& description) {
    std::string body;
    AppendLittle(static_cast<std::uint16_t>(link), &body);
    AppendLittle(std::uint16_t{0}, &body);
    AppendLittle(std::uint32_t{0}, &body);  // packets of any length
    AppendOption(kInterfaceName, name, &body);
    AppendOption(kInterfaceDescription, description, &body);
    AppendOption(kInterfaceResolution, std::string(1, kMicroseconds), &body);
    AppendEndOfOptions(&body);
    return Block(kInterfaceBlock, body);
}

std::string PcapngPacketBlock(const PcapngPacket& packet) {
    const auto recorded = static_cast<std::uint32_t>(packet.bytes.size());
    std::string body;
    AppendLittle(packet.interface_number, &body);
    AppendLittle(static_cast<std::uint32_t>(packet.time_us >> 32), &body);
    AppendLittle(static_cast<std::uint32_t>(packet.time_us), &body);
    AppendLittle(recorded, &body);
    AppendLittle(recorded + packet.missing, &body);
    body.append(packet.bytes.begin(), packet.bytes.end());
    Pad(&body);
    if (!packet.comment.empty()) AppendOption(kComment, packet.comment, &body);
    std::string flags;
    AppendLittle(packet.is_sent ? kOutbound : kInbound, &flags);
    AppendOption(kPacketFlags, flags, &body);
    AppendEndOfOptions(&body);
    return Block(kPacketBlock, body);
}

Bytes SocketCanFrame(std::uint32_t can_id, bool is_29_bit, const Bytes& data) {
    std::string header;
    AppendBig(is_29_bit ? can_id | kExtendedFrame : can_id, &header);
    header.push_back(static_cast<char>(data.size()));
    header.append(3, '\0');
    return BytesOf(header, data);
}

Bytes ExportedPdu(const std::string& dissector, std::uint32_t source, std::uint32_t destination,
                  const Bytes& data) {
    std::string name = dissector;
    Pad(&name);
    std::string header;
    AppendTag(kDissectorTag, name, &header);
    // Identifiers are shown as ports: no tag is meant for those of CAN.
    AppendTag(kPortTypeTag, kNoPortType, &header);
    AppendTag(kSourceTag, source, &header);
    AppendTag(kDestinationTag, destination, &header);
    AppendTag(kEndOfTags, std::string(), &header);
    return BytesOf(header, data);
}

}  // namespace dpdu::trace
