#include "tool_process.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

constexpr const char *error_file = "/tmp/test.err";

void redirect(int descriptor, const char *file)
{
    const int opened = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(opened, descriptor);
    close(opened);
}

[[noreturn]] void become(const Invocation &invocation)
{
    redirect(STDOUT_FILENO, invocation.out_file.c_str());
    redirect(STDERR_FILENO, error_file);
    for (const std::string &setting : invocation.environment) {
        const size_t equals = setting.find('=');
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    std::vector<char *> arguments{const_cast<char *>(invocation.program.c_str())};
    for (const std::string &argument : invocation.arguments)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    for (const int descriptor : invocation.closed)
        close(descriptor);
    execv(invocation.program.c_str(), arguments.data());
    _exit(127);
}

} // namespace

Outcome run_program(const Invocation &invocation)
{
    const pid_t child = fork();
    if (child == 0)
        become(invocation);
    if (invocation.while_it_runs)
        invocation.while_it_runs(child);
    int status = 0;
    waitpid(child, &status, 0);
    return {.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
            .out = file_text(invocation.out_file),
            .err = file_text(error_file)};
}

std::string file_text(const std::string &path)
{
    if (!std::filesystem::is_regular_file(path))
        return {};
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

} // namespace test
