#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "options/link_options.h"
#include "script/parser.h"

namespace dpdu {
namespace {

constexpr char kRunFooter[] = R"(
A script has one step a line; # begins a comment. Its requests share one connection:

  10 03                       a request; without expectation it must be answered positively
  22 F1 90
  expect 62 F1 90             how the answer begins, ?? for any byte; exactly BYTES; also
                              none, positive, negative 31, and alternatives with "or"
  set vin = answer[3..]       a variable, for requests ($vin), expectations and
  print VIN ${vin:text}       for printing
  functional 3E 00 units 7E0,7E1
  expect from 7E9 7E 00
  seed-key 01 ./key_program   its standard input is the seed; it prints the key
  raw send 600#01 0D          a CAN frame, and one that must come
  raw expect 601#41 ?? .. within 500ms
  wait 100ms
  repeat 10 ... end           blocks
  test NAME ... end
  ecu 7E1:7E9                 settings: the control unit of further requests,
  timeout 2s                  the longest time for a request,
  param CP_P2Max=50000        a ComParam,
  tester-present on

It is parsed before anything is sent. It stops at the first step that fails: exit code 8 for
an expectation, 6 or 7 for a request without one. "-" reads the script from standard input;
without FILE each step is typed at a prompt. scripts.md, installed with dpdu, describes
all steps.

--json prints one document per line: one for each step, and a last one for the script.

Examples:
  dpdu run check.dpdu
  dpdu run check.dpdu --ecu 7E1:7E9 --junit results.xml
  dpdu run check.dpdu --var serial="00 00 12 34" --quiet
  dpdu run check.dpdu --check         parses it only
  echo 22 F1 90 | dpdu run - --json
  dpdu run                            a prompt)";

struct RunTexts {
    std::string file;
    std::vector<std::string> variables;
    std::string junit;
    bool only_checks = false;
    bool is_quiet = false;
    std::string ecu = "7E0:7E8";
    std::uint32_t key_limit_ms = 10'000;
    std::string raw_primitive = "startcomm";
    LinkTexts link;
};

RunOptions ParseRun(const RunTexts& texts) {
    RunOptions options;
    options.file = texts.file;
    for (const std::string& text : texts.variables)
        script::ParseVariable(text, &options.variables);
    options.junit = texts.junit;
    options.only_checks = texts.only_checks;
    options.is_quiet = texts.is_quiet;
    options.ecu = ParseEcus({texts.ecu}).front();
    options.key_limit = std::chrono::milliseconds(texts.key_limit_ms);
    options.raw_primitive = ParseSendPrimitive(texts.raw_primitive);
    options.link = ParseLink(texts.link);
    return options;
}

}  // namespace

void AddScriptCommands(CommandSet* commands) {
    const auto texts = std::make_shared<RunTexts>();
    CLI::App* command = commands->Add(
        {"run", "execute a script of requests and expectations", kRunFooter}, [texts](auto common) {
            const RunOptions options = ParseRun(*texts);
            return [=](Output* output) { return RunScript(common, options, output); };
        });
    command->add_option("script", texts->file, "the script; -: standard input")->type_name("FILE");
    command->add_flag("--check,--dry-run", texts->only_checks, "parse the script, send nothing");
    AddRepeatable(command, "--var", &texts->variables, "a variable's bytes, or \"text\" in quotes")
        ->type_name("NAME=VALUE");
    command->add_option("--junit", texts->junit, "write the results as JUnit XML")
        ->type_name("FILE");
    command->add_flag("--quiet", texts->is_quiet, "print only what the script prints");
    command
        ->add_option("--ecu", texts->ecu, "control unit of the first requests (default: 7E0:7E8)")
        ->type_name("REQUEST:RESPONSE");
    AddMillisecondsOption(command, "--key-timeout", &texts->key_limit_ms,
                          "time limit of a seed-key program (default: 10000)");
    command
        ->add_option("--raw-primitive", texts->raw_primitive,
                     "ComPrimitive to send frames with (default: startcomm)")
        ->type_name("startcomm|sendrecv");
    AddTimingOptions(command, &texts->link);
}

}  // namespace dpdu
