#pragma once
// A program run as a child process for whole-program tests: its stdout and stderr go to files
// in a folder of the test, it can be signalled, and it is always reaped (killed if need be)
// when the object goes.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pty.h>
#include <signal.h>
#include <sys/socket.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace havrel::testing {

// A TCP socket bound to 127.0.0.1:port (0: any free port) the way a listener binds it, or -1.
// Not inherited by the programs the test starts.
inline int boundSocket(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

class Process {
public:
    // With a terminal, the program's standard input is a new pseudo-terminal whose controlling
    // side is returned there (the caller closes it); its output still goes to the files.
    Process(const std::string& program, const std::vector<std::string>& arguments, const std::filesystem::path& folder,
            const std::string& name, int* terminal = nullptr)
        : stdoutFile_(folder / (name + ".out")), stderrFile_(folder / (name + ".err")) {
        std::vector<std::string> words{program};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        if (terminal) {
            // Only async-signal-safe calls between fork and exec.
            pid_ = ::forkpty(terminal, nullptr, nullptr, nullptr);
            if (pid_ == 0) {
                const int out = ::open(stdoutFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                const int err = ::open(stderrFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                ::dup2(out, STDOUT_FILENO);
                ::dup2(err, STDERR_FILENO);
                ::execve(program.c_str(), argv.data(), environ);
                ::_exit(127);
            }
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, stdoutFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, stderrFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
            pid_ = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Process() {
        if (running()) {
            ::kill(pid_, SIGKILL);
            wait(std::chrono::seconds(10));
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool started() const { return pid_ > 0; }
    bool running() const { return pid_ > 0 && !status_; }
    pid_t pid() const { return pid_; }
    void signal(int number) const {
        if (running()) ::kill(pid_, number);
    }

    // The exit status once the process has ended within the timeout; -signal when a signal
    // ended it; nothing while it still runs.
    std::optional<int> wait(std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (running()) {
            int raw = 0;
            const pid_t done = ::waitpid(pid_, &raw, WNOHANG);
            if (done == pid_) {
                status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
                break;
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return std::nullopt;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return status_;
    }

    std::string out() const { return read(stdoutFile_); }
    std::string err() const { return read(stderrFile_); }
    std::vector<std::string> outLines() const {
        std::vector<std::string> lines;
        std::istringstream stream(out());
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    static std::string read(const std::filesystem::path& file) {
        std::ifstream stream(file);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    std::filesystem::path stdoutFile_;
    std::filesystem::path stderrFile_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

}  // namespace havrel::testing
