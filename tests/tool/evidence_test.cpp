// What is kept when the hardware refuses a request for the first time.

#include "evidence.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "evidence_text.h"
#include "flow_layout.h"
#include "host_on_card.h"
#include "lookup_keys.h"
#include "platform_prm.h"
#include "tool_process.h"
#include "traffic_meter.h"

namespace {

namespace fs = std::filesystem;
using services::Destination;

constexpr Destination known{6, 0xC0000201, 80}; // tcp 192.0.2.1:80

std::vector<std::string> names_in(const fs::path &directory)
{
    std::vector<std::string> names;
    if (fs::is_directory(directory))
        for (const auto &entry : fs::directory_iterator(directory))
            names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

// NP 1 has a row already that the meter is about to add.
void put_a_row_in_the_way(vlc::VirtualLineCard &card)
{
    const auto key = lookup_keys::destination_key(known.protocol, known.address, known.port);
    const uint8_t result[] = {1, 0xC0, 0x12, 0x34, 0, 0, 0, 9};
    card.nps()[1].table(vlc::TableKind::service_config).add(key, result);
}

class EvidenceOfAFailure : public test::HostOnCard {
protected:
    EvidenceOfAFailure()
    {
        open_card();
        start_host();
    }

    void watch(inlinectl::Evidence &evidence)
    {
        card->on_failed_answer(
            [&evidence](const prm_async_response &answer) { evidence.notice(answer); });
    }
    void program(const std::vector<Destination> &wanted)
    {
        services::TrafficMeter meter;
        meter.program(wanted, [this](size_t, size_t) {
            run_events();
            return true;
        });
    }
    // The bundle of the known destination's refused add.
    fs::path bundle_of_a_duplicate()
    {
        inlinectl::Evidence evidence(test::card_directory);
        watch(evidence);
        put_a_row_in_the_way(*card);
        program({known});
        evidence.write(host->root(), card->access());
        EXPECT_EQ("", evidence.failure());
        return evidence.bundle().value_or("/none");
    }

    const fs::path directory = fs::path(test::card_directory) / "evidence";
};

TEST_F(EvidenceOfAFailure, IsOneBundleOfFourFiles)
{
    const fs::path bundle = bundle_of_a_duplicate();
    EXPECT_EQ(directory, bundle.parent_path());
    EXPECT_EQ((std::vector<std::string>{"answer.txt", "np.txt", "shadow.txt", "trace.txt"}),
              names_in(bundle));
}

TEST_F(EvidenceOfAFailure, DecodesTheAnswer)
{
    const std::string text = test::file_text(bundle_of_a_duplicate() / "answer.txt");
    for (const char *line :
         {"NP          1\n", "table       service config\n", "operation   add\n",
          "status      0x257c5404 ", "entry       tcp 192.0.2.1:80\n",
          "key         11 06 c0 00 02 01 00 50\n", "result      01 c0 00 00 00 00 00 01\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << text;
}

// Requests for flows carry the ext conf table's number.
TEST_F(EvidenceOfAFailure, TellsAFlowFromAnEntryOfTheExtConfTable)
{
    const flow_layout::Key key = flow_layout::key_of({.source = 0xC0000209,
                                                      .destination = known.address,
                                                      .source_port = 1234,
                                                      .destination_port = known.port,
                                                      .protocol = known.protocol});
    vlc::Np &np = card->nps()[0];
    const uint32_t counter = np.dynamic_counters().take(1);
    flow_layout::Result result = flow_layout::result_of({});
    result[3] = 1; // the address of the first counter
    np.table(vlc::TableKind::flow).add(key, result);
    np.dynamic_counters().add(0, 60);
    ASSERT_EQ(counter, 0x01000000u);
    prm_async_response answer{};
    answer.refnum = PRM_TABLE_EXT_CONF;
    answer.flags = PRM_ANSWER_OF_FLOW_TABLE;
    answer.key_size = key.size();
    std::ranges::copy(key, answer.key);
    std::ostringstream text;
    inlinectl::write_answer(text, answer, 0);
    inlinectl::write_np_rows(text, answer, card->access());
    for (const char *line :
         {"table       flow\n", "entry       tcp 192.0.2.9:1234 > 192.0.2.1:80\n",
          "counter 0x01000000: 1 packet, 60 bytes\n", "NP 1        no row\n"})
        EXPECT_NE(std::string::npos, text.str().find(line)) << line << text.str();
}

TEST_F(EvidenceOfAFailure, ShowsTheShadowDbsEntry)
{
    const std::string text = test::file_text(bundle_of_a_duplicate() / "shadow.txt");
    for (const char *line : {"main key    1 (application type 1, id 1)\n", "entry id    1\n",
                             "action      1\n", "entry       tcp 192.0.2.1:80\n",
                             "NP 1        received 0x000000c0, dropped 0x00c00001\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << text;
}

TEST_F(EvidenceOfAFailure, ShowsTheRowOfEveryNp)
{
    const std::string text = test::file_text(bundle_of_a_duplicate() / "np.txt");
    for (const char *line : {"NP 0        01 c0 00 00 00 00 00 01\n",
                             "            counter 0x00c00000: 0 packets, 0 bytes\n",
                             "NP 1        01 c0 12 34 00 00 00 09\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << text;
}

TEST_F(EvidenceOfAFailure, SaysThatThereIsNoRow)
{
    prm_async_response answer{};
    answer.key_size = 8;
    std::ostringstream text;
    inlinectl::write_np_rows(text, answer, card->access());
    EXPECT_NE(std::string::npos, text.str().find("NP 0        no row\nNP 1        no row\n"));
}

TEST_F(EvidenceOfAFailure, SaysThatThereIsNoEntryAndNoSuchTable)
{
    prm_async_response answer{};
    answer.refnum = 0x7F;
    std::ostringstream text;
    inlinectl::write_shadow_entry(text, answer, host->root(), 2);
    EXPECT_NE(std::string::npos, text.str().find("none with this key\n"));
    inlinectl::write_np_rows(text, answer, card->access());
    EXPECT_NE(std::string::npos, text.str().find("no such table\n"));
}

TEST_F(EvidenceOfAFailure, ShowsWhatTheLibrarySaidLastInOrderOfTime)
{
    const std::string text = test::file_text(bundle_of_a_duplicate() / "trace.txt");
    const size_t added = text.find("SVC CONF add succesful");
    const size_t failed = text.find("PRM async call failed(v4): np 1");
    EXPECT_NE(std::string::npos, added);
    EXPECT_NE(std::string::npos, failed);
    EXPECT_LT(added, failed);
    EXPECT_NE(std::string::npos, text.find(" error inlc "));
    EXPECT_NE(std::string::npos, text.find("key key <len 8>: 1106c00002010050")) << text;
}

TEST_F(EvidenceOfAFailure, IsKeptOfTheFirstFailureOnly)
{
    inlinectl::Evidence evidence(test::card_directory);
    prm_async_response answer{};
    evidence.notice(answer); // carried out: nothing to keep
    evidence.write(host->root(), card->access());
    EXPECT_FALSE(evidence.bundle());
    answer.status = 5;
    answer.np = 0;
    evidence.notice(answer);
    answer.np = 1;
    evidence.notice(answer);
    evidence.write(host->root(), card->access());
    evidence.notice(answer);
    evidence.write(host->root(), card->access());
    ASSERT_EQ(1u, names_in(directory).size());
    EXPECT_NE(std::string::npos,
              test::file_text(*evidence.bundle() / "answer.txt").find("NP          0\n"));
}

TEST_F(EvidenceOfAFailure, IsKeptOfTheNewestFiveRuns)
{
    std::vector<std::string> bundles;
    for (int run = 0; run < 7; ++run) {
        inlinectl::Evidence evidence(test::card_directory);
        prm_async_response answer{};
        answer.status = 5;
        evidence.notice(answer);
        evidence.write(host->root(), card->access());
        bundles.push_back(evidence.bundle().value_or("/none").filename().string());
        vlc::CardClock::advance(std::chrono::milliseconds(1));
    }
    bundles.erase(bundles.begin(), bundles.begin() + 2);
    EXPECT_EQ(bundles, names_in(directory));
}

TEST_F(EvidenceOfAFailure, LeavesWhatIsNotItsOwnWhereItIs)
{
    fs::create_directories(directory / "mine");
    fs::create_directories(directory / "unfinished"); // of a run that was killed
    for (int run = 0; run < 7; ++run)
        std::ofstream(directory / ("note" + std::to_string(run))) << "keep";
    bundle_of_a_duplicate();
    EXPECT_EQ(9u, names_in(directory).size()); // seven notes, mine and the bundle
}

TEST_F(EvidenceOfAFailure, IsNotKeptWithoutAStateDirectory)
{
    inlinectl::Evidence evidence(std::nullopt);
    prm_async_response answer{};
    answer.status = 5;
    evidence.notice(answer);
    evidence.write(host->root(), card->access());
    EXPECT_FALSE(evidence.bundle());
    EXPECT_EQ("", evidence.failure());
}

TEST_F(EvidenceOfAFailure, SaysWhyItCouldNotBeKept)
{
    std::ofstream(directory) << "a file in its place";
    inlinectl::Evidence evidence(test::card_directory);
    prm_async_response answer{};
    answer.status = 5;
    evidence.notice(answer);
    evidence.write(host->root(), card->access());
    EXPECT_FALSE(evidence.bundle());
    EXPECT_NE("", evidence.failure());
}

TEST_F(EvidenceOfAFailure, IsNamedByTheProgram)
{
    card.reset(); // a row in the way would be settled at the start
    std::ofstream("/tmp/plan.toml") << "[[rule]]\nservice = \"prm_srh_service_config_add\"\n"
                                       "action = \"answer\"\nstatus = 0x257C5404\nnth = 1\n";
    std::ofstream("/tmp/entries.toml")
        << "[[entry]]\nprotocol = \"tcp\"\naddress = \"192.0.2.1\"\nport = 80\n";
    const test::Outcome run =
        test::run_program({.program = INLINECTL,
                           .arguments = {"run", "--state", test::card_directory, "--scenario",
                                         "/tmp/entries.toml", "--fault", "/tmp/plan.toml"}});
    EXPECT_EQ(1, run.exit_code);
    const std::vector<std::string> bundles = names_in(directory);
    ASSERT_EQ(1u, bundles.size());
    EXPECT_NE(std::string::npos,
              run.out.find("  evidence of the first: " + (directory / bundles[0]).string() + "\n"))
        << run.out;
}

} // namespace
