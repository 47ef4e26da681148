// The commands of the program, one source file each. A command returns kOk if it fully succeeded;
// otherwise its output or standard error shows what failed. It throws Failure or UsageError if it
// cannot continue.

#ifndef TOOLS_DPDU_COMMANDS_COMMANDS_H
#define TOOLS_DPDU_COMMANDS_COMMANDS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "console/failure.h"
#include "console/output.h"
#include "links/link.h"
#include "pdu/functions.h"
#include "pdu/library_path.h"
#include "raw/can_frame.h"
#include "raw/raw_link.h"
#include "scan/scan.h"
#include "script/script.h"
#include "trace/timeline.h"
#include "uds/unit_list.h"

namespace dpdu {

// Options of every command that uses a library.
struct CommonOptions {
    std::string library;        // empty: this project's library beside the program
    std::string vendor;         // name of an installed library in the root file; empty: not given
    std::string root_file;      // empty: the machine's
    std::string option_string;  // for PDUConstruct
    std::string module;         // text that the module's name or interface must contain; empty: any
    double wait_seconds = 3;    // how long to look for a module
    bool as_json = false;
    bool is_verbose = false;  // show lines that the library prints

    // Throws Failure if no library is installed under the name of --vendor.
    std::string LibraryPath() const;
    // Throws Failure also if the library cannot be loaded.
    pdu::Functions LoadFunctions() const { return LoadPduFunctions(LibraryPath()); }
    std::chrono::milliseconds Wait() const {
        return std::chrono::milliseconds(static_cast<std::int64_t>(wait_seconds * 1000));
    }
};

struct RequestOptions {
    Bytes request;
    std::vector<EcuAddress> ecus{EcuAddress{}};
    std::optional<std::uint32_t> functional_id;
    std::vector<ExpectedResponse> expected;  // empty: positive and negative by service byte
    bool decode = false;                     // also say what the answer of a single unit means
    LinkOptions link;
};

struct FunctionalOptions {
    Bytes request;
    std::vector<NamedUnit> units;
    std::uint32_t functional_id = 0x7DF;
    bool one_is_enough = false;  // one positive answer is a success
    bool asks_each = false;      // ask each that answered again, alone, for its time
    LinkOptions link;
};

struct VinOptions {
    std::vector<EcuAddress> ecus{EcuAddress{}};
    LinkOptions link;
};

struct DtcOptions {
    std::vector<EcuAddress> ecus{EcuAddress{}};
    std::uint8_t status_mask = 0xFF;
    LinkOptions link;
};

struct ComParamOptions {
    std::vector<std::string> names;                                // get
    std::vector<std::pair<std::string, std::string>> assignments;  // set
    std::string filter;                                            // list; empty: all
    LinkOptions link;
};

struct ObjectsOptions {
    std::vector<std::string> names;  // empty: all known names
    std::string type;                // name of an object type; empty: any
    std::string filter;              // list; empty: all
};

struct IoCtlOptions {
    std::string command;   // short name, name in the standard, or number
    std::string argument;  // "", "VALUE" or "TYPE=VALUE"
};

struct TesterPresentOptions {
    std::vector<EcuAddress> ecus{EcuAddress{}};
    std::optional<std::uint32_t> functional_id;
    std::optional<std::chrono::milliseconds> limit;
    LinkOptions link;  // with period and message
};

struct MonitorOptions {
    Bytes request;  // empty: send nothing
    EcuAddress ecu;
    std::chrono::milliseconds period{1000};
    std::optional<std::chrono::milliseconds> limit;
    std::uint64_t count = 0;  // end after this many events; 0: no limit
    LinkOptions link;
};

struct RawSendOptions {
    CanFrame frame;
    std::uint32_t repeat = 1;  // number of times; 0: until interrupted
    std::chrono::milliseconds period{100};
    T_PDU_COPT primitive = PDU_COPT_STARTCOMM;
    LinkOptions link = RawLinkOptions();
};

// Output format of received frames.
enum class FrameStyle { kCandump, kCandumpLog, kTable, kPcapng };

struct RawListenOptions {
    std::vector<CanFilter> filters;  // empty: all identifiers
    std::uint64_t count = 0;         // end after this many frames; 0: no limit
    std::optional<std::chrono::milliseconds> limit;
    FrameStyle style = FrameStyle::kCandump;
    std::string capture;  // kPcapng: the file to write; "-": standard output
    LinkOptions link = RawLinkOptions();
};

struct RunOptions {
    std::string file;  // "-": standard input; empty: a prompt if there is a terminal, else likewise
    script::Variables variables;  // from the command line
    std::string junit;            // the file to write; empty: none
    bool only_checks = false;
    bool is_quiet = false;  // print only what the script prints
    EcuAddress ecu;
    std::chrono::milliseconds key_limit{10'000};
    T_PDU_COPT raw_primitive = PDU_COPT_STARTCOMM;
    LinkOptions link;
};

struct TraceOptions {
    std::vector<std::string> files;
    std::uint32_t slowest = 10;    // summary: number of slowest requests to show
    trace::TimelineFilter filter;  // timeline
    bool is_waterfall = false;     // timeline: place bars at their requests' times
    std::size_t columns = 0;       // timeline; 0: width of the terminal
    std::string format;            // export: candump, asc, chrome or pcapng
    std::string target;            // export, report: the file to write; empty: standard output
};

struct TraceLatestOptions {
    bool is_log = false;  // the newest debug log instead
};

struct TracePruneOptions {
    std::chrono::seconds older_than{0};
    bool is_agreed = false;   // do not ask
    bool is_dry_run = false;  // only list the files
};

struct DoctorOptions {
    bool lists_diagnoses = false;  // only show what it can find
};

struct RootOptions {
    std::string folder;         // add; empty: that of this project's library
    std::string short_name;     // check; empty: every entry
    double limit_seconds = 30;  // check: longest time for one call of a library
};

ExitCode RunModules(const CommonOptions& common, Output* output);
// kNoLibrary if the library cannot be used, otherwise kFailure if something is wrong. kInterrupted
// after the findings so far.
ExitCode RunDoctor(const CommonOptions& common, const DoctorOptions& options, Output* output);
ExitCode RunVersion(const CommonOptions& common, Output* output);
ExitCode RunRequest(const CommonOptions& common, const RequestOptions& options, Output* output);
ExitCode RunFunctional(const CommonOptions& common, const FunctionalOptions& options,
                       Output* output);
ExitCode RunVin(const CommonOptions& common, const VinOptions& options, Output* output);
ExitCode RunDtc(const CommonOptions& common, const DtcOptions& options, Output* output);
// kNoAnswer if no control unit was found; after an early end, what ended it.
ExitCode RunScan(const CommonOptions& common, const ScanOptions& options, Output* output);
ExitCode RunComParamGet(const CommonOptions& common, const ComParamOptions& options,
                        Output* output);
ExitCode RunComParamSet(const CommonOptions& common, const ComParamOptions& options,
                        Output* output);
ExitCode RunComParamList(const CommonOptions& common, const ComParamOptions& options,
                         Output* output);
ExitCode RunObjects(const CommonOptions& common, const ObjectsOptions& options, Output* output);
ExitCode RunIoCtl(const CommonOptions& common, const IoCtlOptions& options, Output* output);
ExitCode RunTesterPresent(const CommonOptions& common, const TesterPresentOptions& options,
                          Output* output);
ExitCode RunMonitor(const CommonOptions& common, const MonitorOptions& options, Output* output);
ExitCode RunRawSend(const CommonOptions& common, const RawSendOptions& options, Output* output);
ExitCode RunRawListen(const CommonOptions& common, const RawListenOptions& options, Output* output);
ExitCode RunScript(const CommonOptions& common, const RunOptions& options, Output* output);
// These use only the root file of `common`.
ExitCode RunLibraries(const CommonOptions& common, Output* output);
ExitCode RunRootList(const CommonOptions& common, const RootOptions& options, Output* output);
ExitCode RunRootAdd(const CommonOptions& common, const RootOptions& options, Output* output);
ExitCode RunRootRemove(const CommonOptions& common, const RootOptions& options, Output* output);
// Uses also how long to look for modules and whether to show what libraries print. kFailure if
// something is wrong.
ExitCode RunRootCheck(const CommonOptions& common, const RootOptions& options, Output* output);
ExitCode RunTraceSummary(const TraceOptions& options, Output* output);
ExitCode RunTraceTimeline(const TraceOptions& options, Output* output);
ExitCode RunTraceLatest(const TraceLatestOptions& options, Output* output);
ExitCode RunTracePrune(const TracePruneOptions& options, Output* output);
ExitCode RunTraceExport(const TraceOptions& options, Output* output);
ExitCode RunTraceReport(const TraceOptions& options, Output* output);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_COMMANDS_H
