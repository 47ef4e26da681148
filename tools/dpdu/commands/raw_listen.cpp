#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "commands/watch.h"
#include "console/failure.h"
#include "console/progress.h"
#include "raw/frame_table.h"
#include "text/names.h"
#include "trace/pcapng.h"

namespace dpdu {
namespace {

// Time between updates of a live table.
constexpr std::chrono::milliseconds kTimeBetweenTables{200};

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// A dumb terminal shows escape sequences as they are.
bool CanRewrite(const Output& output) { return output.IsLive() && Environment("TERM") != "dumb"; }

std::uint64_t MicrosecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// A capture for Wireshark, which may be a pipe that it reads. Writes each frame at once.
class Capture {
public:
    // Throws UsageError if there cannot be one. Changes nothing.
    static void Check(const std::string& path, const Output& standard_output) {
        if (standard_output.AsJson()) {
            throw UsageError("--json and --pcapng exclude each other");
        }
        if (path == kStandardOutput && standard_output.IsTerminal()) {
            throw UsageError("a capture is not for a terminal: name a file, or use a pipe");
        }
        std::error_code ignored;
        if (path != kStandardOutput && std::filesystem::is_regular_file(PathOf(path), ignored)) {
            throw UsageError("'" + path + "' exists already: name another file");
        }
    }

    Capture(const std::string& path, Output* standard_output)
        : path_(path), standard_output_(standard_output) {
        if (path_ == kStandardOutput) {
            standard_output_->BeginBinary();
        } else {
            file_.reset(OpenFile(path_, "wb"));
            if (!file_) ThrowUnwritable();
        }
        Write(trace::PcapngSection("dpdu " DPDU_VERSION) +
              trace::PcapngInterface(trace::PcapngLink::kSocketCan, "can0", "D-PDU raw link"));
    }

    void Add(const CanFrame& frame, std::uint64_t since_1970_us) {
        if (frame.data.size() > kLargestFrame) {
            ++left_out_;
            return;
        }
        trace::PcapngPacket packet;
        packet.time_us = since_1970_us;
        packet.bytes = trace::SocketCanFrame(frame.id, frame.is_29_bit, frame.data);
        Write(trace::PcapngPacketBlock(packet));
    }

    std::uint64_t LeftOut() const { return left_out_; }

private:
    static constexpr const char* kStandardOutput = "-";
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void Write(const std::string& block) {
        if (!file_) {
            standard_output_->Text(block);
            standard_output_->Flush();
            return;
        }
        const bool was_written =
            std::fwrite(block.data(), 1, block.size(), file_.get()) == block.size() &&
            std::fflush(file_.get()) == 0;
        if (was_written) return;
        if (MeansReaderGone(errno)) throw ReaderGone();
        ThrowUnwritable();
    }

    [[noreturn]] void ThrowUnwritable() const {
        throw Failure("cannot write '" + path_ + "': " + std::generic_category().message(errno));
    }

    const std::string path_;
    Output* const standard_output_;
    std::unique_ptr<std::FILE, CloseFile> file_;  // null: standard output
    std::uint64_t left_out_ = 0;
};

// Shows frames as they arrive, and totals at the end.
class Listener {
public:
    Listener(const RawListenOptions& options, Output* output)
        : options_(options),
          output_(output),
          has_live_table_(options.style == FrameStyle::kTable && !output->AsJson() &&
                          CanRewrite(*output)) {
        if (options.style != FrameStyle::kPcapng) return;
        capture_ = std::make_unique<Capture>(options.capture, output);
    }

    bool IsDone() const { return options_.count > 0 && counts_.Total() >= options_.count; }

    void Take(const CanFrame& frame, UNUM32 timestamp_us) {
        const std::uint64_t time_us = times_.SinceFirst(timestamp_us);
        if (IsDone() || !Passes(options_.filters, frame.id)) return;
        progress_.reset();
        if (counts_.Total() == 0) first_ = MicrosecondsSince1970() - time_us;
        counts_.Add(frame, time_us, Deadline::Clock::now());
        if (options_.style != FrameStyle::kTable) Show(frame, time_us);
    }

    // Called after each reading of the queue.
    void Refresh() {
        const auto now = Deadline::Clock::now();
        if (has_live_table_ && counts_.Total() > 0 && now >= next_table_) {
            output_->LiveLines(FrameTableLines(counts_, now,
                                               {.columns = output_->Columns(),
                                                .lines = output_->Lines(),
                                                .has_changes = Environment("NO_COLOR").empty()}));
            next_table_ = now + kTimeBetweenTables;
        }
        output_->Flush();
    }

    void ShowTotals() {
        progress_.reset();
        if (capture_ && capture_->LeftOut() > 0) {
            ErrorLine("raw frames of more than eight bytes, which are left out: " +
                      std::to_string(capture_->LeftOut()));
        }
        const std::string frames = std::to_string(counts_.Total()) +
                                   (counts_.Total() == 1 ? " frame" : " frames") + " received";
        if (output_->AsJson()) {
            output_->JsonLine({{"frames", counts_.Total()}, {"totals", counts_.AsJson()}});
        } else if (has_live_table_) {
            output_->EndLiveLines();
            output_->LiveLines(
                FrameTableLines(counts_, Deadline::Clock::now(),
                                {.columns = output_->Columns(), .has_rates = false}));
        } else if (capture_ || options_.style == FrameStyle::kCandumpLog) {
            ErrorLine(frames);  // such a file contains only frames
        } else {
            if (options_.style == FrameStyle::kCandump && counts_.Total() > 0) output_->Line("");
            output_->Table(counts_.Rows());
        }
    }

    ExitCode ReportCount() const {
        if (options_.count == 0 || IsDone()) return ExitCode::kOk;
        ErrorLine(std::to_string(counts_.Total()) + " of " + std::to_string(options_.count) +
                  " frames received");
        return ExitCode::kNoAnswer;
    }

private:
    void Show(const CanFrame& frame, std::uint64_t time_us) {
        if (capture_) {
            capture_->Add(frame, first_ + time_us);
        } else if (output_->AsJson()) {
            output_->JsonLine({{"timeUs", time_us},
                               {"id", FrameIdText(frame)},
                               {"extended", frame.is_29_bit},
                               {"data", HexText(frame.data)}});
        } else if (options_.style == FrameStyle::kCandumpLog) {
            output_->Line(CandumpLogLine(frame, first_ + time_us));
        } else {
            output_->Line(CandumpLine(frame, time_us));
        }
    }

    const RawListenOptions& options_;
    Output* output_;
    const bool has_live_table_;
    std::unique_ptr<Capture> capture_;  // null: no capture
    FrameCounts counts_;
    FrameTimes times_;
    std::uint64_t first_ = 0;  // when counting began, in microseconds since 1970
    Deadline::Clock::time_point next_table_{};
    std::unique_ptr<Progress> progress_ = std::make_unique<Progress>("waiting for frames");
};

}  // namespace

ExitCode RunRawListen(const CommonOptions& common, const RawListenOptions& options,
                      Output* output) {
    if (options.style == FrameStyle::kPcapng) Capture::Check(options.capture, *output);
    const ModuleSession module(common);
    RawLink link(module.Module(), options.link);
    Watch watch(module.Module(), options.limit);
    Listener listener(options, output);
    const auto take = [&](const CanFrame& frame, UNUM32 timestamp_us) {
        watch.NoteSignOfLife();
        listener.Take(frame, timestamp_us);
    };
    link.StartListening();
    do {
        link.TakeFrames(take);
        listener.Refresh();
    } while (!listener.IsDone() && watch.Wait());
    listener.ShowTotals();
    return listener.ReportCount();
}

}  // namespace dpdu
