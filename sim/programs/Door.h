#pragma once

#include <string>
#include <vector>

namespace program {

using Words = std::vector<std::string>;

/// A program's way to the terminal it runs on.
class Door {
public:
    /// Ends the program when there is no terminal.
    explicit Door(std::string programName);

    /// Reports the start. The program ends here if the terminal wants it to.
    void begin(const Words& arguments);

    /// Asks the terminal and waits for its answer: one word at least. The program ends here when
    /// the terminal has gone.
    Words ask(const Words& question) const;

    /// Goes on in a new process in the background; the old one exits with 0 once `prepare` has run
    /// in the new one.
    template <class Prepare> void daemonize(Prepare prepare) {
        const int parent = fork();
        prepare();
        release(parent);
    }

    /// Readable when the terminal has gone.
    int descriptor() const { return socket; }

    /// Where a path of the terminal lies on the host.
    std::string hostPath(const std::string& path) const { return root + path; }

private:
    int fork() const;
    static void release(int parent);

    const std::string name;
    std::string root;
    int socket = -1;
};

/// Writes the number of this process to a file of the terminal.
void writePidFile(const std::string& hostPath);

}  // namespace program
