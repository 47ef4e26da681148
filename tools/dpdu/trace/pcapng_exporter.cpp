#include <map>
#include <optional>
#include <utility>

#include "trace/bus_messages.h"
#include "trace/exporter.h"
#include "trace/pcapng.h"
#include "uds/ecu_address.h"

namespace dpdu::trace {
namespace {

// Raw frames are packets of a CAN bus. Requests and answers are whole messages for the dissector of
// UDS: as frames, Wireshark would decode them only after settings by hand.
class PcapngExporter : public Exporter {
public:
    explicit PcapngExporter(Output* output)
        : output_(output), messages_([this](const BusMessage& message) { Show(message); }) {
        output_->Text(PcapngSection("dpdu " DPDU_VERSION));
    }

    void BeginFile(bool since_1970) override { since_1970_ = since_1970; }
    void Take(const Record& record) override { messages_.Take(record); }
    void EndOfFile() override { messages_.Finish(); }
    void Finish() override {}

    std::vector<std::string> Losses() const override {
        std::vector<std::string> losses;
        if (messages_.Incomplete() > 0) {
            losses.push_back("payloads of which the trace holds only a part: " +
                             std::to_string(messages_.Incomplete()));
        }
        if (messages_.NoFrames() > 0) {
            losses.push_back("raw frames of more than eight bytes, which are left out: " +
                             std::to_string(messages_.NoFrames()));
        }
        return losses;
    }

private:
    void Show(const BusMessage& message) {
        PcapngPacket packet;
        packet.interface_number = InterfaceOf(message);
        packet.time_us = message.time_us;
        packet.is_sent = message.is_sent;
        packet.missing = message.length - message.recorded;
        if (message.is_raw) {
            packet.bytes =
                SocketCanFrame(message.can_id, message.can_id > kLargest11BitId, message.payload);
        } else {
            const std::uint32_t source = message.is_sent ? message.peer_id : message.can_id;
            const std::uint32_t destination = message.is_sent ? message.can_id : message.peer_id;
            packet.bytes = ExportedPdu("uds", source, destination, message.payload);
            packet.comment = CommentOn(message);
        }
        output_->Text(PcapngPacketBlock(packet));
    }

    static std::string CommentOn(const BusMessage& message) {
        std::string comment = (message.is_sent ? "request to " : "answer from ") +
                              CanIdText(message.can_id) + ", ComPrimitive " +
                              std::to_string(message.cop);
        if (message.recorded < message.length) {
            comment += ", " + std::to_string(message.recorded) + " of " +
                       std::to_string(message.length) + " bytes recorded";
        }
        return comment;
    }

    // Each bus has an interface for its frames and one for its messages, as far as there are any.
    std::uint32_t InterfaceOf(const BusMessage& message) {
        const auto next = static_cast<std::uint32_t>(interfaces_.size());
        const auto [found, is_new] = interfaces_.try_emplace({message.bus, message.is_raw}, next);
        if (is_new) {
            const std::string name = (message.is_raw ? "can" : "uds") + std::to_string(message.bus);
            output_->Text(PcapngInterface(
                message.is_raw ? PcapngLink::kSocketCan : PcapngLink::kExportedPdu, name,
                since_1970_ ? "D-PDU trace"
                            : "D-PDU trace, times are those of the computer's "
                              "performance counter"));
        }
        return found->second;
    }

    Output* output_;
    bool since_1970_ = false;
    std::map<std::pair<std::uint32_t, bool>, std::uint32_t> interfaces_;  // by bus and rawness
    BusMessages messages_;
};

}  // namespace

std::unique_ptr<Exporter> MakePcapngExporter(Output* output) {
    return std::make_unique<PcapngExporter>(output);
}

}  // namespace dpdu::trace
