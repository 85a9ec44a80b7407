#include "traced_calls.h"

#include <cerrno>
#include <csignal>
#include <new>
#include <stdexcept>

#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

// Shared between the tracer and what it traces, so that nothing has to be called to say it.
volatile bool &is_counting = *[] {
    void *page =
        mmap(nullptr, sizeof(bool), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return new (page) bool(false);
}();

constexpr int not_permitted = 77;

[[noreturn]] void be_traced(const std::function<void()> &work)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(not_permitted);
    raise(SIGSTOP);
    work();
    _exit(0);
}

// A call is counted where it begins; it stops there and where it ends.
void note_stop(pid_t child, bool begins, SystemCalls &calls)
{
    if (!begins || !is_counting)
        return;
    user_regs_struct registers{};
    if (ptrace(PTRACE_GETREGS, child, nullptr, &registers) == 0)
        ++calls[static_cast<long>(registers.orig_rax)];
}

} // namespace

CallsCount::CallsCount()
{
    is_counting = true;
}

CallsCount::~CallsCount()
{
    is_counting = false;
}

std::optional<SystemCalls> traced_calls(const std::function<void()> &work)
{
    constexpr int at_a_call = SIGTRAP | 0x80; // by PTRACE_O_TRACESYSGOOD
    const pid_t child = fork();
    if (child == 0)
        be_traced(work);
    SystemCalls calls;
    bool begins = true;
    for (int status = 0; waitpid(child, &status, 0) == child;) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == not_permitted)
            return std::nullopt;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            return calls;
        if (!WIFSTOPPED(status))
            break;
        int signal = WSTOPSIG(status);
        if (signal == at_a_call) {
            note_stop(child, begins, calls);
            begins = !begins;
            signal = 0;
        } else if (signal == SIGSTOP) {
            ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
            signal = 0;
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, static_cast<long>(signal));
    }
    throw std::runtime_error("the traced process did not end well");
}

} // namespace test
