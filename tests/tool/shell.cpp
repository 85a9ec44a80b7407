#include "shell.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tool_process.h"

namespace test {
namespace {

constexpr int patience_ms = 120000;
const std::string marker = "that was all of it\n";

[[noreturn]] void become_shell(const std::string &directory, int input, int output)
{
    setpgid(0, 0); // so that what it starts can be ended with it
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    const std::string path =
        std::filesystem::path(INLINECTL).parent_path().string() + ":" + std::getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("COLUMNS");
    if (chdir(directory.c_str()) == 0)
        execlp("bash", "bash", "--norc", "--noprofile", nullptr);
    _exit(127);
}

bool says_that_it_stays(const std::string &command)
{
    return command.ends_with('&') && command.find("--stay") != std::string::npos &&
           command.find("--quiet") == std::string::npos;
}

// What tells that the host or card of a command is there; nothing for other commands.
std::string sign_of_readiness(const std::string &command)
{
    std::smatch found;
    if (std::regex_search(command, found, std::regex("--listen ([^ &]+)")))
        return "[ -S " + found[1].str() + " ]";
    if (std::regex_search(command, found, std::regex("--state ([^ &]+)")))
        return "inlinectl util connection --state " + found[1].str() + " >/dev/null 2>&1";
    return {};
}

} // namespace

Shell::Shell(const std::string &directory)
{
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0)
        become_shell(directory, in[0], out[1]);
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    output_ = out[0];
}

Shell::~Shell()
{
    kill(-process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    close(input_);
    close(output_);
}

void Shell::send(const std::string &text) const
{
    if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the shell takes nothing");
}

std::vector<std::string> Shell::type(const std::string &command)
{
    std::string typed = command + "\n";
    if (says_that_it_stays(command)) {
        send(typed);
        return lines_of(printed_until("until Ctrl-C\n") + "until Ctrl-C\n");
    }
    const std::string ready = command.ends_with('&') ? sign_of_readiness(command) : "";
    if (!ready.empty())
        typed += "for i in $(seq 600); do " + ready + " && break; sleep 0.05; done\n";
    typed += "printf '\\n%s' '" + marker + "'\n";
    send(typed);
    std::string printed = printed_until("\n" + marker);
    if (printed.ends_with('\n'))
        printed.pop_back();
    return lines_of(printed);
}

std::string Shell::printed_until(const std::string &end)
{
    std::string printed;
    while (!printed.ends_with(end)) {
        pollfd waited{output_, POLLIN, 0};
        char piece[4096];
        const ssize_t got =
            poll(&waited, 1, patience_ms) > 0 ? read(output_, piece, sizeof piece) : 0;
        if (got <= 0)
            throw std::runtime_error("the shell says nothing more behind: " + printed);
        printed.append(piece, static_cast<size_t>(got));
    }
    return printed.substr(0, printed.size() - end.size());
}

} // namespace test
