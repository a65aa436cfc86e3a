// The terminal's programs in one: it is the one it is called by the name of.

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "sim/programs/Programs.h"

namespace {

using program::Door;

/// Nothing but a question: the words of the command line, and the environment for the script of the
/// DHCP client. The answer is the exit status.
int askOnly(Door& door, int argc, char** argv) {
    program::Words question{"run"};
    question.insert(question.end(), argv + 1, argv + argc);
    for (const char* variable : {"interface", "ip", "subnet", "router", "dns"}) {
        if (const char* const value = getenv(variable))
            question.push_back(std::string(variable) + "=" + value);
    }
    return atoi(door.ask(question)[0].c_str());
}

constexpr struct {
    const char* name;
    int (*run)(Door&, int argc, char** argv);
} Programs[] = {
    {"modprobe", askOnly},       {"insmod", askOnly},
    {"rmmod", askOnly},          {"default.script", askOnly},
    {"udhcpc", program::udhcpc}, {"wpa_supplicant", program::wpaSupplicant},
    {"pppd", program::pppd},
};

}  // namespace

int main(int argc, char** argv) {
    constexpr int NoSuchProgram = 127;
    if (argc > 2 && strcmp(argv[1], "--as") == 0) {  // started by way of an emulator
        argv += 2;
        argc -= 2;
    }
    const char* const slash = strrchr(argv[0], '/');
    const char* const name = slash ? slash + 1 : argv[0];
    for (const auto& known : Programs) {
        if (strcmp(known.name, name) != 0)
            continue;
        Door door(name);
        door.begin({argv + 1, argv + argc});
        return known.run(door, argc, argv);
    }
    return NoSuchProgram;
}
