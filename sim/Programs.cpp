#include "sim/Programs.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "sim/HostTime.h"
#include "sim/Text.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"
#include "sim/programs/DoorProtocol.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr auto EndLimit = std::chrono::seconds(10);

/// The folder of the programs, which stands beside this library's own.
std::string programFolder() {
    Dl_info self{};
    if (!dladdr(reinterpret_cast<const void*>(&programFolder), &self) || !self.dli_fname)
        return "";
    std::error_code ignored;
    const fs::path library = fs::canonical(self.dli_fname, ignored);
    return (library.parent_path() / TERMINAL_SIM_PROGRAMS).lexically_normal().string();
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// In single quotes, as the shell takes it.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char character : text)
        result += character == '\'' ? "'\\''" : std::string(1, character);
    return result + "'";
}

Words split(const char* packet, size_t size) {
    Words words;
    for (size_t at = 0; at < size; at += words.back().size() + 1)
        words.emplace_back(packet + at, strnlen(packet + at, size - at));
    return words;
}

std::string packed(const Words& words) {
    std::string packet;
    for (const std::string& word : words)
        packet += word + '\0';
    return packet;
}

}  // namespace

Programs::Programs(Journal& eventJournal, const RootFolder& rootFolder)
    : journal(eventJournal), files(rootFolder), owner(getpid()), folder(programFolder()),
      environment(std::string(door::RootVariable) + "=" + rootFolder.hostPath("")),
      listener(
          Descriptors::get().keep(SIM_REAL(socket)(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))),
      wakeUp(Descriptors::get().keep(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = files.hostPath(door::SocketPath);
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the terminal's root folder has too long a name: " + path);
    memcpy(address.sun_path, path.c_str(), path.size());
    if (SIM_REAL(bind)(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, SOMAXCONN) != 0 || wakeUp < 0)
        throw std::runtime_error("no door for the terminal's programs at " + path);
    // Processes that go to the background become this one's children, and can be signalled as its
    // own and reaped.
    reapsOrphans = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
    server.start([this] { serve(); });
}

Programs::~Programs() {
    shutDown();
    Descriptors::get().closeKept(listener);
    Descriptors::get().closeKept(wakeUp);
}

void Programs::shutDown() {
    if (!server.isRunning())
        return;
    const uint64_t one = 1;
    SIM_REAL(write)(wakeUp, &one, sizeof one);
    server.join();
    for (const auto& visitor : visitors) {
        if (visitor.second.isDaemon) {
            SIM_REAL(kill)(visitor.second.process, SIGKILL);
            noteEnd(visitor.second);
        }
        Descriptors::get().closeKept(visitor.first);
    }
    visitors.clear();
    const HostTime hostTime;
    eventually(
        [this] {
            reapEnded();
            return ended.empty();
        },
        EndLimit);
}

void Programs::answer(const std::string& program, Answer programAnswer) {
    answers[program] = std::move(programAnswer);
}

void Programs::failNext(const std::string& program, int status, int times) {
    const std::lock_guard<std::mutex> held(mutex);
    failures[program] = {"exit " + std::to_string(status), times};
}

void Programs::crashNext(const std::string& program, int signal, int times) {
    const std::lock_guard<std::mutex> held(mutex);
    failures[program] = {"kill " + std::to_string(signal), times};
}

void Programs::setMissing(const std::string& program, bool isMissing) {
    const std::lock_guard<std::mutex> held(mutex);
    missing[program] = isMissing;
}

std::vector<pid_t> Programs::running(const std::string& program) const {
    const std::lock_guard<std::mutex> held(mutex);
    std::vector<pid_t> processes;
    for (const auto& [socket, visitor] : visitors) {
        // One that has been waited for is gone, though the door has not heard of it yet.
        if (visitor.program == program && SIM_REAL(kill)(visitor.process, 0) == 0)
            processes.push_back(visitor.process);
    }
    return processes;
}

bool Programs::isRunning(pid_t process) const {
    const std::lock_guard<std::mutex> held(mutex);
    return std::any_of(visitors.begin(), visitors.end(),
                       [=](const auto& visitor) { return visitor.second.process == process; });
}

void Programs::signalRunning(const std::string& program, int signal) const {
    for (const pid_t process : running(program))
        SIM_REAL(kill)(process, signal);
}

std::string Programs::hostPathOf(const std::string& program) const {
    const std::string name = nameOf(program);
    {
        const std::lock_guard<std::mutex> held(mutex);
        const auto found = missing.find(name);
        if (answers.count(name) == 0 || (found != missing.end() && found->second))
            return "";
    }
    const std::string path = folder + "/" + name;
    return SIM_REAL(access)(path.c_str(), X_OK) == 0 ? path : "";
}

/// Plain words only: what the shell takes for more (another command, a file) would be the host's.
std::string Programs::hostCommandOf(const std::string& command) const {
    if (command.find_first_of(";&|<>`$(){}\n") != std::string::npos)
        return "";
    const size_t end = std::min(command.find(' '), command.size());
    const std::string program = hostPathOf(command.substr(0, end));
    if (program.empty())
        return "";
    const size_t value = environment.find('=') + 1;
    return environment.substr(0, value) + quoted(environment.substr(value)) + " " +
           quoted(program) + command.substr(end);
}

void Programs::serve() {
    for (;;) {
        std::vector<pollfd> waited{{wakeUp, POLLIN, 0}, {listener, POLLIN, 0}};
        for (const auto& visitor : visitors)
            waited.push_back({visitor.first, POLLIN, 0});
        constexpr int ReapMs = 5;
        SIM_REAL(poll)(waited.data(), waited.size(), ended.empty() ? -1 : ReapMs);
        if (waited[0].revents)
            return;
        if (waited[1].revents)
            letIn();
        for (size_t i = 2; i < waited.size(); ++i) {
            if (!waited[i].revents || hear(waited[i].fd))
                continue;
            Descriptors::get().closeKept(waited[i].fd);
            const std::lock_guard<std::mutex> held(mutex);
            const auto gone = visitors.find(waited[i].fd);
            noteEnd(gone->second);
            visitors.erase(gone);
        }
        reapEnded();
    }
}

void Programs::letIn() {
    const int socket =
        Descriptors::get().keep(SIM_REAL(accept4)(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket < 0) {
        pauseBriefly();  // none is free: the program stays at the door
        return;
    }
    const std::lock_guard<std::mutex> held(mutex);
    visitors[socket];
}

/// Answers one packet. False when the program has ended.
bool Programs::hear(int socket) {
    std::string packet(door::LongestPacket, '\0');
    const ssize_t size = SIM_REAL(recv)(socket, packet.data(), packet.size(), MSG_DONTWAIT);
    if (size <= 0)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    Visitor visitor;
    {
        const std::lock_guard<std::mutex> held(mutex);
        visitor = visitors[socket];
    }
    const std::string answer =
        packed(reply(visitor, split(packet.data(), static_cast<size_t>(size))));
    {
        const std::lock_guard<std::mutex> held(mutex);
        visitors[socket] = visitor;
    }
    return SIM_REAL(send)(socket, answer.data(), answer.size(), MSG_NOSIGNAL) >= 0;
}

Words Programs::reply(Visitor& visitor, const Words& question) {
    if (question[0] == door::Begin && question.size() > 3) {
        visitor.process = static_cast<pid_t>(std::stol(question[1]));
        visitor.isOwnChild = std::stol(question[2]) == owner;
        visitor.program = question[3];
        journal.note(visitor.program, "start " + joined(question, 4));
        const std::lock_guard<std::mutex> held(mutex);
        const auto failure = failures.find(visitor.program);
        const bool fails = failure != failures.end() && failure->second.times > 0;
        return {fails && failure->second.times-- > 0 ? failure->second.answer : ""};
    }
    if (question[0] == door::Daemon && question.size() == 2) {
        visitor.process = static_cast<pid_t>(std::stol(question[1]));
        visitor.isDaemon = true;
        return {""};
    }
    const auto model = answers.find(visitor.program);
    return model != answers.end() && model->second ? model->second(question) : Words{""};
}

/// A program that nobody else waits for has ended, or is about to.
void Programs::noteEnd(const Visitor& visitor) {
    if (reapsOrphans && (visitor.isDaemon || !visitor.isOwnChild))
        ended.push_back(visitor.process);
}

/// A process that has just ended may still be its parent's child, until that has reaped it or has
/// ended too.
void Programs::reapEnded() {
    const auto isReaped = [](pid_t process) {
        return ::waitpid(process, nullptr, WNOHANG) > 0 ||
               (SIM_REAL(kill)(process, 0) != 0 && errno == ESRCH);
    };
    ended.erase(std::remove_if(ended.begin(), ended.end(), isReaped), ended.end());
}

}  // namespace sim
