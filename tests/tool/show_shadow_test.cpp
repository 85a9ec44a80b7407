// `inlinectl show shadow` and `show counters`: from what a run left, sound and damaged, and at the
// size of a full card.
#include <csignal>
#include <filesystem>

#include <unistd.h>

#include "card_child.h"
#include "large_state.h"
#include "made_capture.h"
#include "state_on_disk.h"
#include "vlc/card_access.h"

namespace test {
namespace {

using ShowShadow = StateOnDisk;
using ShowCounters = StateOnDisk;

const std::vector<std::string> shadow = {"show", "shadow", "--state", "/tmp/state"};
const std::vector<std::string> counters = {"show", "counters", "--state", "/tmp/state"};

std::vector<std::string> operator+(std::vector<std::string> words,
                                   const std::vector<std::string> &more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// ---- entries

TEST_F(ShowShadow, TellsEveryEntryWithItsCountersAndItsNps)
{
    EXPECT_EQ(text_of(shadow),
              "key  type  index  app  table           entry  action  lookup key        result    "
              "        received/dropped   NPs  name\n"
              "  1     1      1    1  service config      1  create  1106c00002010050  "
              "0100000000000001  0xc00000/0xc00001  01   tcp 192.0.2.1:80\n"
              "  1     1      1    1  service config      2  create  1111c00002010035  "
              "0100000000000002  0xc00002/0xc00003  01   udp 192.0.2.1:53\n"
              "  1     1      1    1  ext conf            3  create  12c0000201        "
              "0100000000000003  0xc00004/0xc00005  01   192.0.2.1\n"
              "\n"
              "3 entries under 1 key: 2 service config, 1 ext conf; 3 with counters; 3 on every NP "
              "as stored\n");
}

TEST_F(ShowShadow, TellsProgramsTheSameOneObjectALine)
{
    const std::vector<json> lines = lines_of(shadow);
    ASSERT_EQ(lines.size(), 4u);
    json entry = lines[0];
    uint64_t packets = 0;
    for (json &np : entry["nps"]) {
        packets += np["packets"].get<uint64_t>();
        np.erase("packets");
        np.erase("bytes");
    }
    EXPECT_EQ(packets, 2u);
    EXPECT_EQ(entry, json::parse(R"({"kind": "entry", "key": 1, "application_type": 1, "index": 1,
        "app_ID": 1, "table": "service config", "entry_id": 1, "action": "create", "hw_index": 0,
        "lookup_key": "1106c00002010050", "name": "tcp 192.0.2.1:80",
        "result": "0100000000000001",
        "counters": [{"np": 0, "received": 12582912, "dropped": 12582913},
                     {"np": 1, "received": 12582912, "dropped": 12582913}],
        "nps": [{"np": 0, "row": true, "as_stored": true},
                {"np": 1, "row": true, "as_stored": true}]})"));
    EXPECT_EQ(lines[3], json::parse(R"({"kind": "totals", "keys": 1, "entries": 3,
        "service_config": 2, "ext_conf": 1, "damaged": 0, "with_counters": 3,
        "as_stored_on_every_np": 3})"));
}

TEST_F(ShowShadow, ShortensLongBytesUnlessAllAreWanted)
{
    disturb([](shadow_db &root, vlc::NpStore &) {
        app_node &content = node_of(root, 1, 1)->app_node;
        content.key_len = 10;
        content.key[9] = 0xFE;
    });
    EXPECT_TRUE(has(text_of(shadow), "  1106c000020100..  "));
    EXPECT_TRUE(
        has(text_of(shadow + std::vector<std::string>{"--full"}), "  1106c0000201005000fe  "));
}

TEST_F(ShowShadow, TakesOneKeyAndSoManyEntries)
{
    EXPECT_EQ(lines_of(shadow + std::vector<std::string>{"--first", "1"}).size(), 2u);
    EXPECT_TRUE(has(text_of(shadow + std::vector<std::string>{"--first", "1"}),
                    "\nThe first 1 of 3 entries under 1 key: 2 service"));
    EXPECT_EQ(lines_of(shadow + std::vector<std::string>{"--key", "1"}).size(), 4u);
    EXPECT_EQ(text_of(shadow + std::vector<std::string>{"--key", "2"}),
              "No entry is stored under that key.\n");
}

TEST_F(ShowShadow, MarksTheNpsThatDoNotHaveAnEntryAsItIsStored)
{
    disturb([](shadow_db &root, vlc::NpStore &nps) {
        const app_node &one = node_of(root, 1, 1)->app_node;
        const app_node &two = node_of(root, 1, 2)->app_node;
        constexpr uint8_t other[] = {1, 2, 3, 4};
        ASSERT_EQ(nps[0].table(vlc::TableKind::service_config).remove({one.key, one.key_len}),
                  vlc::TableOutcome::done);
        ASSERT_EQ(
            nps[1].table(vlc::TableKind::service_config).modify({two.key, two.key_len}, other),
            vlc::TableOutcome::done);
    });
    const std::string text = text_of(shadow);
    EXPECT_TRUE(has(text, "0xc00000/0xc00001  -1   tcp 192.0.2.1:80\n")) << text;
    EXPECT_TRUE(has(text, "0xc00002/0xc00003  0!   udp 192.0.2.1:53\n")) << text;
    EXPECT_TRUE(has(text, "1 on every NP as stored\n"
                          "NPs: the number of each that has the row as stored; - no row, ! another "
                          "row, ? not readable\n"));
}

TEST_F(ShowShadow, TellsTheCountersOfEachNpWhereTheyAreNotTheSame)
{
    disturb([](shadow_db &root, vlc::NpStore &) {
        shmem_node *node = node_of(root, 1, 2);
        node->stat_index_rx[1] = 0xC00009;
        node->stat_index_drop[1] = 0;
    });
    EXPECT_TRUE(has(text_of(shadow), "  0xc00002/0xc00003, NP 1 0xc00009/none  0!   "))
        << text_of(shadow);
}

TEST_F(ShowShadow, GoesOnBehindDamageAndNotesIt)
{
    disturb([](shadow_db &root, vlc::NpStore &) {
        root.main_table[1]->table_array[1].first = reinterpret_cast<list_link *>(0x1000);
    });
    const std::string text = text_of(shadow);
    EXPECT_TRUE(has(text, "\n2 entries under 1 key"));
    EXPECT_TRUE(has(text, "\n\nnote: key 1, ext conf list: it points to 0x1000, outside shared "
                          "memory\n"))
        << text;
    const auto notes = of_kind(lines_of(shadow), "note");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_TRUE(has(notes[0]["text"], "outside shared memory"));
}

TEST_F(ShowShadow, GoesOnWithoutAnNpThatCannotBeRead)
{
    std::filesystem::resize_file("/tmp/state/np1", 5000);
    const std::string text = text_of(shadow);
    EXPECT_TRUE(has(text, "0xc00000/0xc00001  0?   tcp")) << text;
    EXPECT_TRUE(has(text, "\nnote: /tmp/state/np1: is truncated: it has 5000 bytes of "));
    const std::vector<json> lines = lines_of(shadow);
    EXPECT_EQ(lines[0]["nps"].size(), 1u);
}

TEST_F(ShowShadow, RefusesAWindowThatCannotBeRead)
{
    overwrite("/tmp/state/window", 0, "not one");
    const Outcome outcome = inlinectl(shadow);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: /tmp/state/window: is no file of a virtual line card\n");
}

TEST_F(ShowShadow, TellsTheSameBesideACardInAnotherProcess)
{
    const CardChild card;
    constexpr const char *host = "/tmp/host";
    std::filesystem::remove_all(host);
    EXPECT_EQ(inlinectl({"run", "--quiet", "--state", host, "--connect", CardChild::socket,
                         "--pcap", capture})
                  .exit_code,
              0);
    expect_refusal({"show", "shadow", "--state", host},
                   "/tmp/host: is a host's alone; say where its card is with --card-state or "
                   "--connect");
    for (const char *view : {"shadow", "counters"}) {
        const std::vector<json> alone = lines_of({"show", view, "--state", state});
        EXPECT_EQ(lines_of({"show", view, "--state", host, "--connect", CardChild::socket}), alone);
        EXPECT_EQ(lines_of({"show", view, "--state", host, "--card-state", CardChild::state}),
                  alone);
    }
}

// ---- counters

TEST_F(ShowCounters, TellsWhichAreInUseAndByWhom)
{
    disturb([](shadow_db &, vlc::NpStore &nps) {
        for (uint32_t place = 0; place < 6; ++place) {
            nps[0].counters().read_and_clear(place);
            nps[1].counters().read_and_clear(place);
        }
        nps[1].counters().add(2, 1500);
    });
    const std::string summary =
        "NP  region                        in use    free  lowest free  leaked\n"
        " 0  0xc00000 to 0xc0ffff, 65,536       6  65,530     0xc00006       0\n"
        " 1  0xc00000 to 0xc0ffff, 65,536       6  65,530     0xc00006       0\n";
    const std::string rest =
        "0xc00003        0      0  dropped   entry 2 of key 1, udp 192.0.2.1:53\n"
        "0xc00004        0      0  received  entry 3 of key 1, 192.0.2.1\n"
        "0xc00005        0      0  dropped   entry 3 of key 1, 192.0.2.1\n";
    const std::string text = text_of(counters);
    EXPECT_TRUE(text.starts_with(summary)) << text;
    EXPECT_TRUE(has(text, "\n"
                          "NP 1      packets  bytes  counts    held by\n"
                          "0xc00000        0      0  received  entry 1 of key 1, tcp 192.0.2.1:80\n"
                          "0xc00001        0      0  dropped   entry 1 of key 1, tcp 192.0.2.1:80\n"
                          "0xc00002        1  1,500  received  entry 2 of key 1, udp "
                          "192.0.2.1:53\n"))
        << text;
    EXPECT_EQ(lines_of(counters).size(), 2u + 12u);
    const std::string busiest =
        text_of(counters + std::vector<std::string>{"--sort", "bytes", "--first", "1"});
    EXPECT_TRUE(has(busiest, "NP 1      packets  bytes  counts    held by\n"
                             "0xc00002        1  1,500  received  entry 2 of key 1, udp "
                             "192.0.2.1:53\n"
                             "1 of 6\n"))
        << busiest;
}

TEST_F(ShowCounters, NamesTheLeakedAndCountsTheOtherDisorder)
{
    disturb([](shadow_db &root, vlc::NpStore &) {
        root.counters[1][0] |= UINT32_C(0x80000000) >> 8;    // 0xc00008 is nobody's
        root.counters[0][0] &= ~(UINT32_C(0x80000000) >> 1); // entry 1 drops on it
        node_of(root, 1, 2)->stat_index_drop[0] = 0xC00005;  // which entry 3 holds
    });
    const std::vector<json> lines = lines_of(counters);
    const std::vector<json> nps = of_kind(lines, "np");
    EXPECT_EQ(nps[0]["in_use"], 5);
    EXPECT_EQ(nps[0]["lowest_free"], 0xC00001);
    EXPECT_EQ(nps[0]["free_and_held"], 1);
    EXPECT_EQ(nps[0]["shared"], 1);
    EXPECT_EQ(nps[0]["leaked"], 1); // 0xc00003, which nobody holds any more
    EXPECT_EQ(nps[1]["leaked"], 1);
    EXPECT_EQ(nps[1]["free"], 65536 - 7);
    const std::string text = text_of(counters);
    EXPECT_TRUE(has(text, "0xc00008        0      0  -         nobody: leaked\n")) << text;
    EXPECT_TRUE(has(text, "\nnote: NP 0: 1 counter is held by entries and free; see 'inlinectl "
                          "audit'\nnote: NP 0: 1 counter is held more than once; see 'inlinectl "
                          "audit'\n"))
        << text;
}

TEST_F(ShowCounters, SaysThatNoneIsFree)
{
    disturb([](shadow_db &root, vlc::NpStore &) {
        for (uint32_t word = 0; word <= vlc::CounterBank::count / 32; ++word)
            root.counters[0][word] = 0xFFFFFFFF;
    });
    const std::vector<json> nps =
        of_kind(lines_of(counters + std::vector<std::string>{"--first", "1"}), "np");
    EXPECT_EQ(nps[0]["free"], 0);
    EXPECT_EQ(nps[0]["lowest_free"], nullptr);
    EXPECT_EQ(nps[0]["in_use"], vlc::CounterBank::count + 32);
    const std::string text = text_of(counters + std::vector<std::string>{"--first", "1"});
    EXPECT_TRUE(has(text, "  65,568       0         none  65,562\n")) << text;
}

TEST_F(ShowCounters, KnowsNoOtherOrder)
{
    const Outcome outcome = inlinectl(counters + std::vector<std::string>{"--sort", "name"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(has(outcome.err, "--sort: name not in {")) << outcome.err;
}

// ---- a host that was killed in the middle of its work

class ViewsOfAKilledHost : public StateOnDisk {
protected:
    // A replay that would take long is killed when some of its packets have come.
    static void kill_a_replay()
    {
        std::vector<std::string> words{"run", "--quiet", "--state", state};
        for (int times = 0; times < 3000; ++times)
            words.insert(words.end(), {"--pcap", capture});
        const Outcome outcome =
            run_program({.program = INLINECTL, .arguments = words, .while_it_runs = [](pid_t host) {
                             while (packets() < 100 && kill(host, 0) == 0)
                                 usleep(1000);
                             kill(host, SIGKILL);
                         }});
        ASSERT_EQ(outcome.exit_code, -SIGKILL) << outcome.err;
    }
    static uint64_t packets()
    {
        const auto card = vlc::look_into_directory(state);
        return card->totals(0).packets + card->totals(1).packets;
    }
};

TEST_F(ViewsOfAKilledHost, TellWhatItLeft)
{
    write_capture(capture, std::vector<MadePacket>(1000));
    kill_a_replay();
    const std::vector<json> entries = of_kind(lines_of(shadow), "entry");
    ASSERT_EQ(entries.size(), 3u);
    uint64_t hits = 0;
    for (const json &np : entries[2]["nps"])
        hits += np["packets"].get<uint64_t>();
    EXPECT_GE(hits, 99u) << "a kill may come between two counts";
    EXPECT_LE(hits, packets());
    EXPECT_EQ(of_kind(lines_of(counters), "np").size(), 2u);
    EXPECT_TRUE(has(text_of({"top", "--once", "--state", state}),
                    "\nHost     killed; last heard of at 20"));
    EXPECT_TRUE(has(text_of({"metrics", "--state", state}),
                    "\ninline_host_life{inline_host_life=\"killed\"} 1\n"));
    EXPECT_EQ(text_of({"diff", state, state, "--counts"}), "The states are the same.\n");
    EXPECT_EQ(inlinectl({"audit", "--state", state}).exit_code, 0);
}

// ---- at size

TEST(ViewsOfALargeState, TellEachOf100000Entries)
{
    std::filesystem::remove_all("/tmp/large");
    make_large_state("/tmp/large", {});
    const Outcome entries = run_program(
        {.program = INLINECTL, .arguments = {"show", "shadow", "--json", "--state", "/tmp/large"}});
    ASSERT_EQ(entries.exit_code, 0) << entries.err;
    const std::vector<std::string> lines = lines_of(entries.out);
    ASSERT_EQ(lines.size(), 100'001u);
    EXPECT_EQ(lines.back(), R"({"kind": "totals", "keys": 100, "entries": 100000, )"
                            R"("service_config": 85000, "ext_conf": 15000, "damaged": 0, )"
                            R"("with_counters": 30000, "as_stored_on_every_np": 99900})");
    const auto line = nlohmann::json::parse(lines[50'000]);
    EXPECT_EQ(line["nps"][0]["packets"], line["entry_id"].get<uint32_t>() % 100);
    EXPECT_EQ(line["nps"][0]["as_stored"], true);
    const Outcome used = run_program(
        {.program = INLINECTL, .arguments = {"show", "counters", "--state", "/tmp/large"}});
    ASSERT_EQ(used.exit_code, 0) << used.err;
    EXPECT_TRUE(
        has(used.out, "\n 1  0xc00000 to 0xc0ffff, 65,536  60,000  5,536     0xc0ea60       0\n"))
        << used.out.substr(0, 1000);
    EXPECT_EQ(lines_of(used.out).size(), 3u + 2 * 60'002);
}

} // namespace
} // namespace test
