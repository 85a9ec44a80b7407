// The card's end of the socket against peers of every kind: what they get, and that the card and
// its other peers go on.
#include "raw_peer.h"
#include "test_card.h"
#include "vlc/card_access.h"
#include "vlc/state_error.h"

namespace {

using namespace vlc;
using card_test::RawPeer;

// A host at work on its card, beside which the peers come.
class CardServers : public card_test::ClientTest {
protected:
    CardServers() : ClientTest(card_test::Deployment::split) {}
    std::filesystem::path socket() { return thread().socket(); }
    void expect_the_host_goes_on()
    {
        EXPECT_FALSE(card().card_is_away());
        EXPECT_EQ(0u, add("key " + std::to_string(++keys_)));
    }

private:
    int keys_ = 0;
};

TEST_F(CardServers, RefuseASecondHostAndTakeReadersBesideTheFirst)
{
    RawPeer second(socket());
    second.greet(PeerRole::host);
    EXPECT_EQ(second.refusal(), "the card there has a host already");
    EXPECT_FALSE(second.receive()) << "the connection ends";
    EXPECT_EQ(look_into_card(socket())->config().name, "small");
    EXPECT_EQ(look_into_card(socket())->config().name, "small");
    expect_the_host_goes_on();
}

TEST_F(CardServers, TellASecondHostsProcessWhy)
{
    CardLink link(socket(), PeerRole::host);
    EXPECT_EQ(link.connect(), CardLink::Attempt::refused);
    EXPECT_EQ(link.why(), socket().string() + ": the card there has a host already");
}

TEST_F(CardServers, RefuseAnotherVersion)
{
    RawPeer peer(socket());
    peer.send(FrameKind::hello, WireWriter()
                                    .bytes(Payload(link_magic.begin(), link_magic.end()))
                                    .number(uint32_t{9})
                                    .number(uint8_t{1})
                                    .take());
    EXPECT_EQ(peer.refusal(), "the card there refuses a peer that speaks version 9, and this "
                              "program speaks version 4");
    EXPECT_FALSE(peer.receive());
    expect_the_host_goes_on();
}

TEST_F(CardServers, RefuseARoleThatIsNone)
{
    RawPeer peer(socket());
    peer.greet(static_cast<PeerRole>(7));
    EXPECT_EQ(peer.refusal(), "the card there refuses a peer that is neither a host nor a reader");
}

TEST_F(CardServers, EndAPeerThatSpeaksSomethingElse)
{
    const std::string text = "GET / HTTP/1.1\r\nHost: card\r\n\r\n";
    RawPeer peer(socket());
    peer.send(Payload(text.begin(), text.end()));
    EXPECT_FALSE(peer.receive());
    expect_the_host_goes_on();
}

TEST_F(CardServers, EndAPeerWhoseFirstMessageIsNoGreeting)
{
    RawPeer peer(socket());
    peer.send(FrameKind::rows, {});
    EXPECT_EQ(peer.refusal(),
              "the card there refuses a peer that speaks no protocol of a virtual line card");
    EXPECT_FALSE(peer.receive());
    expect_the_host_goes_on();
}

TEST_F(CardServers, EndAPeerWhoseFrameIsTooLong)
{
    RawPeer peer(socket());
    peer.greet(PeerRole::reader);
    ASSERT_TRUE(peer.receive());
    peer.send(WireWriter().number(longest_payload + 1).number(1u).number(1u).take());
    EXPECT_FALSE(peer.receive());
    expect_the_host_goes_on();
}

TEST_F(CardServers, EndAPeerThatAsksForWhatNobodyKnows)
{
    RawPeer peer(socket());
    peer.greet(PeerRole::reader);
    ASSERT_TRUE(peer.receive());
    peer.send(static_cast<FrameKind>(99), {});
    EXPECT_FALSE(peer.receive());
    expect_the_host_goes_on();
}

// Every request, as long as it has to be, of zeros; and a byte shorter, and a byte longer.
TEST_F(CardServers, EndAPeerWhoseRequestIsNotWholeAndChangeNothing)
{
    const std::pair<FrameKind, size_t> requests[] = {
        {FrameKind::find_handle, 4}, {FrameKind::unread, 4},  {FrameKind::is_handle, 4},
        {FrameKind::rows, 5},        {FrameKind::answers, 0}, {FrameKind::counter, 8},
        {FrameKind::np_totals, 4}};
    for (const auto &[kind, size] : requests) {
        for (const int wrong : {-1, 1}) {
            if (size == 0 && wrong < 0)
                continue;
            RawPeer peer(socket());
            peer.greet(PeerRole::reader);
            ASSERT_TRUE(peer.receive());
            peer.send(kind, Payload(size));
            EXPECT_TRUE(peer.receive()) << static_cast<int>(kind);
            peer.send(kind, Payload(static_cast<size_t>(static_cast<int>(size) + wrong)));
            EXPECT_FALSE(peer.receive()) << static_cast<int>(kind) << " " << wrong;
        }
    }
    expect_the_host_goes_on();
}

TEST_F(CardServers, LetAReaderChangeNothing)
{
    for (const FrameKind kind :
         {FrameKind::register_handle, FrameKind::reregister, FrameKind::set_name,
          FrameKind::request, FrameKind::read_answer, FrameKind::read_counter, FrameKind::packets,
          FrameKind::cpu_frame}) {
        RawPeer peer(socket());
        peer.greet(PeerRole::reader);
        ASSERT_TRUE(peer.receive());
        peer.send(kind, {});
        EXPECT_FALSE(peer.receive()) << static_cast<int>(kind);
    }
    expect_the_host_goes_on();
}

// Of its host too: a frame without its port, and one that is longer than a frame can be.
TEST_F(CardServers, EndAHostWhoseFrameForAPortCannotBe)
{
    end_host();
    for (const size_t size : {size_t{3}, size_t{4} + 65537}) {
        RawPeer peer(socket());
        peer.greet(PeerRole::host);
        ASSERT_TRUE(peer.receive());
        peer.send(FrameKind::cpu_frame, Payload{16, 0, 0, 0, 'o', 'n', 'e'});
        EXPECT_TRUE(peer.receive());
        peer.send(FrameKind::cpu_frame, Payload(size));
        EXPECT_FALSE(peer.receive()) << size;
    }
    EXPECT_EQ(std::filesystem::file_size(card_directory() / "cpu-port16.pcap"), 24u + 2 * 19u);
}

TEST_F(CardServers, RefuseAPlaceThatTheCardDoesNotHave)
{
    const auto place = [](uint32_t np, uint32_t number) {
        return WireWriter().number(np).number(number).take();
    };
    for (const Payload &request : {place(2, 0), place(0, CounterBank::count), place(~0u, ~0u)}) {
        RawPeer peer(socket());
        peer.greet(PeerRole::reader);
        ASSERT_TRUE(peer.receive());
        peer.send(FrameKind::counter, request);
        EXPECT_FALSE(peer.receive());
    }
    for (const FrameKind kind : {FrameKind::counters, FrameKind::np_totals}) {
        RawPeer peer(socket());
        peer.greet(PeerRole::reader);
        ASSERT_TRUE(peer.receive());
        peer.send(kind, WireWriter().number(uint32_t{2}).take());
        EXPECT_FALSE(peer.receive());
    }
    expect_the_host_goes_on();
}

TEST_F(CardServers, OutliveAPeerThatIsCutOffAtEveryByteOfItsRequest)
{
    WireWriter greeting;
    put_greeting(greeting);
    Payload bytes;
    append_frame(bytes, FrameKind::hello, 1,
                 greeting.number(static_cast<uint8_t>(PeerRole::reader)).take());
    append_frame(bytes, FrameKind::find_handle, 2, WireWriter().text("somebody").take());
    for (size_t cut = 0; cut <= bytes.size(); cut++) {
        RawPeer peer(socket());
        peer.send(Payload(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(cut)));
        peer.close();
    }
    expect_the_host_goes_on();
}

TEST_F(CardServers, OutliveAPeerThatAsksForMuchAndReadsNothing)
{
    for (int i = 0; i < 8; i++)
        ASSERT_EQ(0u, add("row " + std::to_string(i)));
    RawPeer peer(socket());
    peer.greet(PeerRole::reader);
    for (int i = 0; i < 20000; i++)
        peer.send(FrameKind::rows, WireWriter().number(0u).number(uint8_t{0}).take());
    expect_the_host_goes_on();
    // And it gets all of it when it reads at last.
    size_t parts = 0;
    ASSERT_TRUE(peer.receive());
    for (int replies = 0; replies < 20000;) {
        const std::optional<Frame> frame = peer.receive();
        ASSERT_TRUE(frame);
        if (frame->kind == FrameKind::reply)
            replies++;
        else
            parts++;
    }
    EXPECT_EQ(parts, 20000u);
}

TEST_F(CardServers, TakeTheNextHostWhenTheFirstIsGone)
{
    restart_process();
    EXPECT_FALSE(card().card_is_away());
    EXPECT_TRUE(thread().server().has_host());
}

TEST_F(CardServers, ShowAReaderTheRowsAnswersAndCounters)
{
    ASSERT_EQ(0u, add("key", "value"));
    nps()[1].counters().add(5, 60);
    const auto look = look_into_card(socket());
    std::vector<std::string> rows;
    look->for_each_row(0, TableKind::service_config, [&rows](const TableRow &row) {
        rows.emplace_back(row.result, row.result + row.result_len);
    });
    EXPECT_EQ(rows, std::vector<std::string>{"value"});
    std::vector<std::string> keys;
    look->for_each_unread_answer([&](uint32_t handle, const StoredAnswer &answer) {
        EXPECT_EQ(handle, number());
        keys.emplace_back(answer.key, answer.key + answer.key_len);
    });
    EXPECT_EQ(keys, std::vector<std::string>{"key"});
    EXPECT_EQ(look->counter(1, 5).bytes, 60u);
    EXPECT_THROW(look->counter(2, 5), StateError);
    nps()[1].counters().add(CounterBank::count - 1, 70);
    const std::vector<PacketCount> counters = look->counters(1);
    ASSERT_EQ(counters.size(), CounterBank::count);
    EXPECT_EQ(counters[5].bytes, 60u);
    EXPECT_EQ(counters.back().bytes, 70u);
    nps()[1].totals().policed.add(80);
    EXPECT_EQ(look->totals(1).policed_bytes, 80u);
    EXPECT_THROW(look->totals(2), StateError);
    EXPECT_THROW(look->counters(2), StateError);
    NpTable &table = nps()[0].table(TableKind::service_config);
    table.count_hit(*table.find(card_test::bytes_of("key")), 77);
    PacketCount hits{};
    look->for_each_hit_count(0, TableKind::service_config,
                             [&hits](const TableRow &, const PacketCount &count) { hits = count; });
    EXPECT_EQ(hits, (PacketCount{1, 77}));
    EXPECT_THROW(look->for_each_row(2, TableKind::ext_conf, [](const TableRow &) {}), StateError);
}

TEST_F(CardServers, HaveASocketThatIsGoneWithThem)
{
    const card_test::ScratchDirectory other;
    const auto path = other.path() / "socket";
    {
        const card_test::CardThread one(card_test::small_card(), other.path() / "card", path);
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    try {
        look_into_card(path);
        FAIL() << "nobody listens there";
    } catch (const StateError &error) {
        EXPECT_EQ(std::string(error.what()),
                  path.string() + ": no card listens there: No such file or directory");
    }
}

} // namespace
