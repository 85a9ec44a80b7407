// A host whose card goes away and comes back.
#include <cerrno>
#include <memory>
#include <thread>

#include "messages.h"
#include "test_card.h"
#include "unix_socket.h"
#include "vlc/state_error.h"

namespace {

using namespace std::chrono_literals;
using card_test::heard;
using card_test::key_of;
using Notifications = std::vector<std::string>;

class AwayCards : public card_test::ClientTest {
protected:
    AwayCards() : ClientTest(card_test::Deployment::split) {}

    void expect_away()
    {
        EXPECT_EQ(uint32_t{vlc::prm_not_connected}, add("while it is away"));
        EXPECT_TRUE(card().card_is_away());
    }
    uint32_t found()
    {
        void *found = nullptr;
        const uint32_t code = prm_srh_get_handle(card_test::client_name.c_str(), &found);
        EXPECT_EQ(found, code == 0 ? handle() : nullptr);
        return code;
    }
    const vlc::PrmLedger::Sums &sums() { return card().ledger().sums(); }
};

TEST_F(AwayCards, BreakTheConnectionAndRefuseRequests)
{
    end_card();
    expect_away();
    events().run_until_idle();
    EXPECT_EQ(Notifications{"2.2"}, heard().notifications);
    prm_async_response answer;
    uint32_t mode = PRM_STATS_MODE;
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, found());
    EXPECT_EQ(uint32_t{vlc::prm_not_connected},
              prm_stats_cl_read(nullptr, vlc::CounterBank::first, 0, &mode, nullptr, nullptr, 0));
}

TEST_F(AwayCards, AreNoticedWithoutARequest)
{
    end_card();
    EXPECT_TRUE(events().run_until([] { return !heard().notifications.empty(); }));
    EXPECT_EQ(Notifications{"2.2"}, heard().notifications);
}

TEST_F(AwayCards, AreFoundAgainOnTheEventManagerWithTheSameHandle)
{
    end_card();
    expect_away();
    start_card();
    EXPECT_TRUE(card().card_is_away());
    run_for(300ms);
    EXPECT_FALSE(card().card_is_away());
    EXPECT_EQ((Notifications{"2.2", "2.1"}), heard().notifications);
    EXPECT_EQ(0u, found());
    EXPECT_EQ(0u, prm_srh_reregister(handle(), events().handle(), card_test::on_answers));
    EXPECT_EQ(0u, add("again"));
}

TEST_F(AwayCards, AreLookedForByARegistrationToo)
{
    end_card();
    expect_away();
    start_card();
    EXPECT_EQ(0u, found());
    events().run_until_idle();
    EXPECT_EQ((Notifications{"2.2", "2.1"}), heard().notifications) << "in this order";
}

TEST_F(AwayCards, KeepTheAnswersThatNobodyRead)
{
    ASSERT_EQ(0u, add("a"));
    ASSERT_EQ(0u, add("b"));
    end_card();
    start_card();
    run_for(300ms);
    EXPECT_EQ(0u, prm_srh_reregister(handle(), events().handle(), card_test::on_answers));
    events().run_until_idle();
    ASSERT_EQ(2u, heard().answers.size());
    EXPECT_EQ("a", key_of(heard().answers[0]));
    EXPECT_EQ(0u, sums().unanswered);
    EXPECT_EQ(1u, sums().breaks);
    EXPECT_EQ(2u, sums().in_flight_at_breaks);
}

TEST_F(AwayCards, ThatComeBackAsAnotherKindAreNotTaken)
{
    end_card();
    expect_away();
    vlc::CardConfig other = card_test::small_card();
    other.num_nps = 3;
    const card_test::ScratchDirectory elsewhere;
    const card_test::CardThread impostor(other, elsewhere.path() / "card", socket());
    run_for(1s);
    EXPECT_TRUE(card().card_is_away());
    EXPECT_EQ(card().why_given_up(),
              socket().string() + ": another card is there now (3 NPs, type 13762561, 8, 8 and 8 "
                                  "rows, 8 dynamic counters) than before (2 NPs, type 13762561, "
                                  "8, 8 and 8 rows, 8 dynamic counters)");
    EXPECT_EQ(Notifications{"2.2"}, heard().notifications);
}

TEST_F(AwayCards, TakeNoHostsDirectoryOfACardWithOtherNps)
{
    end_host();
    end_card();
    vlc::CardConfig other = card_test::small_card();
    other.num_nps = 3;
    const card_test::ScratchDirectory elsewhere;
    const card_test::CardThread three(other, elsewhere.path() / "card", socket());
    try {
        const vlc::VirtualLineCard host(vlc::CardAtSocket{socket()}, host_directory());
        FAIL() << "it was taken";
    } catch (const vlc::StateError &error) {
        EXPECT_EQ(std::string(error.what()), host_directory().string() +
                                                 ": was made for a card of 2 NPs, and the one at " +
                                                 socket().string() + " has 3");
    }
}

TEST_F(AwayCards, AreNoStateOfAnEmbeddedCardNorItsHosts)
{
    end_host();
    const auto refusal = [](const std::filesystem::path &directory) {
        try {
            const vlc::VirtualLineCard card(card_test::small_card(), directory);
        } catch (const vlc::StateError &error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(refusal(host_directory()),
              host_directory().string() +
                  ": holds a host without its card, and a card with its host cannot go on with it");
    end_card();
    EXPECT_EQ(refusal(card_directory()),
              card_directory().string() +
                  ": holds a card without a host, and a card with its host cannot go on with it");
}

TEST_F(AwayCards, HaveHardwareThatThisProcessCannotTouch)
{
    EXPECT_TRUE(card().is_distant());
    EXPECT_THROW(card().prm(), std::logic_error);
    EXPECT_THROW(card().nps(), std::logic_error);
}

TEST_F(AwayCards, LosePacketsThatAreCounted)
{
    const uint8_t frame[14] = {};
    vlc::RunningCard &access = card().access();
    access.process({vlc::LinkType::ethernet, frame, 60, 0});
    EXPECT_EQ(1u, access.traffic().totals.packets);
    end_card();
    access.process({vlc::LinkType::ethernet, frame, 60, 0});
    access.process({vlc::LinkType::ethernet, frame, 60, 0});
    const auto traffic = access.traffic();
    EXPECT_EQ(1u, traffic.totals.packets);
    EXPECT_EQ(2u, traffic.undelivered);
}

// A card of a single connection, that says what it is told to right behind its greeting.
class TalkativeCard {
public:
    TalkativeCard(const std::filesystem::path &socket, const vlc::CardConfig &config)
        : listening_(socket), thread_([this, config] { greet(config); })
    {
    }
    ~TalkativeCard() { thread_.join(); }

private:
    void greet(const vlc::CardConfig &config)
    {
        do
            peer_ = listening_.accept();
        while (!peer_.is_open());
        vlc::WireWriter hello;
        vlc::put_greeting(hello);
        vlc::put(hello, config);
        hello.number(uint8_t{1});
        vlc::Payload out;
        vlc::append_frame(out, vlc::FrameKind::reply, 1, hello.take());
        const auto event = static_cast<uint32_t>(vlc::PrmEvent::connection_down);
        vlc::append_frame(out, vlc::FrameKind::prm_event, 0,
                          vlc::WireWriter().number(event).take());
        peer_.send_some(out);
    }

    vlc::ListeningSocket listening_;
    vlc::UnixSocket peer_;
    std::thread thread_;
};

TEST(NewConnections, HearWhatTheCardSaysRightBehindItsGreeting)
{
    const card_test::ScratchDirectory directory;
    const auto socket = directory.path() / "socket";
    TalkativeCard card(socket, card_test::small_card());
    vlc::VirtualLineCard host(vlc::CardAtSocket{socket}, directory.path() / "host");
    heard() = {};
    void *connection = nullptr;
    ASSERT_EQ(0u, prm_mgr_open(host.events().handle(), 0, "client", card_test::on_notification, 7,
                               nullptr, &connection));
    host.events().run_until_idle();
    EXPECT_EQ((Notifications{"2.1", "2.2"}), heard().notifications);
}

} // namespace
