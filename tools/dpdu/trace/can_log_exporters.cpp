#include <cstdio>
#include <optional>
#include <utility>

#include "trace/bus_messages.h"
#include "trace/exporter.h"
#include "trace/text.h"
#include "uds/ecu_address.h"

namespace dpdu::trace {
namespace {

// The common part of both logs: receives messages and counts what cannot be shown.
class CanLogExporter : public Exporter {
public:
    explicit CanLogExporter(Output* output)
        : output_(output), messages_([this](const BusMessage& message) { Show(message); }) {}

    void BeginFile(bool since_1970) override { since_1970_ = since_1970; }
    void Take(const Record& record) override {
        if (!start_us_) {
            start_us_ = record.TimeUs();
            Begin(since_1970_ ? *start_us_ : 0);
        }
        messages_.Take(record);
    }
    void EndOfFile() override { messages_.Finish(); }
    void Finish() override {}

    std::vector<std::string> Losses() const override {
        std::vector<std::string> losses;
        if (messages_.Incomplete() > 0) {
            losses.push_back(
                "payloads of which the trace holds only a part, so that their last "
                "frames are missing: " +
                std::to_string(messages_.Incomplete()));
        }
        if (messages_.NoFrames() > 0) {
            losses.push_back("raw frames of more than eight bytes, which are left out: " +
                             std::to_string(messages_.NoFrames()));
        }
        return losses;
    }

protected:
    virtual void Show(const BusMessage& message) = 0;
    // Called before the first message, with the time of the first line in microseconds since 1970;
    // 0 if it is not known.
    virtual void Begin(std::uint64_t) {}

    void Line(const std::string& text) { output_->Line(text); }
    std::uint64_t SinceStart(std::uint64_t time_us) const {
        return time_us > *start_us_ ? time_us - *start_us_ : 0;
    }

private:
    Output* output_;
    std::optional<std::uint64_t> start_us_;
    bool since_1970_ = false;
    BusMessages messages_;
};

class CandumpExporter : public CanLogExporter {
public:
    using CanLogExporter::CanLogExporter;

private:
    void Show(const BusMessage& message) override {
        for (const Bytes& frame : message.frames) {
            char time[48];
            std::snprintf(time, sizeof time, "(%010llu.%06u)",
                          static_cast<unsigned long long>(message.time_us / 1'000'000),
                          static_cast<unsigned>(message.time_us % 1'000'000));
            Line(std::string(time) + " can" + std::to_string(message.bus) + " " +
                 Identifier(message.can_id) + "#" + HexText(frame));
        }
    }

    // Readers derive the identifier's length from the number of digits.
    static std::string Identifier(std::uint32_t id) {
        return HexNumber(id, id > kLargest11BitId ? 8 : 3);
    }
};

class AscExporter : public CanLogExporter {
public:
    using CanLogExporter::CanLogExporter;

    void Finish() override { Line("End TriggerBlock"); }

private:
    // Readers require a date, also if it is not known.
    void Begin(std::uint64_t start_us) override {
        const std::string date = DateText(start_us);
        Line("date " + date);
        Line("base hex  timestamps absolute");
        Line("internal events logged");
        Line(start_us > 0
                 ? "// made from a D-PDU trace: its date is UTC, times count from its first line"
                 : "// made from a D-PDU trace: its date is not known, times count from its "
                   "first line");
        Line(
            "// ISO-TP frames are reconstructed from whole requests and answers: each has the "
            "time");
        Line("// of its message, without flow control and filling bytes");
        Line("Begin Triggerblock " + date);
        Line("   0.000000 Start of measurement");
    }

    void Show(const BusMessage& message) override {
        if (!message.is_raw && (message.frames.size() > 1 || message.recorded < message.length)) {
            Line(Comment(message));
        }
        for (const Bytes& frame : message.frames) {
            char head[80];
            std::snprintf(head, sizeof head, "%11s %-2u %-15s %s   d %zu",
                          SecondsText(SinceStart(message.time_us)).c_str(), message.bus + 1,
                          Identifier(message.can_id).c_str(), message.is_sent ? "Tx" : "Rx",
                          frame.size());
            Line(head + (frame.empty() ? "" : " " + HexText(frame, " ")));
        }
    }

    static std::string Identifier(std::uint32_t id) {
        return HexNumber(id, 1) + (id > kLargest11BitId ? "x" : "");
    }

    static std::string Comment(const BusMessage& message) {
        std::string text = "// reconstructed: ";
        text += message.is_sent ? "request" : "answer to request";
        text +=
            " " + std::to_string(message.cop) + ", " + std::to_string(message.length) + " bytes";
        if (message.recorded < message.length) {
            text += ", only the first " + std::to_string(message.recorded) + " were recorded";
        }
        return text;
    }
};

}  // namespace

std::unique_ptr<Exporter> MakeCandumpExporter(Output* output) {
    return std::make_unique<CandumpExporter>(output);
}

std::unique_ptr<Exporter> MakeAscExporter(Output* output) {
    return std::make_unique<AscExporter>(output);
}

}  // namespace dpdu::trace
