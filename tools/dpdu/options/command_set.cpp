#include "options/command_set.h"

#include <utility>

namespace dpdu {

const char kExitCodes[] = R"(

Exit codes:
    0  success
    1  another failure, or something is wrong (doctor, root check)
    2  invalid command line or script
    3  no library, or it cannot be used
    4  no module
    5  the module was lost
    6  negative response
    7  no answer
    8  an expectation of a script was not met
  130  interrupted
  141  nobody read the output to its end
Of several, the most serious counts: a lost module, then another failure, then no answer.)";

CommandSet::CommandSet(CLI::App* root) : root_(root) { AddCommonOptions(root_, &common_); }

CLI::App* CommandSet::Add(const CommandTexts& texts, Prepare prepare, CLI::App* parent) {
    CLI::App* command = AddOffline(texts, std::move(prepare), parent);
    AddCommonOptions(command, &common_);
    return command;
}

CLI::App* CommandSet::AddOffline(const CommandTexts& texts, Prepare prepare, CLI::App* parent) {
    CLI::App* command = (parent ? parent : root_)->add_subcommand(texts.name, texts.description);
    command->footer(std::string(texts.examples) + kExitCodes);
    command->callback([this, prepare = std::move(prepare)] { prepare_ = prepare; });
    return command;
}

CLI::App* CommandSet::AddGroup(const CommandTexts& texts) {
    CLI::App* group = root_->add_subcommand(texts.name, texts.description);
    group->require_subcommand(1);
    group->footer(std::string(texts.examples) + kExitCodes);
    return group;
}

void AddCommonOptions(CLI::App* command, CommonOptions* common) {
    const std::string group = "Common options";
    command
        ->add_option("--library", common->library,
                     "D-PDU library to load (default: DPDU_LIBRARY, else Tarvik's beside dpdu)")
        ->type_name("PATH")
        ->group(group);
    command
        ->add_option("--vendor", common->vendor,
                     "installed library to load, by its name in the root file; see dpdu libraries")
        ->type_name("NAME")
        ->group(group);
    command
        ->add_option("--root", common->root_file, "root file for --vendor (default: the machine's)")
        ->type_name("FILE")
        ->group(group);
    command
        ->add_option("--library-options", common->option_string,
                     "option string passed to the library")
        ->type_name("TEXT")
        ->group(group);
    command
        ->add_option("--module", common->module,
                     "use the module whose name or interface contains this text")
        ->type_name("TEXT")
        ->group(group);
    command->add_option("--wait", common->wait_seconds, "time to look for a module (default: 3)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, static_cast<double>(kLargestSeconds)).description(""))
        ->group(group);
    command->add_flag("--json", common->as_json, "print one JSON document")->group(group);
    command
        ->add_flag("--verbose", common->is_verbose,
                   "show what the library itself prints, on standard error")
        ->group(group);
}

CLI::Option* AddRepeatable(CLI::App* command, const std::string& name,
                           std::vector<std::string>* values, const std::string& description) {
    return command->add_option(name, *values, description + ", repeatable")
        ->take_all()
        ->allow_extra_args(false);
}

void AddMillisecondsOption(CLI::App* command, const std::string& name, std::uint32_t* milliseconds,
                           const std::string& description) {
    command->add_option(name, *milliseconds, description)
        ->type_name("MS")
        ->check(CLI::Range(1U, kLargestMs).description(""));
}

void AddCountOption(CLI::App* command, std::uint64_t* count, const std::string& description) {
    const auto refuse = [](const std::string& text) -> std::string {
        constexpr std::size_t kMostDigits = 18;
        const bool has_digits = text.find_first_not_of("0123456789") == std::string::npos;
        if (text.empty() || !has_digits || text.size() > kMostDigits) {
            return "'" + text + "' is not a number";
        }
        if (text.find_first_not_of('0') != std::string::npos) return "";
        return "0 would end before it begins; leave it out to go on until Ctrl-C";
    };
    command->add_option("--count", *count, description)
        ->type_name("N")
        ->check(CLI::Validator(refuse, ""));
}

void AddTimeOption(CLI::App* command, double* seconds) {
    command->add_option("--time", *seconds, "end after this time (default: until Ctrl-C)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, static_cast<double>(kLargestSeconds)).description(""));
}

std::optional<std::chrono::milliseconds> ParseSeconds(double seconds) {
    if (seconds <= 0) return std::nullopt;
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

}  // namespace dpdu
