// The console of a running host, asked by threads of the test while the host's own runs.
#include <unistd.h>

#include <atomic>
#include <thread>

#include "raw_peer.h"
#include "test_card.h"
#include "vlc/state_error.h"

namespace {

using namespace vlc;
using card_test::RawPeer;
using card_test::ScratchDirectory;
using card_test::small_card;

std::string said_of(const std::function<void()> &act)
{
    try {
        act();
    } catch (const StateError &error) {
        return error.what();
    }
    return {};
}

class HostConsoles : public testing::Test {
protected:
    VirtualLineCard &card() { return *card_; }
    HostConsole &console() { return card_->console(); }
    const std::filesystem::path &directory() const { return scratch_.path(); }
    void end_host() { card_.reset(); }

    // Runs the host's events while `ask` is at work on a thread of its own.
    void while_served(const std::function<void()> &ask)
    {
        std::atomic<bool> is_done{false};
        std::thread asker([&] {
            ask();
            is_done = true;
        });
        while (!is_done)
            card().events().run_until_idle();
        asker.join();
    }
    ConsoleAnswer asked(std::string_view name, std::string_view request)
    {
        ConsoleAnswer answer;
        while_served([&] { answer = ConsoleClient(directory()).ask(name, request); });
        return answer;
    }

private:
    ScratchDirectory scratch_;
    std::unique_ptr<VirtualLineCard> card_ =
        std::make_unique<VirtualLineCard>(small_card(), scratch_.path());
};

TEST_F(HostConsoles, GiveTheRequestToWhoAnswersItAndTheAnswerBack)
{
    console().answer("twice", [](std::string_view request) -> ConsoleAnswer {
        return {1, std::string(request) + std::string(request)};
    });
    const ConsoleAnswer answer = asked("twice", "ab\ncd");
    EXPECT_EQ(answer.status, 1u);
    EXPECT_EQ(answer.text, "ab\ncdab\ncd");
}

TEST_F(HostConsoles, SayWhatTheyDoNotAnswer)
{
    const ConsoleAnswer answer = asked("nothing", "");
    EXPECT_EQ(answer.status, 2u);
    EXPECT_EQ(answer.text, "the host there does not answer 'nothing'");
}

TEST_F(HostConsoles, AnswerNoMoreOnceTheAnswererIsTakenOff)
{
    console().answer("verb", [](std::string_view) { return ConsoleAnswer{}; });
    EXPECT_EQ(asked("verb", "").status, 0u);
    console().answer("verb", {});
    EXPECT_EQ(asked("verb", "").status, 2u);
}

TEST_F(HostConsoles, TurnWhatAnAnswererThrowsIntoAnAnswer)
{
    console().answer(
        "verb", [](std::string_view) -> ConsoleAnswer { throw std::runtime_error("it broke"); });
    const ConsoleAnswer answer = asked("verb", "");
    EXPECT_EQ(answer.status, 1u);
    EXPECT_EQ(answer.text, "it broke");
}

TEST_F(HostConsoles, CarryTextsThatAreLongerThanAFrame)
{
    std::string text(size_t{9} << 20, '.');
    for (size_t i = 0; i < text.size(); i += 1000)
        text[i] = static_cast<char>('a' + i / 1000 % 26);
    console().answer("long", [&](std::string_view) { return ConsoleAnswer{0, text}; });
    EXPECT_EQ(asked("long", "").text, text);
}

TEST_F(HostConsoles, ListenAgainWhereAKilledHostLeftItsSocket)
{
    end_host();
    {
        ListeningSocket left(directory() / "console");
        std::filesystem::rename(directory() / "console", directory() / "kept");
    }
    std::filesystem::rename(directory() / "kept", directory() / "console");
    VirtualLineCard again(small_card(), directory());
    EXPECT_EQ(again.console().why_closed(), "");
}

TEST_F(HostConsoles, LeaveNoSocketBehind)
{
    EXPECT_TRUE(std::filesystem::is_socket(directory() / "console"));
    end_host();
    EXPECT_FALSE(std::filesystem::exists(directory() / "console"));
}

TEST_F(HostConsoles, AreReachedByPathsLongerThanASocketsAddress)
{
    std::filesystem::path deep = directory();
    for (int i = 0; i < 4; ++i)
        deep /= std::string(60, 'd');
    std::filesystem::create_directories(deep);
    end_host();
    VirtualLineCard far(small_card(), deep / "state");
    EXPECT_EQ(far.console().why_closed(), "");
    far.console().answer("here", [](std::string_view) { return ConsoleAnswer{0, "yes"}; });
    std::atomic<bool> is_done{false};
    std::thread asker([&] {
        EXPECT_EQ(ConsoleClient(deep / "state").ask("here", "").text, "yes");
        is_done = true;
    });
    while (!is_done)
        far.events().run_until_idle();
    asker.join();
}

TEST_F(HostConsoles, KeepNothingFromStartingWhereNoSocketCanBeMade)
{
    end_host();
    std::filesystem::create_directory(directory() / "console");
    VirtualLineCard card(small_card(), directory());
    EXPECT_EQ(card.console().why_closed(),
              (directory() / "console").string() + ": is there already and is no socket");
    card.console().tell("topic", "nobody hears it");
}

TEST_F(HostConsoles, NeitherKeepAHostGoingNorGiveASteppedClockRealTime)
{
    CardClock::set_mode(ClockMode::stepped);
    ConsoleClient *nobody = nullptr;
    EXPECT_FALSE(card().events().run_until([&] { return nobody != nullptr; }));
    bool is_due = false;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        is_due = false;
        card().events().after(std::chrono::seconds(1), [&] { is_due = true; });
        EXPECT_TRUE(card().events().run_until([&] { return is_due; }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500))
        << "each wait would give the descriptors 2 ms";
}

TEST_F(HostConsoles, AreAskedWhileTheHostWaitsForSomethingElse)
{
    CardClock::set_mode(ClockMode::real);
    console().answer("here", [](std::string_view) { return ConsoleAnswer{0, "yes"}; });
    bool is_due = false;
    card().events().after(std::chrono::milliseconds(200), [&] { is_due = true; });
    std::string text;
    std::thread asker([&] { text = ConsoleClient(directory()).ask("here", "").text; });
    card().events().run_until([&] { return is_due; });
    asker.join();
    EXPECT_EQ(text, "yes");
}

TEST_F(HostConsoles, AreMissedWhereNoHostRuns)
{
    end_host();
    EXPECT_EQ(said_of([&] { ConsoleClient client(directory()); }),
              "no host runs in " + directory().string());
    EXPECT_EQ(said_of([] { ConsoleClient client("/nowhere"); }), "no host runs in /nowhere");
}

// ---- followers ---------------------------------------------------------------------------------

class ConsoleFollowers : public HostConsoles {
protected:
    ConsoleFollowers() { EXPECT_EQ(pipe(end_), 0); }
    ~ConsoleFollowers() override
    {
        close(end_[0]);
        close(end_[1]);
    }
    // A follower on a thread of its own, which hears `count` lines and goes, or the host's end.
    std::thread follower(std::vector<std::string> *lines, size_t count, bool *was_left = nullptr)
    {
        return std::thread([=, this] {
            ConsoleClient client(directory());
            const bool ended = client.follow(
                "topic",
                [&](std::string_view line) {
                    lines->emplace_back(line);
                    if (lines->size() == count) {
                        EXPECT_EQ(write(end_[1], "", 1), 1);
                    }
                },
                end_[0]);
            if (was_left != nullptr)
                *was_left = !ended;
        });
    }
    void wait_for_followers(bool any)
    {
        while (console().has_followers("topic") != any)
            card().events().run_until_idle();
    }

private:
    int end_[2];
};

TEST_F(ConsoleFollowers, HearEachLineOfTheirTopicInOrder)
{
    std::vector<std::string> lines;
    std::thread thread = follower(&lines, 3);
    wait_for_followers(true);
    console().tell("topic", "one");
    console().tell("another topic", "not this");
    console().tell("topic", "two");
    console().tell("topic", "");
    wait_for_followers(false);
    thread.join();
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", ""}));
}

TEST_F(ConsoleFollowers, AreToldThatTheHostHasEnded)
{
    std::vector<std::string> lines;
    bool was_left = false;
    std::thread thread = follower(&lines, 9, &was_left);
    wait_for_followers(true);
    end_host();
    thread.join();
    EXPECT_TRUE(was_left);
}

TEST_F(ConsoleFollowers, AreAnnouncedToTheHostFirstAndLast)
{
    std::vector<std::string> said;
    console().on_followers([&](std::string_view topic, bool any) {
        said.push_back(std::string(topic) + (any ? " begins" : " ends"));
    });
    std::vector<std::string> lines;
    std::thread thread = follower(&lines, 1);
    wait_for_followers(true);
    console().tell("topic", "line");
    wait_for_followers(false);
    thread.join();
    EXPECT_EQ(said, (std::vector<std::string>{"topic begins", "topic ends"}));
}

TEST_F(ConsoleFollowers, HearAHundredThousandLinesSaidInOneTurn)
{
    std::vector<std::string> lines;
    std::thread thread = follower(&lines, 100000);
    wait_for_followers(true);
    for (int i = 0; i < 100000; ++i)
        console().tell("topic", "line " + std::to_string(i));
    wait_for_followers(false);
    thread.join();
    ASSERT_EQ(lines.size(), 100000u);
    EXPECT_EQ(lines.back(), "line 99999");
}

TEST_F(ConsoleFollowers, ThatNeverReadAreLeft)
{
    RawPeer peer(directory() / "console");
    peer.greet(PeerRole::asker);
    peer.send(FrameKind::console_follow, WireWriter().text("topic").take());
    wait_for_followers(true);
    const std::string line(size_t{1} << 20, 'x');
    for (int i = 0; i < 40; ++i) {
        console().tell("topic", line);
        card().events().run_until_idle();
    }
    EXPECT_FALSE(console().has_followers("topic"));
}

// ---- peers of every kind -----------------------------------------------------------------------

class ConsolePeers : public HostConsoles {
protected:
    // What comes for what is sent; nothing when the connection ends.
    std::optional<Frame> reply_to(RawPeer &peer)
    {
        std::optional<Frame> reply;
        while_served([&] { reply = peer.receive(); });
        return reply;
    }
};

TEST_F(ConsolePeers, OfAnotherRoleAreRefused)
{
    RawPeer peer(directory() / "console");
    peer.greet(PeerRole::host);
    const std::optional<Frame> reply = reply_to(peer);
    ASSERT_TRUE(reply);
    EXPECT_EQ(WireReader(reply->payload).text(),
              "the host there refuses a peer that asks nothing of a host");
    EXPECT_FALSE(reply_to(peer));
}

TEST_F(ConsolePeers, ThatDoNotGreetAreRefused)
{
    RawPeer peer(directory() / "console");
    peer.send(FrameKind::console_ask, WireWriter().text("verb").take());
    const std::optional<Frame> reply = reply_to(peer);
    ASSERT_TRUE(reply);
    EXPECT_EQ(WireReader(reply->payload).text(),
              "the host there refuses a peer that speaks no protocol of a virtual line card");
}

TEST_F(ConsolePeers, WithARequestThatIsCutShortAreEnded)
{
    RawPeer peer(directory() / "console");
    peer.greet(PeerRole::asker);
    ASSERT_TRUE(reply_to(peer));
    peer.send(FrameKind::console_ask, {9, 0, 0, 0, 'v'});
    EXPECT_FALSE(reply_to(peer));
}

TEST_F(ConsolePeers, WithARequestOfACardAreEnded)
{
    RawPeer peer(directory() / "console");
    peer.greet(PeerRole::asker);
    ASSERT_TRUE(reply_to(peer));
    peer.send(FrameKind::rows, WireWriter().text("verb").take());
    EXPECT_FALSE(reply_to(peer));
}

TEST_F(ConsolePeers, ThatAreACardAreNoHostToAClient)
{
    end_host();
    card_test::CardThread card(small_card(), directory() / "card", directory() / "console");
    EXPECT_EQ(said_of([&] { ConsoleClient client(directory()); }),
              directory().string() +
                  ": the card there refuses a peer that is neither a host nor a reader");
}

} // namespace
