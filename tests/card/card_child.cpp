#include "card_child.h"

#include <csignal>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace test {

CardChild::CardChild(std::vector<std::string> more_arguments)
{
    start(more_arguments);
}

CardChild::~CardChild()
{
    if (process_ > 0)
        kill();
}

void CardChild::start(const std::vector<std::string> &more_arguments)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        std::vector<const char *> arguments{INLINECTL, "card",    "--listen",
                                            socket,    "--state", state};
        for (const std::string &argument : more_arguments)
            arguments.push_back(argument.c_str());
        arguments.push_back(nullptr);
        execv(INLINECTL, const_cast<char *const *>(arguments.data()));
        _exit(127);
    }
    close(ends[1]);
    // Its first line comes when it listens.
    char byte = 0;
    while (byte != '\n') {
        if (read(ends[0], &byte, 1) != 1) {
            close(ends[0]);
            throw std::runtime_error("the card did not start");
        }
    }
    close(ends[0]);
}

void CardChild::kill()
{
    ::kill(process_, SIGKILL);
    wait();
}

int CardChild::wait()
{
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

} // namespace test
