#include "call_sweep.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "private_card.h"
#include "swept_process.h"

namespace test {
namespace {

constexpr char state_directory[] = "/tmp/card";
constexpr char error_output[] = "/tmp/errors";
constexpr char expected_assertion[] = "lc/inline-service/src/inline_service_shadowdb_util.cpp";
constexpr unsigned longest_point_seconds = 20;
constexpr size_t most_failed = 20; // more would say nothing new

// What a forked process says of itself, in memory that both see.
struct Verdict {
    enum State : uint32_t { none, agreed, exits, asserts, differs };
    State state;
    char text[6000];
};

// The process that was forked for a point; there is one a process.
struct Child {
    SweptProcess *process = nullptr;
    Verdict *verdict = nullptr;
    size_t step = 0;
    std::string where;
};
Child child;

void say(Verdict::State when_it_agrees)
{
    const std::vector<std::string> &differences = child.process->differences();
    child.verdict->state = differences.empty() ? when_it_agrees : Verdict::differs;
    std::string text = "at " + child.where + ":\n";
    for (const std::string &line : differences)
        text += "    " + line + "\n";
    std::snprintf(child.verdict->text, sizeof child.verdict->text, "%s", text.c_str());
}

void say_unexpected(const std::string &what)
{
    child.verdict->state = Verdict::differs;
    std::snprintf(child.verdict->text, sizeof child.verdict->text, "at %s: %s\n",
                  child.where.c_str(), what.c_str());
}

void on_exit_of_child(int status, void *)
{
    const std::optional<ProcessEnd> end = child.process->end_inside_step();
    if (status != 1 || end != ProcessEnd::exit_status_1) {
        say_unexpected("the process ended with status " + std::to_string(status));
    } else {
        child.process->compare_state();
        say(Verdict::exits);
    }
    _exit(status);
}

bool assertion_was_said()
{
    std::ostringstream content;
    content << std::ifstream(error_output).rdbuf();
    const std::string text = content.str();
    return text.find(expected_assertion) != std::string::npos &&
           text.find(" shmem_node -- assertion failed\n") != std::string::npos;
}

// An assertion ends in a fault, which the process dies of once it was looked at.
void on_fault_of_child(int number)
{
    std::signal(number, SIG_DFL);
    const std::optional<ProcessEnd> end = child.process->end_inside_step();
    if (number != SIGSEGV || end != ProcessEnd::assertion_shmem_node || !assertion_was_said()) {
        say_unexpected("the process died of signal " + std::to_string(number));
    } else {
        child.process->compare_state();
        say(Verdict::asserts);
    }
}

void become_child(SweptProcess &process, Verdict *verdict, size_t step, const Step &what)
{
    child = {&process, verdict, step, describe(what, step)};
    make_card_private(state_directory);
    alarm(longest_point_seconds);
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    const int errors = open(error_output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(errors, STDERR_FILENO);
    close(errors);
    on_exit(on_exit_of_child, nullptr);
    for (const int fault : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
        std::signal(fault, on_fault_of_child);
}

class Sweep {
public:
    Sweep(const SweepPlan &plan, std::function<void(size_t)> progress)
        : plan_(plan), progress_(std::move(progress)),
          verdict_(static_cast<Verdict *>(mmap(nullptr, sizeof(Verdict), PROT_READ | PROT_WRITE,
                                               MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        result_.per_failure.resize(service_failures().size());
    }
    ~Sweep() { munmap(verdict_, sizeof(Verdict)); }
    Sweep(const Sweep &) = delete;
    Sweep &operator=(const Sweep &) = delete;

    SweepResult run()
    {
        SweptProcess process(plan_.card_type, state_directory);
        process_ = &process;
        process.observe([this](Service service, uint64_t count) { try_failures(service, count); });
        for (step_ = 0; step_ < plan_.scenario.size(); ++step_) {
            const Step &step = plan_.scenario[step_];
            child.where = describe(step, step_);
            // What the window held is gone after a reset.
            if (step.kind == StepKind::reset_window)
                process.compare_state();
            const bool failed_before = is_child_;
            if (!process.carry_out(step) || !process.differences().empty())
                break;
            // Right behind the failure too: later steps may clear away what it left.
            if (is_child_ && !failed_before && step.kind != StepKind::reset_window)
                process.compare_state();
        }
        finish_child();
        if (!process.differences().empty())
            fail("without a failure", process.differences().front() + " at " + child.where);
        result_.calls = process.calls();
        return result_;
    }

private:
    void finish_child()
    {
        if (!is_child_)
            return;
        if (process_->differences().empty() && step_ < plan_.scenario.size())
            process_->compare_state(); // the host did not come up
        say(Verdict::agreed);
        _exit(0);
    }

    void try_failures(Service service, uint64_t count)
    {
        if (result_.failed() >= most_failed)
            return;
        for (size_t i = 0; i < service_failures().size(); ++i) {
            for (const bool for_ever : {false, true}) {
                const FaultPoint point = {i, count, for_ever};
                if (service_failures()[i].service != service || !plan_.takes(point))
                    continue;
                try_point(point);
                if (is_child_)
                    return;
            }
        }
    }

    void try_point(const FaultPoint &point)
    {
        const auto begin = std::chrono::steady_clock::now();
        verdict_->state = Verdict::none;
        verdict_->text[0] = '\0';
        std::fflush(nullptr); // what is in buffers would be written twice
        const pid_t pid = fork();
        if (pid == 0) {
            is_child_ = true;
            become_child(*process_, verdict_, step_, plan_.scenario[step_]);
            process_->set_fault(point);
            return;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        judge(point, status);
        SweepResult::PerFailure &sum = result_.per_failure[point.failure];
        ++sum.points;
        sum.seconds +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        if (progress_)
            progress_(step_);
    }

    void judge(const FaultPoint &point, int status)
    {
        const Verdict::State state = verdict_->state;
        const bool ended_so =
            (state == Verdict::agreed && WIFEXITED(status) && WEXITSTATUS(status) == 0) ||
            (state == Verdict::exits && WIFEXITED(status) && WEXITSTATUS(status) == 1) ||
            (state == Verdict::asserts && WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
        result_.exits += ended_so && state == Verdict::exits;
        result_.assertions += ended_so && state == Verdict::asserts;
        if (ended_so)
            return;
        ++result_.per_failure[point.failure].failed;
        std::string text = verdict_->text;
        if (state != Verdict::differs)
            text = "the process ended unforeseen: wait status " + std::to_string(status) + "\n";
        fail(describe(point), text);
    }

    void fail(const std::string &what, const std::string &text)
    {
        result_.texts.push_back(what + " " + text);
    }

    const SweepPlan &plan_;
    std::function<void(size_t)> progress_;
    Verdict *verdict_;
    SweepResult result_;
    SweptProcess *process_ = nullptr;
    size_t step_ = 0;
    bool is_child_ = false;
};

} // namespace

uint64_t SweepResult::points() const
{
    uint64_t sum = 0;
    for (const PerFailure &failure : per_failure)
        sum += failure.points;
    return sum;
}

uint64_t SweepResult::failed() const
{
    uint64_t sum = 0;
    for (const PerFailure &failure : per_failure)
        sum += failure.failed;
    return sum;
}

SweepResult sweep(const SweepPlan &plan, const std::function<void(size_t step)> &progress)
{
    return Sweep(plan, progress).run();
}

} // namespace test
