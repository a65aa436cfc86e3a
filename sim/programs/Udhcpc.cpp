#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "sim/programs/Programs.h"

namespace program {
namespace {

constexpr int Nothing = -1;  // descriptor

/// Runs the script, which stands beside this program.
void runScript(const std::string& self, const char* event) {
    const std::string script = self.substr(0, self.rfind('/') + 1) + "default.script";
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl(script.c_str(), script.c_str(), event, nullptr);
        _exit(EXIT_FAILURE);
    }
    if (child > 0)
        ::waitpid(child, nullptr, 0);
}

/// Asks until there is a lease. Its addresses, or nothing when the tries are used up or the client
/// is told to end.
Words askForLease(const Door& door, const std::string& interface, int tries) {
    for (int i = 0; i < tries; ++i) {
        Words answer = door.ask({"discover", interface});
        if (answer[0] == "lease" && answer.size() == 5)
            return {answer.begin() + 1, answer.end()};
        const int pauseMs = answer.size() > 1 ? atoi(answer[1].c_str()) : 0;
        if (!waitUnlessEnded(door, Nothing, pauseMs))
            break;
    }
    return {};
}

}  // namespace

int udhcpc(Door& door, int argc, char** argv) {
    std::string pidFile;
    std::string interface = "eth0";
    bool releases = false;
    int tries = 3;
    for (int option = 0; (option = getopt(argc, argv, "nRt:p:i:")) != -1;) {
        switch (option) {
        case 'n': break;  // to end without a lease is all that is modelled
        case 'R': releases = true; break;
        case 't': tries = atoi(optarg); break;
        case 'p': pidFile = door.hostPath(optarg); break;
        case 'i': interface = optarg; break;
        default: return EXIT_FAILURE;
        }
    }
    holdEndingSignals();
    setenv("interface", interface.c_str(), 1);
    writePidFile(pidFile);
    runScript(argv[0], "deconfig");
    const Words lease = askForLease(door, interface, tries);
    if (lease.empty()) {
        ::unlink(pidFile.c_str());
        return EXIT_FAILURE;
    }
    const char* const names[] = {"ip", "subnet", "router", "dns"};
    for (size_t i = 0; i < lease.size(); ++i)
        setenv(names[i], lease[i].c_str(), 1);
    runScript(argv[0], "bound");

    door.daemonize([&] { writePidFile(pidFile); });
    while (waitUnlessEnded(door, Nothing, -1)) {}
    if (releases)
        door.ask({"release"});
    runScript(argv[0], "deconfig");
    ::unlink(pidFile.c_str());
    return EXIT_SUCCESS;
}

}  // namespace program
