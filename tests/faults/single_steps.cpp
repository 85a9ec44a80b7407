#include "single_steps.h"

#include <csignal>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

// False when it does not run any more; it can still be waited for.
bool wait_until_it_stops(pid_t child)
{
    siginfo_t what = {};
    if (waitid(P_PID, static_cast<id_t>(child), &what, WEXITED | WSTOPPED | WNOWAIT) != 0 ||
        what.si_code == CLD_EXITED || what.si_code == CLD_KILLED || what.si_code == CLD_DUMPED)
        return false;
    int status = 0;
    return waitpid(child, &status, 0) == child;
}

} // namespace

bool can_trace()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

void run_steps_and_kill(pid_t child, uint64_t instructions, const std::function<bool()> &enough)
{
    if (!wait_until_it_stops(child))
        return;
    while (instructions-- > 0 && !(enough && enough())) {
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0 || !wait_until_it_stops(child))
            return;
    }
    kill(child, SIGKILL);
}

} // namespace test
