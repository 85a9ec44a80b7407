// `inlinectl diff`: what two states have apart.
#include <filesystem>

#include "card_child.h"
#include "inline_service_attributes.h"
#include "inline_service_vservice.h"
#include "large_state.h"
#include "made_capture.h"
#include "state_on_disk.h"
#include "vlc/state_directory.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr const char *other = "/tmp/other";

class Diff : public StateOnDisk {
protected:
    Diff()
    {
        fs::remove_all(other);
        fs::copy(state, other);
    }
    static std::vector<std::string> words(const std::vector<std::string> &more = {})
    {
        std::vector<std::string> all{"diff", state, other};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    static std::vector<json> differences(const std::vector<std::string> &more = {})
    {
        return of_kind(lines_of(words(more), 1), "difference");
    }
    static void change(const Change &change) { disturb(change, other); }
};

TEST_F(Diff, SaysThatACopyIsTheSame)
{
    EXPECT_EQ(text_of(words()), "The states are the same.\n");
    EXPECT_EQ(text_of(words({"--counts"})), "The states are the same.\n");
    const std::vector<json> lines = lines_of(words());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], json::parse(R"({"kind": "totals", "differences": 0, "only_first": 0,
                                        "only_second": 0, "changed": 0})"));
}

TEST_F(Diff, TellsWhatOneAloneHasAndEachChangedField)
{
    change([](shadow_db &root, vlc::NpStore &nps) {
        node_of(root, 1, 2)->app_node.action = SHADOW_DB_MODIFY;
        node_of(root, 1, 2)->app_node.result[0] = 2;
        shmem_node *one = node_of(root, 1, 1);
        ASSERT_EQ(nps[1]
                      .table(vlc::TableKind::service_config)
                      .remove({one->app_node.key, one->app_node.key_len}),
                  vlc::TableOutcome::done);
        one->app_node.key[7] = 81;
        root.main_table[1]->app_ID = 9;
    });
    EXPECT_EQ(
        text_of(words(), 1),
        "keys\n"
        "   key  field   first  second\n"
        "~    1  app_ID  1      9\n"
        "\n"
        "entries\n"
        "   key  table           lookup_key        name              field   first             "
        "second\n"
        "-    1  service config  1106c00002010050  tcp 192.0.2.1:80\n"
        "+    1  service config  1106c00002010051  tcp 192.0.2.1:81\n"
        "~    1  service config  1111c00002010035  udp 192.0.2.1:53  action  create            "
        "modify\n"
        "~    1  service config  1111c00002010035  udp 192.0.2.1:53  result  0100000000000002  "
        "0200000000000002\n"
        "\n"
        "rows\n"
        "   np  table           lookup_key        name\n"
        "-   1  service config  1106c00002010050  tcp 192.0.2.1:80\n"
        "\n"
        "6 differences: 2 only in the first, 1 only in the second, 3 changed\n");
}

TEST_F(Diff, TellsProgramsTheSameOneObjectALine)
{
    change([](shadow_db &root, vlc::NpStore &) { node_of(root, 1, 2)->app_node.entry_id = 7; });
    const std::vector<json> found = differences();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], json::parse(R"({"kind": "difference", "section": "entries",
        "change": "changed", "key": 1, "table": "service config", "lookup_key": "1111c00002010035",
        "name": "udp 192.0.2.1:53", "field": "entry_id", "first": "2", "second": "7"})"));
}

TEST_F(Diff, TellsCountersThatAreHeldAndInUse)
{
    change([](shadow_db &root, vlc::NpStore &) {
        node_of(root, 1, 3)->stat_index_drop[1] = 0xC00009;
        root.counters[0][0] |= UINT32_C(0x80000000) >> 20;
    });
    const std::vector<json> found =
        differences({"--only", "counters", "--only", "counters-in-use"});
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[0]["field"], "dropped on NP 1");
    EXPECT_EQ(found[0]["first"], "0xc00005");
    EXPECT_EQ(found[0]["second"], "0xc00009");
    EXPECT_EQ(found[1], json::parse(R"({"kind": "difference", "section": "counters-in-use",
        "change": "changed", "np": 0, "field": "in use", "first": "6", "second": "7"})"));
    EXPECT_EQ(found[2]["field"], "leaked");
    EXPECT_EQ(found[3]["field"], "leaked") << "the one that entry 3 has no more";
    EXPECT_EQ(found[4]["field"], "free and held");
}

TEST_F(Diff, TellsRowsOfEachNp)
{
    change([](shadow_db &, vlc::NpStore &nps) {
        constexpr uint8_t key[] = {1, 2};
        constexpr uint8_t result[] = {3};
        ASSERT_EQ(nps[1].table(vlc::TableKind::flow).add(key, result), vlc::TableOutcome::done);
    });
    const std::vector<json> found = differences();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], json::parse(R"({"kind": "difference", "section": "rows",
        "change": "only_second", "np": 1, "table": "flow", "lookup_key": "0102", "name": ""})"));
    EXPECT_EQ(text_of(words({"--only", "entries"})), "The states are the same.\n");
}

TEST_F(Diff, TellsWhichNpsRowIsNotTheSame)
{
    change([](shadow_db &root, vlc::NpStore &nps) {
        const app_node &two = node_of(root, 1, 2)->app_node;
        ASSERT_EQ(nps[0].table(vlc::TableKind::service_config).remove({two.key, two.key_len}),
                  vlc::TableOutcome::done);
    });
    const std::vector<json> found = differences();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["np"], 0);
    EXPECT_EQ(found[0]["change"], "only_first");
}

TEST_F(Diff, TellsAttributesAndVirtualServices)
{
    change([](shadow_db &root, vlc::NpStore &) {
        ASSERT_NE(root.uidb_attr_table, nullptr);
        root.uidb_attr_table[4095].vqi = 12;
        ASSERT_NE(root.vservice_db, nullptr);
        static_cast<vservice_config *>(root.vservice_db)[7].sport = 4000;
    });
    EXPECT_EQ(text_of(words(), 1), "attributes\n"
                                   "   uidb\n"
                                   "+  4095\n"
                                   "\n"
                                   "vservices\n"
                                   "   index\n"
                                   "+      7\n"
                                   "\n"
                                   "2 differences: 0 only in the first, 2 only in the second, 0 "
                                   "changed\n");
    disturb([](shadow_db &root, vlc::NpStore &) { root.uidb_attr_table[4095].vqi = 11; });
    const std::vector<json> found = differences({"--only", "attributes"});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], json::parse(R"({"kind": "difference", "section": "attributes",
        "change": "changed", "uidb": 4095, "field": "vqi", "first": "11", "second": "12"})"));
}

TEST_F(Diff, TellsFlows)
{
    for (const char *each : {state, other})
        EXPECT_EQ(
            inlinectl({"run", "--quiet", "--flows", "--state", each, "--pcap", capture}).exit_code,
            0);
    EXPECT_EQ(text_of(words({"--only", "flows"})), "The states are the same.\n");
    write_capture(capture, {{.kind = MadePacket::Kind::tcp, .destination_port = 443}});
    EXPECT_EQ(
        inlinectl({"run", "--quiet", "--flows", "--state", other, "--pcap", capture}).exit_code, 0);
    const std::vector<json> found = differences({"--only", "flows"});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["change"], "only_second");
    EXPECT_EQ(found[0]["name"], "tcp 198.51.100.1:40000 > 192.0.2.1:443");
}

TEST_F(Diff, LeavesOutWhatIsCountedUnlessItIsWanted)
{
    EXPECT_EQ(inlinectl({"run", "--quiet", "--state", other, "--pcap", capture}).exit_code, 0);
    EXPECT_EQ(text_of(words({"--only", "entries", "--only", "rows", "--only", "totals"})),
              "The states are the same.\n");
    double packets = 0;
    for (const json &found : differences({"--counts", "--only", "totals"})) {
        if (found["field"] == "packets")
            packets += std::stod(found["second"].get<std::string>()) -
                       std::stod(found["first"].get<std::string>());
    }
    EXPECT_EQ(packets, 3);
    bool entry_is_told = false;
    for (const json &found : differences({"--counts", "--only", "entries"}))
        entry_is_told =
            entry_is_told || found["field"].get<std::string>().starts_with("packets on");
    EXPECT_TRUE(entry_is_told);
}

TEST_F(Diff, TellsAnotherCard)
{
    fs::remove_all(other);
    EXPECT_EQ(
        inlinectl({"run", "--quiet", "--nps", "3", "--state", other, "--pcap", capture}).exit_code,
        0);
    const std::vector<json> card = differences({"--only", "card"});
    ASSERT_EQ(card.size(), 1u);
    EXPECT_EQ(card[0]["field"], "NPs");
    const std::vector<json> rows = differences({"--only", "rows"});
    ASSERT_EQ(rows.size(), 3u);
    for (const json &row : rows)
        EXPECT_EQ(row["np"], 2);
    const std::vector<json> counters = differences({"--only", "counters"});
    EXPECT_EQ(counters.at(0)["field"], "received on NP 2");
    EXPECT_EQ(counters.at(0)["first"], "-");
}

// ---- what cannot be compared

TEST_F(Diff, LeavesAnNpOutThatCannotBeReadOfOneAndDoesNotCallThemTheSame)
{
    fs::resize_file("/tmp/other/np1", 5000);
    const std::string text = text_of(words(), 2);
    EXPECT_TRUE(text.starts_with("What could be read is the same.\n\nnote: /tmp/other/np1: is "
                                 "truncated"))
        << text;
}

TEST_F(Diff, RefusesWhatIsNoState)
{
    expect_refusal({"diff", state}, "second is required");
    expect_refusal({"diff", state, "/tmp/nowhere"},
                   "/tmp/nowhere: cannot be opened: No such file or directory");
    expect_refusal({"diff", state, other, "third"},
                   "unexpected argument 'third'; two states are compared");
    expect_refusal({"diff", state, other, "--only", "row"},
                   "--only: there is no part 'row'; did you mean 'rows'?");
    overwrite("/tmp/other/window", 0, "not one");
    expect_refusal({"diff", state, other}, "/tmp/other/window: is no file of a virtual line card");
}

TEST_F(Diff, WantsToKnowWhereTheCardsOfHostsAre)
{
    const CardChild card;
    fs::remove_all(other);
    EXPECT_EQ(inlinectl({"run", "--quiet", "--state", other, "--connect", CardChild::socket,
                         "--pcap", capture})
                  .exit_code,
              0);
    expect_refusal({"diff", state, other},
                   "/tmp/other: is a host's alone; say where its card is with --card-state or "
                   "--connect");
    EXPECT_EQ(text_of(words({"--card-state2", CardChild::state})), "The states are the same.\n");
    EXPECT_EQ(text_of(words({"--connect2", CardChild::socket})), "The states are the same.\n");
    expect_refusal({"diff", state, other, "--connect2", "a", "--card-state2", "b"},
                   "--card-state and --connect are two places of one card: give one");
}

// ---- at size

TEST(DiffOfLargeStates, FindsTheOneRowOf100000ThatIsNotTheSame)
{
    fs::remove_all("/tmp/large");
    fs::remove_all("/tmp/larger");
    make_large_state("/tmp/large", {});
    fs::copy("/tmp/large", "/tmp/larger");
    const auto diff = [] {
        return run_program(
            {.program = INLINECTL, .arguments = {"diff", "/tmp/large", "/tmp/larger"}});
    };
    EXPECT_EQ(diff().out, "The states are the same.\n");
    {
        const vlc::StateDirectory directory("/tmp/larger", vlc::Access::read_write);
        vlc::NpStore nps(directory, *directory.card());
        vlc::NpTable &table = nps[0].table(vlc::TableKind::service_config);
        std::vector<uint8_t> key;
        table.for_each([&key](const vlc::TableRow &row) {
            const vlc::Bytes bytes = row.key_span();
            key.assign(bytes.begin(), bytes.end());
        });
        ASSERT_EQ(table.remove(key), vlc::TableOutcome::done);
    }
    const Outcome found = diff();
    EXPECT_EQ(found.exit_code, 1);
    EXPECT_TRUE(found.out.ends_with("1 difference: 1 only in the first, 0 only in the second, 0 "
                                    "changed\n"))
        << found.out;
}

} // namespace
} // namespace test
