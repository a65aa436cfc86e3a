#include "CommandLine.h"

#include <CLI/CLI.hpp>

namespace ctl {
namespace {

constexpr double LongestSeconds = 1'000'000;

void demand(CLI::Option* option, const Check& check) {
    if (check)
        option->check(*check);
}

}  // namespace

Check within(int least, int most) { return std::make_shared<CLI::Range>(least, most); }

Check among(const std::vector<std::string>& words) {
    return std::make_shared<CLI::IsMember>(words);
}

Check either(const Check& one, const Check& other) {
    return std::make_shared<CLI::Validator>(*one | *other);
}

Check unless(std::string (*whyNot)(const std::string& text)) {
    return std::make_shared<CLI::Validator>(whyNot, "");
}

std::string Command::name() const { return app.get_name(); }

Command Command::add(const char* name, const char* what) {
    app.require_subcommand(1);
    return Command(*app.add_subcommand(name, what), chosen);
}

void Command::take(const std::string& name, std::string& text, const char* what,
                   const Check& check) {
    demand(app.add_option(name, text, what), check);
}

void Command::take(const std::string& name, std::optional<std::string>& text, const char* what) {
    // Given as a variable, an empty text would be none.
    const auto give = [&text](const std::string& given) { text = given; };
    app.add_option_function<std::string>(name, give, what);
}

void Command::take(const std::string& name, int& number, const char* what, const Check& check) {
    demand(app.add_option(name, number, what), check);
}

void Command::takeFlag(const char* name, bool& isGiven, const char* what) {
    app.add_flag(name, isGiven, what);
}

void Command::takeSeconds(const char* name, double& seconds, const char* what) {
    app.add_option(name, seconds, what)->check(CLI::Range(0.0, LongestSeconds));
}

void Command::need(const char* name, std::string& text, const char* what, const Check& check) {
    take(name, text, what, check);
    app.get_option(name)->required();
}

void Command::need(const char* name, int& number, const char* what, const Check& check) {
    take(name, number, what, check);
    app.get_option(name)->required();
}

void Command::act(Action action) {
    app.callback([&made = chosen, action = std::move(action)] { made = action; });
}

int millisecondsOf(double seconds) { return static_cast<int>(seconds * 1000); }

Status run(int argc, const char* const* argv, void (*declare)(Command all),
           Status (*perform)(const Action& action, bool asJson)) {
    CLI::App app("Shows and controls the devices and links of the terminal.", "terminalctl");
    Action chosen;
    bool asJson = false;
    app.fallthrough();
    app.set_version_flag("--version", TERMINALCTL_VERSION);
    app.add_flag("--json", asJson, "tells each thing as a JSON object in a line");
    app.footer(
        "Ends with 0 when all is well, 1 when a device, file or link has failed, 2 for wrong "
        "usage, 3 when\nthe time is over or there is nothing of what was asked for.");
    declare(Command(app, chosen));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Done : WrongUsage;
    }
    return perform(chosen, asJson);
}

}  // namespace ctl
