#include "running_host.h"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vlc/host_console.h"
#include "vlc/state_error.h"

namespace test {
namespace {

constexpr const char *out_file = "/tmp/host.out";
constexpr const char *error_file = "/tmp/host.err";

void redirect(int descriptor, const char *file)
{
    const int opened = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(opened, descriptor);
    close(opened);
}

[[noreturn]] void become_host(const std::vector<std::string> &more)
{
    redirect(STDOUT_FILENO, out_file);
    redirect(STDERR_FILENO, error_file);
    std::vector<const char *> arguments{INLINECTL, "run", "--state", RunningHost::state};
    for (const std::string &argument : more)
        arguments.push_back(argument.c_str());
    arguments.push_back(nullptr);
    execv(INLINECTL, const_cast<char *const *>(arguments.data()));
    _exit(127);
}

// The verb is there once the host has started.
bool answers()
{
    try {
        return vlc::ConsoleClient(RunningHost::state).ask("util", "2").status == 0;
    } catch (const vlc::StateError &) {
        return false;
    }
}

} // namespace

RunningHost::RunningHost(const std::vector<std::string> &arguments)
{
    process_ = fork();
    if (process_ == 0)
        become_host(arguments);
    while (!answers()) {
        if (waitpid(process_, nullptr, WNOHANG) == process_) {
            process_ = -1;
            throw std::runtime_error("the host did not stay: " + file_text(error_file));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

RunningHost::~RunningHost()
{
    if (process_ > 0)
        end(SIGKILL);
}

void RunningHost::wait_until_it_says(const std::string &text) const
{
    while (file_text(error_file).find(text) == std::string::npos)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

Outcome RunningHost::end(int signal)
{
    int status = 0;
    kill(process_, signal);
    waitpid(process_, &status, 0);
    process_ = -1;
    return {.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
            .out = file_text(out_file),
            .err = file_text(error_file)};
}

} // namespace test
