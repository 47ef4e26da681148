#include "program/common_options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string_view>

namespace brennix {

void AddVehicleOptions(CLI::App* app, CommonOptions* options, int max_dongles) {
    app->add_option("--vehicle", options->vehicles, "vehicle file (JSON); repeat for more dongles")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
    app->add_option("--dongles", options->dongles,
                    "number of dongles; those without a vehicle of their own get the last one")
        ->type_name("N")
        ->check(CLI::Range(1, max_dongles));
}

void AddControlOptions(CLI::App* app, CommonOptions* options, const char* ready_file_purpose,
                       const char* strict_purpose) {
    app->add_option("--control", options->control_port, "TCP port of the control channel")
        ->type_name("PORT");
    app->add_option("--ready-file", options->ready_file, ready_file_purpose)->type_name("PATH");
    app->add_option("--record", options->record_file,
                    "write all traffic to this file, as JSON lines")
        ->type_name("PATH");
    app->add_option("--keep", options->keep, "entries kept in memory for \"record last\"")
        ->type_name("N")
        ->capture_default_str();
    app->add_flag("--strict", options->strict, strict_purpose);
}

bool ParseCommandLine(CLI::App* app, int argc, char** argv, const char* program,
                      CommonOptions* options, const std::function<void()>& check, int* exit_code) {
    char** const separator = std::find_if(
        argv, argv + argc, [](const char* word) { return std::string_view(word) == "--"; });
    if (separator != argv + argc) options->command.assign(separator + 1, argv + argc);
    try {
        app->parse(static_cast<int>(separator - argv), argv);
        check();
        return true;
    } catch (const CLI::Success& done) {
        *exit_code = app->exit(done);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "%s: %s (see --help)\n", program, error.what());
        *exit_code = 1;
    }
    return false;
}

}  // namespace brennix
