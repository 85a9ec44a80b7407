#include "kill_card.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <system_error>

#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vlc/card_process.h"

namespace test {
namespace {

struct Order {
    CardAct act;
    uint32_t handle;
};

constexpr unsigned longest_life_seconds = 60;
constexpr char listens = 'L';
constexpr char done = 'D';
constexpr char failed = 'F';

// Counts the requests that reach the card, and ends it at one.
vlc::PrmFaultHook death_of(const CardDeath &death, vlc::Prm &prm)
{
    return [death, &prm, count = uint64_t{0}](const vlc::PrmCall &call) mutable {
        if (call.record == nullptr)
            return vlc::PrmFault{};
        ++count;
        if (death.requests != nullptr)
            *death.requests = count;
        if (count != death.nth)
            return vlc::PrmFault{};
        if (death.instant == Instant::before_request)
            kill(getpid(), SIGKILL);
        if (death.instant == Instant::any)
            raise(SIGSTOP);
        // The request is carried out and its answer queued; nobody hears of either.
        if (death.instant == Instant::behind_request)
            prm.on_answer([](uint32_t) { kill(getpid(), SIGKILL); });
        return vlc::PrmFault{};
    };
}

} // namespace

KillCard::KillCard(vlc::CardConfig config) : config_(std::move(config))
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    const timeval longest_wait = {.tv_sec = longest_life_seconds, .tv_usec = 0};
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &longest_wait, sizeof longest_wait);
    controls_ = ends[0];
    cards_end_ = ends[1];
}

KillCard::~KillCard()
{
    kill();
    close(controls_);
    close(cards_end_);
}

void KillCard::start(const CardDeath &death)
{
    std::fflush(nullptr);
    process_ = fork();
    if (process_ == 0)
        live(death);
    char said = 0;
    if (process_ < 0 || recv(controls_, &said, 1, 0) != 1 || said != listens)
        throw std::runtime_error("the card did not start");
}

void KillCard::live(const CardDeath &death) const
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(longest_life_seconds);
    try {
        vlc::CardProcess card(config_, state, socket);
        vlc::Prm &prm = card.hardware().prm();
        prm.set_faults(death_of(death, prm), card.events());
        card.events().watch_readable(cards_end_, [this, &card, &prm] {
            Order order = {};
            if (recv(cards_end_, &order, sizeof order, 0) != sizeof order)
                _exit(1);
            act_on_card(order.act, card.hardware().nps(), prm, order.handle);
            send(cards_end_, &done, 1, 0);
        });
        if (death.instant == Instant::any && death.nth != 0)
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        send(cards_end_, &listens, 1, 0);
        card.events().run_until([] { return false; });
    } catch (const std::exception &error) {
        std::fprintf(stderr, "the card: %s\n", error.what());
        send(cards_end_, &failed, 1, 0);
    }
    _exit(1);
}

void KillCard::kill()
{
    if (process_ <= 0)
        return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

void KillCard::act(CardAct what, uint32_t handle) const
{
    const Order order = {what, handle};
    char said = 0;
    if (send(controls_, &order, sizeof order, 0) != sizeof order ||
        recv(controls_, &said, 1, 0) != 1 || said != done)
        throw std::runtime_error("the card did not do what it was told");
}

} // namespace test
