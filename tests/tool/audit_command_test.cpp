// inlinectl audit, and what inlinectl run settles, on state directories that were put in disorder.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inline_service_shadowdb.h"
#include "made_capture.h"
#include "tool_process.h"
#include "vlc/np_store.h"
#include "vlc/state_directory.h"
#include "vlc/window.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::MadePacket;
using test::Outcome;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *state = "/tmp/state";

class AuditCommand : public ::testing::Test {
protected:
    // Two destinations, one address: three entries on two NPs.
    AuditCommand()
    {
        fs::remove_all(state);
        test::write_capture(capture, {{.kind = MadePacket::Kind::tcp, .destination_port = 80},
                                      {.kind = MadePacket::Kind::udp, .destination_port = 53}});
        EXPECT_EQ(inlinectl({"run", "--state", state, "--pcap", capture}).exit_code, 0);
    }

    static Outcome inlinectl(std::vector<std::string> arguments, test::Environment environment = {})
    {
        return test::run_program({.program = INLINECTL,
                                  .arguments = std::move(arguments),
                                  .environment = std::move(environment)});
    }
    static Outcome audit() { return inlinectl({"audit", "--state", state}); }
    static json report()
    {
        return json::parse(inlinectl({"audit", "--state", state, "--json"}).out);
    }

    // Changes what is kept, as no host does.
    static void disturb(const std::function<void(shadow_db &root, vlc::NpStore &nps)> &change)
    {
        const vlc::StateDirectory directory(state, vlc::Access::read_write);
        vlc::NpStore nps(directory, *directory.card());
        const vlc::Window window(directory, directory.card()->window_bytes);
        change(*static_cast<shadow_db *>(window.root()), nps);
    }
    static void lose_the_rows_of_np_1()
    {
        disturb([](shadow_db &, vlc::NpStore &nps) {
            nps[1].table(vlc::TableKind::service_config).clear();
        });
    }
    static std::map<std::string, std::string> contents()
    {
        std::map<std::string, std::string> files;
        for (const fs::directory_entry &file : fs::directory_iterator(state))
            files[file.path().filename()] = test::file_text(file.path());
        return files;
    }
};

TEST_F(AuditCommand, FindsNothingBehindARun)
{
    const Outcome outcome = audit();
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "State      /tmp/state\n"
                           "Card       default, 2 NPs, type 0xD20001\n"
                           "Shadow DB  1 key\n"
                           "In flight  nothing\n"
                           "\n"
                           "           service config  ext conf  counters in use\n"
                           "shadow DB               2         1\n"
                           "NP 0                    2         1                6\n"
                           "NP 1                    2         1                6\n"
                           "\n"
                           "Differences: none\n");
}

TEST_F(AuditCommand, CountsDifferencesByNpAndShowsTheFirst)
{
    disturb([](shadow_db &root, vlc::NpStore &nps) {
        nps[1].table(vlc::TableKind::service_config).clear();
        for (uint8_t row = 0; row < 5; ++row)
            nps[0].table(vlc::TableKind::ext_conf).add({&row, 1}, {&row, 1});
        root.main_table[1]->num_elements[0] = 7;
    });
    const Outcome outcome = audit();
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "");
    const size_t differences = outcome.out.find("Differences");
    ASSERT_NE(differences, std::string::npos) << outcome.out;
    const std::string told = outcome.out.substr(differences);
    const std::string begin =
        "Differences: 8\n"
        "                               NP 0  NP 1  shadow DB\n"
        "entry missing on an NP            -     2          -\n"
        "stale row on an NP                5     -          -\n"
        "count does not match its list     -     -          1\n"
        "\n"
        "entry missing on an NP\n"
        "  NP 1: entry 1 of key 1 (service config 1106c00002010050) has no row\n"
        "  NP 1: entry 2 of key 1 (service config 1111c00002010035) has no row\n"
        "\n"
        "stale row on an NP\n"
        "  NP 0: no entry has the row ext conf 0";
    const std::string end =
        "\n"
        "  and 2 more\n"
        "\n"
        "count does not match its list\n"
        "  key 1, service config list: the entry says 7 nodes and the list holds 2\n";
    EXPECT_EQ(told.substr(0, begin.size()), begin);
    EXPECT_EQ(told.substr(told.size() - end.size()), end);
    EXPECT_EQ(test::lines_of(told).size(), 18u); // three stale rows shown of five
}

TEST_F(AuditCommand, TellsAProgramEveryDifference)
{
    lose_the_rows_of_np_1();
    const Outcome outcome = inlinectl({"audit", "--state", state, "--json"});
    EXPECT_EQ(outcome.exit_code, 1);
    const json object = json::parse(outcome.out);
    EXPECT_EQ(object["clean"], false);
    EXPECT_EQ(object["counts"]["entry_missing"], 2);
    EXPECT_EQ(object["counts"]["entry_stale"], 0);
    EXPECT_EQ(object["nps"][1]["service_config"], 0);
    EXPECT_EQ(object["shadow_db"]["service_config"], 2);
    ASSERT_EQ(object["differences"].size(), 2u);
    const json &first = object["differences"][0];
    EXPECT_EQ(first["kind"], "entry_missing");
    EXPECT_EQ(first["np"], 1);
    EXPECT_EQ(first["main_key"], 1);
    EXPECT_EQ(first["entry_id"], 1);
    EXPECT_FALSE(first.contains("counter"));
    EXPECT_EQ(object["in_flight"], json::array());
}

TEST_F(AuditCommand, ShowsNoColoursWhereTheyAreNotWanted)
{
    lose_the_rows_of_np_1();
    EXPECT_EQ(audit().out.find('\033'), std::string::npos);
}

TEST_F(AuditCommand, ChangesNothing)
{
    lose_the_rows_of_np_1();
    const auto before = contents();
    const auto written = fs::last_write_time(std::string(state) + "/window");
    EXPECT_EQ(audit().exit_code, 1);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(fs::last_write_time(std::string(state) + "/window"), written);
}

TEST_F(AuditCommand, LooksWhileAHostIsAliveAndTakesNoLock)
{
    const int directory = open(state, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(directory, LOCK_EX | LOCK_NB), 0); // as a live host holds it
    EXPECT_EQ(audit().exit_code, 0);
    close(directory);
}

TEST_F(AuditCommand, LooksWhileAHostIsAtWork)
{
    std::ofstream scenario("/tmp/entries.toml");
    for (int port = 1; port <= 2000; ++port)
        scenario << "[[entry]]\nprotocol = \"tcp\"\naddress = \"192.0.2.7\"\nport = " << port
                 << "\n";
    scenario.close();
    int looks = 0;
    const auto look_on = [&looks](pid_t host) {
        siginfo_t ended{};
        while (waitid(P_PID, static_cast<id_t>(host), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == 0) {
            const Outcome outcome = audit();
            EXPECT_TRUE(outcome.exit_code == 0 || outcome.exit_code == 1) << outcome.err;
            ++looks;
        }
    };
    const Outcome host = test::run_program(
        {.program = INLINECTL,
         .arguments = {"run", "--state", state, "--scenario", "/tmp/entries.toml", "--quiet"},
         .while_it_runs = look_on});
    EXPECT_EQ(host.exit_code, 0) << host.err;
    EXPECT_GT(looks, 0);
    EXPECT_EQ(audit().exit_code, 0);
    EXPECT_EQ(report()["shadow_db"]["service_config"], 2002);
}

TEST_F(AuditCommand, SaysWhenTheReportDoesNotArrive)
{
    const Outcome outcome = test::run_program(
        {.program = INLINECTL, .arguments = {"audit", "--state", state}, .out_file = "/dev/full"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: the report could not be written\n");
}

TEST_F(AuditCommand, ReadsACardThatHasADirectoryOfItsOwn)
{
    fs::remove_all("/tmp/card");
    fs::copy(state, "/tmp/card");
    lose_the_rows_of_np_1();
    EXPECT_EQ(audit().exit_code, 1);
    EXPECT_EQ(inlinectl({"audit", "--state", state, "--card-state", "/tmp/card"}).exit_code, 0);
}

TEST_F(AuditCommand, RefusesAHostOfAnotherCard)
{
    fs::remove_all("/tmp/other");
    ASSERT_EQ(
        inlinectl({"run", "--nps", "4", "--state", "/tmp/other", "--pcap", capture}).exit_code, 0);
    const Outcome outcome = inlinectl({"audit", "--state", state, "--card-state", "/tmp/other"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: /tmp/state: is the host of another card\n");
}

// ---- a card in a process of its own

class AuditOfTwoProcesses : public AuditCommand {
protected:
    static constexpr const char *host_state = "/tmp/host";
    static constexpr const char *card_state = "/tmp/card";
    static constexpr const char *socket = "/tmp/card.socket";

    // With a card that runs, and a host that has run on it.
    static void with_a_card(const std::function<void()> &look)
    {
        for (const char *directory : {host_state, card_state})
            fs::remove_all(directory);
        const auto while_it_runs = [&look](pid_t card) {
            for (int i = 0; i < 1000 && !fs::exists(socket); ++i)
                usleep(10000);
            EXPECT_EQ(
                inlinectl({"run", "--connect", socket, "--state", host_state, "--pcap", capture})
                    .exit_code,
                0);
            look();
            kill(card, SIGINT);
        };
        test::run_program({.program = INLINECTL,
                           .arguments = {"card", "--listen", socket, "--state", card_state},
                           .while_it_runs = while_it_runs});
    }
    static Outcome audit_with(std::vector<std::string> more)
    {
        more.insert(more.begin(), {"audit", "--state", host_state});
        return inlinectl(std::move(more));
    }
};

TEST_F(AuditOfTwoProcesses, ReadsTheCardThroughItsSocketOrItsDirectory)
{
    with_a_card([] {
        for (const Outcome &outcome :
             {audit_with({"--connect", socket}), audit_with({"--card-state", card_state})}) {
            EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
            EXPECT_NE(outcome.out.find("NP 1                    2         1"), std::string::npos)
                << outcome.out;
        }
    });
}

TEST_F(AuditOfTwoProcesses, NeedsToKnowWhereTheCardIs)
{
    with_a_card([] {
        const Outcome outcome = audit_with({});
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.err, "inlinectl: /tmp/host: is a host's alone; say where its card is "
                               "with --card-state or --connect\n");
    });
}

TEST_F(AuditOfTwoProcesses, TakesOneCardOnly)
{
    const Outcome outcome = audit_with({"--card-state", card_state, "--connect", socket});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err,
              "inlinectl: a card is read from --card-state or from --connect, not from both\n");
}

TEST_F(AuditOfTwoProcesses, SaysWhenNoCardListens)
{
    fs::remove(socket);
    const Outcome outcome = inlinectl({"audit", "--state", state, "--connect", socket});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err.rfind("inlinectl: /tmp/card.socket: ", 0), 0u) << outcome.err;
}

// ---- what cannot be read

TEST_F(AuditCommand, NeedsAState)
{
    const Outcome outcome = inlinectl({"audit"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: nothing to audit: give --state\n");
}

TEST_F(AuditCommand, NamesADirectoryThatIsNotThere)
{
    const Outcome outcome = inlinectl({"audit", "--state", "/tmp/nothing"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err,
              "inlinectl: /tmp/nothing: cannot be opened: No such file or directory\n");
    EXPECT_FALSE(fs::exists("/tmp/nothing"));
}

TEST_F(AuditCommand, NamesAFileThatIsCutOff)
{
    fs::resize_file(std::string(state) + "/np1", 5000);
    const Outcome outcome = audit();
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.rfind("inlinectl: /tmp/state/np1: is truncated", 0), 0u) << outcome.err;
}

TEST_F(AuditCommand, NamesADirectoryOfSomebodyElse)
{
    fs::create_directories("/tmp/foreign/sub");
    const Outcome outcome = inlinectl({"audit", "--state", "/tmp/foreign"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_NE(outcome.err.find("is not the state of a virtual line card"), std::string::npos);
}

TEST_F(AuditCommand, KnowsItsOptions)
{
    EXPECT_EQ(inlinectl({"audit", "--stat", state}).err,
              "inlinectl: unknown option '--stat'; did you mean '--state'?\n");
    EXPECT_EQ(inlinectl({"audit", state}).err,
              "inlinectl: unexpected argument '/tmp/state'; the state is given with --state\n");
    const Outcome help = inlinectl({"audit", "--help"});
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_NE(help.out.find("inlinectl audit --state card"), std::string::npos);
}

// ---- the next run

TEST_F(AuditCommand, SeesWhatTheNextRunSettled)
{
    disturb([](shadow_db &root, vlc::NpStore &nps) {
        nps[1].table(vlc::TableKind::service_config).clear();
        constexpr uint8_t old = 0xEE;
        nps[0].table(vlc::TableKind::ext_conf).add({&old, 1}, {&old, 1});
        root.counters[0][0] |= 1;
    });
    EXPECT_EQ(report()["differences"].size(), 4u);
    const Outcome run = inlinectl({"run", "--state", state});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_NE(run.out.find("Settled   deleted a stale row: NP 0, ext conf ee\n"), std::string::npos)
        << run.out;
    EXPECT_EQ(audit().exit_code, 0);
}

TEST_F(AuditCommand, SeesWhatTheNextRunCouldNotSettle)
{
    disturb([](shadow_db &root, vlc::NpStore &) { root.counters[0][0] &= 0x7FFFFFFF; });
    const Outcome run = inlinectl({"run", "--state", state, "--json"});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(run.err.rfind("inlinectl: not settled: NP 0: entry 1 of key 1", 0), 0u) << run.err;
    EXPECT_EQ(json::parse(run.out)["settlement"]["left"].size(), 1u);
    EXPECT_EQ(audit().exit_code, 1);
}

TEST_F(AuditCommand, FindsWhatTheNextRunRefusesToFollow)
{
    const std::function<void(shadow_db &)> damages[] = {
        [](shadow_db &root) {
            root.main_table[1]->table_array[0].first->next =
                reinterpret_cast<list_link *>(0x31a7d505f5e3f286);
        },
        [](shadow_db &root) { root.counters[1] = reinterpret_cast<uint32_t *>(0x7eac00000000); },
    };
    for (const auto &damage : damages) {
        disturb([&damage](shadow_db &root, vlc::NpStore &) { damage(root); });
        const auto before = contents();
        const Outcome run = inlinectl({"run", "--state", state, "--pcap", capture});
        EXPECT_EQ(run.exit_code, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "inlinectl: /tmp/state: the shadow DB there is damaged and was left as "
                           "it is; see 'inlinectl audit'\n");
        const auto after = contents();
        EXPECT_EQ(after.at("np0"), before.at("np0"));
        EXPECT_EQ(audit().exit_code, 1);
        fs::remove_all(state);
        EXPECT_EQ(inlinectl({"run", "--state", state, "--pcap", capture}).exit_code, 0);
    }
}

} // namespace
