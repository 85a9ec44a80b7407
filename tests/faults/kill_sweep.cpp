#include "kill_sweep.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kill_life.h"
#include "single_steps.h"
#include "vlc/event_manager.h"

namespace test {
namespace {

constexpr unsigned longest_life_seconds = 60;
constexpr size_t most_failed = 10;            // more would say nothing new
constexpr uint64_t points_at_instants = 200;  // when all are tried: there is no end of instants
constexpr uint64_t most_instructions = 20000; // behind a platform call
// A request at the card takes about so many until its reply is sent.
constexpr uint64_t most_instructions_of_card = 12000;

std::string described(int status)
{
    return WIFSIGNALED(status) ? "died of signal " + std::to_string(WTERMSIG(status))
                               : "ended with status " + std::to_string(WEXITSTATUS(status));
}

bool was_killed(int status)
{
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

class KillSweep {
public:
    KillSweep(const KillSweepPlan &plan, std::function<void(uint64_t)> progress)
        : plan_(plan), setting_(plan.setting), told_(std::move(progress)), steps_(kill_scenario()),
          shared_(static_cast<KillProgress *>(mmap(nullptr, sizeof(KillProgress),
                                                   PROT_READ | PROT_WRITE,
                                                   MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        if (setting_.kind.victim != Victim::embedded_host)
            card_ = std::make_unique<KillCard>(scenario_card(setting_.card.type, setting_.num_nps));
    }
    ~KillSweep() { munmap(shared_, sizeof(KillProgress)); }
    KillSweep(const KillSweep &) = delete;
    KillSweep &operator=(const KillSweep &) = delete;

    KillSweepResult run()
    {
        const auto begin = std::chrono::steady_clock::now();
        if (setting_.kind.instant == Instant::any && !can_trace()) {
            result_.cannot_be_traced = true;
            return result_;
        }
        live_undisturbed();
        const std::vector<KillPoint> points =
            result_.failed == 0 ? points_to_try() : std::vector<KillPoint>();
        for (const KillPoint &point : points) {
            if (result_.failed >= most_failed)
                break;
            ++result_.points;
            try_point(point);
            if (told_)
                told_(result_.points);
        }
        const auto taken = std::chrono::steady_clock::now() - begin;
        result_.seconds = std::chrono::duration<double>(taken).count();
        return result_;
    }

private:
    KillLife life() const { return {setting_, steps_, card_.get(), *shared_}; }

    void begin_anew()
    {
        if (card_)
            card_->kill();
        std::filesystem::remove_all(host_directory);
        std::filesystem::remove_all(KillCard::state);
        *shared_ = KillProgress();
    }

    template <typename Life>
    pid_t fork_life(const Life &live) const
    {
        std::fflush(nullptr); // what is in buffers would be written twice
        const pid_t process = fork();
        if (process != 0)
            return process;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        alarm(longest_life_seconds);
        try {
            live();
        } catch (const std::exception &error) {
            std::snprintf(shared_->text, sizeof shared_->text, "    %s\n", error.what());
            shared_->verdict = KillProgress::differs;
        }
        _exit(0);
    }

    static int wait_for(pid_t process)
    {
        int status = 0;
        waitpid(process, &status, 0);
        return status;
    }

    // How many points there are.
    void live_undisturbed()
    {
        begin_anew();
        if (card_)
            card_->start();
        const int status = wait_for(fork_life([this] { live_and_die(life(), nullptr); }));
        if (status != 0 || shared_->verdict != KillProgress::agreed)
            fail("without a kill", "    the host " + described(status) + "\n" + shared_->text);
        result_.requests = shared_->requests;
        result_.calls = shared_->calls;
        first_request_of_step_.assign(shared_->first_request_of_step,
                                      shared_->first_request_of_step + steps_.size());
    }

    // ---- which points

    std::vector<KillPoint> points_to_try()
    {
        if (!plan_.these.empty())
            return plan_.these;
        std::mt19937 random(plan_.seed);
        return setting_.kind.instant == Instant::any ? instants(random) : requests(random);
    }

    std::vector<KillPoint> requests(std::mt19937 &random) const
    {
        std::vector<uint64_t> all(result_.requests);
        std::iota(all.begin(), all.end(), 1);
        std::vector<uint64_t> drawn = all;
        if (plan_.points != 0 && plan_.points < all.size()) {
            drawn = {all.front(), all.back()};
            std::sample(all.begin() + 1, all.end() - 1, std::back_inserter(drawn),
                        std::max<uint64_t>(plan_.points, 2) - 2, random);
        }
        std::vector<KillPoint> points;
        for (const uint64_t nth : drawn)
            points.push_back({nth});
        return points;
    }

    std::vector<KillPoint> instants(std::mt19937 &random) const
    {
        const bool in_card = setting_.kind.victim == Victim::card;
        std::uniform_int_distribution<uint64_t> nth(1, in_card ? result_.requests : result_.calls);
        std::uniform_int_distribution<uint64_t> instructions(0, in_card ? most_instructions_of_card
                                                                        : most_instructions);
        std::vector<KillPoint> points;
        while (points.size() < (plan_.points == 0 ? points_at_instants : plan_.points)) {
            const KillPoint point = {nth(random), instructions(random)};
            if (!in_card || !is_last_of_its_step(point.nth))
                points.push_back(point);
        }
        return points;
    }

    // Behind it the host may go on to what is no request.
    bool is_last_of_its_step(uint64_t request) const
    {
        return request == result_.requests ||
               std::ranges::find(first_request_of_step_, request + 1) !=
                   first_request_of_step_.end();
    }

    // ---- one point

    void try_point(const KillPoint &point)
    {
        try {
            begin_anew();
            const std::string wrong =
                setting_.kind.victim == Victim::card ? kill_card(point) : kill_host(point);
            if (!wrong.empty())
                fail(describe(setting_, point), "    " + wrong + "\n");
            else if (shared_->verdict != KillProgress::agreed)
                fail(describe(setting_, point), shared_->text);
        } catch (const std::exception &error) {
            fail(describe(setting_, point), std::string("    ") + error.what() + "\n");
        }
    }

    std::string kill_host(const KillPoint &point)
    {
        if (card_)
            card_->start();
        const pid_t first = fork_life([&] { live_and_die(life(), &point); });
        if (setting_.kind.instant == Instant::any)
            run_steps_and_kill(first, point.instructions);
        const int end = wait_for(first);
        if (!was_killed(end))
            return "the host " + described(end) + " before it was killed " + shared_->text;
        if (card_)
            card_->act(CardAct::come_up, 0);
        shared_->verdict = KillProgress::unsaid;
        const int status = wait_for(fork_life([this] { live_on_what_is_left(life()); }));
        return status == 0 ? "" : "the host that followed " + described(status);
    }

    std::string kill_card(const KillPoint &point)
    {
        card_->start({setting_.kind.instant, point.nth, &shared_->card_requests});
        const pid_t host = fork_life([&] { live_through(life(), point); });
        if (setting_.kind.instant == Instant::any)
            run_steps_and_kill(card_->process(), point.instructions,
                               [&] { return shared_->card_requests > point.nth; });
        int status = 0;
        const pid_t first = waitpid(-1, &status, 0);
        if (first != card_->process()) {
            card_->kill();
            return "the host " + described(status) + " before its card was killed\n" +
                   shared_->text;
        }
        card_->is_dead();
        card_->start();
        status = wait_for(host);
        return status == 0 ? "" : "the host " + described(status);
    }

    void fail(const std::string &where, const std::string &text)
    {
        ++result_.failed;
        std::string place;
        if (shared_->step < steps_.size())
            place = " in " + describe(steps_[shared_->step], shared_->step);
        result_.texts.push_back("at " + where + place + ":\n" + text);
    }

    const KillSweepPlan &plan_;
    const KillSetting setting_;
    std::function<void(uint64_t)> told_;
    const std::vector<Step> steps_;
    KillProgress *shared_;
    std::unique_ptr<KillCard> card_;
    std::vector<uint64_t> first_request_of_step_;
    KillSweepResult result_;
};

} // namespace

KillSweepResult sweep_kills(const KillSweepPlan &plan,
                            const std::function<void(uint64_t points)> &progress)
{
    return KillSweep(plan, progress).run();
}

} // namespace test
