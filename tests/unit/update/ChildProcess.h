// Runs a helper program as a child process that replies to each line with one line. For behaviour that needs a separate
// process: being killed, being stopped, other rights.
#pragma once

#include "platform/files/ScopedFd.h"

#include <csignal>
#include <doctest/doctest.h>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace zul::test {

class ChildProcess {
  public:
    explicit ChildProcess(std::vector<std::string> command) {
        int input[2], output[2];
        REQUIRE(::pipe2(input, O_CLOEXEC) == 0);
        REQUIRE(::pipe2(output, O_CLOEXEC) == 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::vector<char*> arguments;
        for (auto& argument : command) arguments.push_back(argument.data());
        arguments.push_back(nullptr);
        const int error = ::posix_spawn(&_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        _input = ScopedFd(input[1]);
        _output = ScopedFd(output[0]);
        REQUIRE_MESSAGE(error == 0, "cannot start " << command[0]);
    }
    ~ChildProcess() { kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int pid() const { return _pid; }
    /// Sends a line and returns the child's reply; empty if it has ended.
    std::string operator()(const std::string& line) {
        send(line);
        return readLine();
    }
    void send(const std::string& line) {
        const std::string sent = line + '\n';
        static_cast<void>(!::write(_input.get(), sent.data(), sent.size())); // a child that has ended does not reply
    }
    /// Waits for the child's next line. Empty if it has ended.
    std::string readLine() {
        std::string line;
        for (char byte = 0; ::read(_output.get(), &byte, 1) == 1;) {
            if (byte == '\n') return line;
            line += byte;
        }
        return line;
    }
    /// Kills the process and waits until it has ended.
    void kill() {
        if (_pid <= 0) return;
        ::kill(_pid, SIGKILL);
        ::waitpid(_pid, nullptr, 0);
        _pid = 0;
    }
    /// Kills it but leaves it as a zombie, like a child of a busy parent.
    void killWithoutReaping() {
        ::kill(_pid, SIGKILL);
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOWAIT);
    }
    /// Stops the process; returns when it is no longer running.
    void stop() {
        ::kill(_pid, SIGSTOP);
        ::waitpid(_pid, nullptr, WUNTRACED);
    }
    void resume() { ::kill(_pid, SIGCONT); }

  private:
    pid_t _pid = 0;
    ScopedFd _input, _output;
};

} // namespace zul::test
