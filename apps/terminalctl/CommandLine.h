#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Compiling the parser's header takes longer than all the commands: one source alone includes it.
namespace CLI {  // NOLINT(readability-identifier-naming): the library's
class App;
class Validator;
}  // namespace CLI

namespace ctl {

class Output;

/// What the program ends with.
enum Status : int {
    Done = 0,
    Failed = 1,      ///< a device, a file or a link
    WrongUsage = 2,  ///< of the command line or of a file of settings
    Nothing = 3      ///< the time is over, or what was asked for is not there
};

/// What a command does, once its arguments have been read.
using Action = std::function<Status(Output&)>;

/// What a value has to be.
using Check = std::shared_ptr<CLI::Validator>;

Check within(int least, int most);
Check among(const std::vector<std::string>& words);
Check either(const Check& one, const Check& other);
Check unless(std::string (*whyNot)(const std::string& text));

/// One of the names in a table.
template <class Entry> Check among(const std::map<std::string, Entry>& table) {
    std::vector<std::string> names;
    std::transform(table.begin(), table.end(), std::back_inserter(names),
                   [](const auto& entry) { return entry.first; });
    return among(names);
}

/// A command, to declare what stands behind its name on the command line. Variables get their
/// values when the line is read; what it does not name keeps the value that it has.
class Command {
public:
    Command(CLI::App& declared, Action& chosenAction) : app(declared), chosen(chosenAction) {}

    std::string name() const;

    /// Adds a command to this one's, of which one has to be given.
    Command add(const char* name, const char* what);

    // An argument, or an option if the name is like "--name", that may be given.
    void take(const std::string& name, std::string& text, const char* what,
              const Check& check = {});
    void take(const std::string& name, std::optional<std::string>& text, const char* what);
    void take(const std::string& name, int& number, const char* what, const Check& check = {});
    void takeFlag(const char* name, bool& isGiven, const char* what);
    void takeSeconds(const char* name, double& seconds, const char* what);  ///< 0 or more

    // One that has to be given.
    void need(const char* name, std::string& text, const char* what, const Check& check = {});
    void need(const char* name, int& number, const char* what, const Check& check = {});

    /// Sets what it does.
    void act(Action action);

private:
    CLI::App& app;
    Action& chosen;
};

/// Seconds, as the command line takes them, as milliseconds.
int millisecondsOf(double seconds);

/// Reads the command line, made up of the commands that `declare` adds, and has `perform` carry out
/// the action of the one that it names. Tells what is wrong with the line, if anything is.
Status run(int argc, const char* const* argv, void (*declare)(Command all),
           Status (*perform)(const Action& action, bool asJson));

}  // namespace ctl
