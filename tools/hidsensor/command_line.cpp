#include "tools/hidsensor/command_line.h"

#include <algorithm>
#include <sstream>

#include <CLI/CLI.hpp>

#include "tools/hidsensor/demo_command.h"
#include "tools/hidsensor/inspect_command.h"
#include "tools/hidsensor/run_command.h"

namespace hidsensor {
namespace {

constexpr int kUsageError = 2;

// CLI11 prints through exceptions; everything it reports is a usage error
// except a request for help.
int ReportParseError(const CLI::App& app, const CLI::ParseError& error, std::ostream& out, std::ostream& err)
{
    if (dynamic_cast<const CLI::CallForHelp*>(&error) != nullptr ||
        dynamic_cast<const CLI::CallForAllHelp*>(&error) != nullptr) {
        out << app.help();
        return 0;
    }
    if (dynamic_cast<const CLI::CallForVersion*>(&error) != nullptr) {
        out << "hidsensor 1.0\n";
        return 0;
    }
    const std::string command = app.get_parent() != nullptr ? "hidsensor " + app.get_name() : "hidsensor";
    err << command << ": " << error.what() << " (see '" << command << " --help')\n";
    return kUsageError;
}

bool HasCommand(const CLI::App& app, const std::string& name)
{
    for (const CLI::App* command : app.get_subcommands({}))
        if (command->get_name() == name)
            return true;
    return false;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err)
{
    CLI::App app{"Inspects HID sensor report descriptors and runs the HID sensor driver on a simulated device.",
                 "hidsensor"};
    app.require_subcommand(1);
    app.fallthrough(false);

    InspectOptions inspect;
    std::string inspectPath;
    CLI::App* inspectCommand = app.add_subcommand(
        "inspect",
        "Show a report descriptor as a HID engineer reads it: per top-level collection its link collections, "
        "then every report with its length in bytes (report ID byte included) and one line per field: "
        "byte.bit offset in the report (byte 0 is the report ID), bits x count, usages and main-item flags, "
        "then the logical range and, where the descriptor gives them, physical range, unit and exponent. "
        "Warnings about doubtful items go to standard error.");
    inspectCommand->add_flag("--json", inspect.json, "print JSON instead of text");
    inspectCommand->add_flag("--items", inspect.items,
                             "list the descriptor item by item: byte offset, raw bytes, decoded item");
    inspectCommand->add_flag("--binary", inspect.binary,
                             "FILE holds raw descriptor bytes (detected without it when FILE starts with one)");
    inspectCommand
        ->add_option("--collection", inspect.collection, "only top-level collection N (counted from 0)")
        ->check(CLI::Range(0L, 65535L))
        ->type_name("N");
    inspectCommand
        ->add_option("--device", inspect.device,
                     "only device N (counted from 0) of a capture of several devices")
        ->check(CLI::Range(0L, 65535L))
        ->type_name("N");
    inspectCommand
        ->add_option("FILE", inspectPath,
                     "hex text (white space, commas, 0x prefixes, # and // comments, a C array), a hid-recorder "
                     "capture, usbhid-dump output, raw bytes, or '-' for standard input")
        ->required();

    bool human = false;
    std::string scenarioPath;
    CLI::App* runCommand = app.add_subcommand(
        "run", "Play a scenario file: load the driver on a simulated device, run the steps and print one JSON "
               "event a line. Exit status 0: every step ran; 1: a contract was broken; 2: bad scenario.");
    runCommand->add_flag("--human", human, "a readable rendering of the same events");
    runCommand->add_option("SCENARIO", scenarioPath, "the scenario file (docs/scenario-format.md)")->required();

    bool demoJson = false;
    CLI::App* demoCommand = app.add_subcommand(
        "demo", "Run the driver on the built-in demo device for a minute of virtual time and summarize.");
    demoCommand->add_flag("--json", demoJson, "print the run's events, one JSON object a line");

    // CLI11 would take an unknown command for a stray argument.
    if (!args.empty() && !args[0].empty() && args[0][0] != '-' && !HasCommand(app, args[0])) {
        err << "hidsensor: unknown command '" << args[0] << "' (see 'hidsensor --help')\n";
        return kUsageError;
    }
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        // Help for the command it was asked of.
        const CLI::App* helped = &app;
        for (const CLI::App* command : {inspectCommand, runCommand, demoCommand}) {
            if (command->parsed())
                helped = command;
        }
        return ReportParseError(*helped, error, out, err);
    }

    std::string text;
    std::string errors;
    int status = kUsageError;
    if (inspectCommand->parsed()) {
        status = InspectFile(inspectPath, inspect, text, errors);
    } else if (runCommand->parsed()) {
        return RunScenarioFile(scenarioPath, human, out, err);
    } else if (demoCommand->parsed()) {
        return RunDemo(demoJson, out, err);
    }
    out << text;
    err << errors;
    return status;
}

int RunInspect(const std::vector<std::string>& args, std::string& out, std::string& err)
{
    std::vector<std::string> all = {"inspect"};
    all.insert(all.end(), args.begin(), args.end());
    std::ostringstream outStream;
    std::ostringstream errStream;
    const int status = RunCommandLine(all, outStream, errStream);
    out = outStream.str();
    err = errStream.str();
    return status;
}

}  // namespace hidsensor
