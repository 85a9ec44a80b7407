// `inlinectl sites`: the sites of a host listed, switched and followed, from another process.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <thread>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include "host_on_card.h"
#include "inline_service_shadowdb.h"
#include "tool_process.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Lines = std::vector<std::string>;

constexpr uint32_t asked_key = 5;
constexpr const char *host_errors = "/tmp/host.err";

// A host in a process of its own: it looks for a key again and again, and has nothing under it.
class RunningHost {
public:
    RunningHost()
    {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        process_ = fork();
        if (process_ == 0)
            run(ready[1]);
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(1, read(ready[0], &byte, 1)) << "the host did not start";
        close(ready[0]);
    }
    ~RunningHost() { end(); }
    RunningHost(const RunningHost &) = delete;
    RunningHost &operator=(const RunningHost &) = delete;

    void end()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = 0;
    }

private:
    [[noreturn]] static void run(int ready)
    {
        const int errors = open(host_errors, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(errors, STDERR_FILENO);
        vlc::VirtualLineCard card(small_card(), card_directory);
        services::ServiceHost host(handles_of(card));
        host.start();
        [[maybe_unused]] const ssize_t told = write(ready, "", 1);
        for (;;) {
            card.events().run_until_idle();
            inline_svc_shadow_db_query_main(asked_key);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    pid_t process_ = 0;
};

class SitesCommand : public ::testing::Test {
protected:
    static Outcome inlinectl(Lines arguments, std::function<void(pid_t)> while_it_runs = {})
    {
        return run_program({.program = INLINECTL,
                            .arguments = std::move(arguments),
                            .while_it_runs = std::move(while_it_runs)});
    }
    static Outcome sites(Lines words)
    {
        words.insert(words.begin(), "sites");
        words.insert(words.end(), {"--state", card_directory});
        return inlinectl(words);
    }
    static std::vector<json> listed(Lines words)
    {
        words.emplace_back("--json");
        const Outcome outcome = sites(std::move(words));
        EXPECT_EQ(0, outcome.exit_code) << outcome.err;
        std::vector<json> objects;
        for (const std::string &line : lines_of(outcome.out))
            objects.push_back(json::parse(line));
        return objects;
    }
    static Outcome set(const std::string &query) { return sites({"set", query}); }
    static std::string flags_of(const json &site) { return site["flags"].get<std::string>(); }
    // What a follower writes until it has so many lines, or for so long.
    static Outcome followed(size_t lines, Lines words = {}, int milliseconds = 5'000)
    {
        const std::string written = "/tmp/followed";
        fs::remove(written);
        words.insert(words.begin(), {"sites", "follow"});
        words.insert(words.end(), {"--state", card_directory});
        return run_program({.program = INLINECTL,
                            .arguments = words,
                            .out_file = written,
                            .while_it_runs = [&](pid_t tool) {
                                for (int i = 0; i < milliseconds &&
                                                lines_of(file_text(written)).size() < lines;
                                     ++i)
                                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                                kill(tool, SIGINT);
                            }});
    }
    static void expect_refusal(const Lines &arguments, const std::string &why, int exit_code = 2)
    {
        const Outcome outcome = inlinectl(arguments);
        EXPECT_EQ(exit_code, outcome.exit_code);
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ("inlinectl: " + why + "\n", outcome.err);
    }
    // The site that the running host says all the time.
    static constexpr const char *asked = "func inline_svc_shadow_db_query_main level event";
};

// ---- list

TEST_F(SitesCommand, ListsEverySiteOfARunningHost)
{
    RunningHost host;
    std::ifstream baseline(PROJECT_SOURCE_DIR "/tests/baseline/log_sites.txt");
    const auto count = std::count(std::istreambuf_iterator<char>(baseline), {}, '\n');
    const auto all = listed({"list"});
    EXPECT_EQ(static_cast<size_t>(count), all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(i, all[i]["number"]);
        EXPECT_EQ("inlc", all[i]["component"]);
        EXPECT_EQ("_", flags_of(all[i]));
    }
    EXPECT_EQ(all.size(), listed({}).size()) << "list is the default";
    EXPECT_EQ(all.size() + 1, lines_of(sites({}).out).size());
}

TEST_F(SitesCommand, CountsHitsWhileTheHostRunsAndKeepsThemWhenItIsKilled)
{
    const auto hits = [] {
        uint64_t sum = 0;
        for (const json &site : listed({"list", asked}))
            sum += site["hits"].get<uint64_t>();
        return sum;
    };
    RunningHost host;
    const uint64_t first = hits();
    uint64_t second = first;
    for (int i = 0; i < 100 && second == first; ++i)
        second = hits();
    EXPECT_GT(second, first);
    host.end();
    const uint64_t last = hits();
    EXPECT_GE(last, second);
    EXPECT_EQ(last, hits());
}

TEST_F(SitesCommand, ListsWhatAQuerySelects)
{
    RunningHost host;
    const auto all = listed({"list"});
    const auto some = listed({"list", "file prm_answer level error"});
    EXPECT_FALSE(some.empty());
    for (const json &site : some) {
        EXPECT_TRUE(site["file"].get<std::string>().ends_with("inline_service_prm_answer.cpp"));
        EXPECT_EQ(1, site["level"]);
    }
    EXPECT_LT(some.size(), all.size());
    EXPECT_EQ("No site is listed.\n", sites({"list", "func no_such"}).out);
}

TEST_F(SitesCommand, AreAViewOfShowToo)
{
    RunningHost host;
    host.end();
    EXPECT_EQ(sites({"list", "file log"}).out,
              inlinectl({"show", "sites", "file log", "--state", card_directory}).out);
}

// ---- set

TEST_F(SitesCommand, SwitchesSitesOfARunningHostAtOnce)
{
    RunningHost host;
    const auto changed = listed({"set", "func inline_svc_shadow_db_query_main +pq; number 0 +x"});
    ASSERT_GT(changed.size(), 1U);
    EXPECT_EQ("x", changed[0]["after"]);
    EXPECT_EQ("pq", changed[1]["after"]);
    EXPECT_EQ("_", changed[1]["before"]);
    for (const json &site : listed({"list"})) {
        const bool switched = site["function"] == "inline_svc_shadow_db_query_main";
        EXPECT_EQ(switched ? "pq" : site["number"] == 0 ? "x" : "_", flags_of(site));
    }
    const Outcome again = set("number 0 +x");
    EXPECT_EQ(0, again.exit_code);
    EXPECT_NE(std::string::npos, again.out.find("\n0 sites changed, 1 had it already\n"))
        << again.out;
    listed({"set", "file * =_"});
    for (const json &site : listed({"list"}))
        EXPECT_EQ("_", flags_of(site));
}

TEST_F(SitesCommand, SelectsByAnUnderscoredPartOfAFilesNameAndARangeOfLines)
{
    RunningHost host;
    const auto changed = listed({"set", "file shadowdb* line 100-200 +p"});
    EXPECT_GT(changed.size(), 3U);
    for (const json &site : changed) {
        EXPECT_TRUE(site["file"].get<std::string>().ends_with("shadowdb_util.cpp"));
        EXPECT_GE(site["line"], 100);
        EXPECT_LE(site["line"], 200);
    }
}

TEST_F(SitesCommand, ChangesNothingForABadQuery)
{
    RunningHost host;
    expect_refusal({"sites", "set", "file * +p; lin 3 +p", "--state", card_directory},
                   "'file * +p; lin 3 +p', column 12: 'lin' is no word of a query; the nearest "
                   "known name is 'line'");
    expect_refusal({"sites", "set", "file log", "--state", card_directory},
                   "'file log', column 9: the change is missing at the end, as '+p'");
    expect_refusal({"sites", "set", "file nothing +p", "--state", card_directory},
                   "the query selects no site", 1);
    for (const json &site : listed({"list"}))
        EXPECT_EQ("_", flags_of(site));
}

// ---- follow

TEST_F(SitesCommand, FollowsWhatSwitchedSitesSayWithTheirArguments)
{
    RunningHost host;
    ASSERT_EQ(0, set(std::string(asked) + " +p").exit_code);
    const Outcome outcome = followed(5);
    EXPECT_EQ(0, outcome.exit_code) << outcome.err;
    const Lines lines = lines_of(outcome.out);
    ASSERT_GE(lines.size(), 5U);
    for (const std::string &line : lines) {
        EXPECT_NE(std::string::npos, line.find("inline_svc_shadow_db_query_main")) << line;
        EXPECT_NE(std::string::npos, line.find("key=5")) << line;
    }
}

TEST_F(SitesCommand, FollowsAsJsonAndOnlyWhatAQuerySelects)
{
    RunningHost host;
    ASSERT_EQ(0, set("file * +p").exit_code);
    const Outcome outcome = followed(5, {asked, "--json"});
    const Lines lines = lines_of(outcome.out);
    ASSERT_GE(lines.size(), 5U);
    for (const std::string &line : lines) {
        const json event = json::parse(line);
        EXPECT_EQ("inline_svc_shadow_db_query_main", event["function"]);
        EXPECT_EQ(asked_key, event["arguments"]["key"]);
        EXPECT_FALSE(event.contains("sequence"));
    }
}

TEST_F(SitesCommand, PrintsSlowlyOnlyWhatTheConditionLetsPass)
{
    RunningHost host;
    ASSERT_EQ(0, set(std::string(asked) + " arg key=6 +s").exit_code);
    EXPECT_EQ("", followed(1, {}, 300).out);
    ASSERT_EQ(0, set(std::string(asked) + " arg key=5 +s").exit_code);
    EXPECT_NE("", followed(1).out);
}

TEST_F(SitesCommand, SparesTheHostsStandardErrorWhileSomebodyFollows)
{
    RunningHost host;
    ASSERT_EQ(0, set(std::string(asked) + " +s").exit_code);
    followed(5);
    // Before and behind it, prints go there.
    EXPECT_NE(std::string::npos, file_text(host_errors).find("inline_svc_shadow_db_query_main"));
}

TEST_F(SitesCommand, SaysThatTheHostHasEnded)
{
    RunningHost host;
    std::thread end([&host] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        host.end();
    });
    const Outcome outcome = inlinectl({"sites", "follow", "--state", card_directory});
    end.join();
    EXPECT_EQ(0, outcome.exit_code);
    EXPECT_EQ("inlinectl: the host has ended\n", outcome.err);
}

TEST_F(SitesCommand, FollowsNoLongerThanSomebodyReads)
{
    RunningHost host;
    ASSERT_EQ(0, set(std::string(asked) + " +p").exit_code);
    const Outcome outcome =
        run_program({.program = INLINECTL,
                     .arguments = {"sites", "follow", "--state", card_directory},
                     .out_file = "/dev/full"});
    EXPECT_EQ(1, outcome.exit_code);
    EXPECT_EQ("inlinectl: the report could not be written\n", outcome.err);
}

// ---- what cannot be done

TEST_F(SitesCommand, NeedsAHostForWhatChanges)
{
    {
        RunningHost host;
    }
    const std::string none = std::string("no host runs in ") + card_directory;
    expect_refusal({"sites", "set", "file * +p", "--state", card_directory}, none);
    expect_refusal({"sites", "follow", "--state", card_directory}, none);
    expect_refusal({"sites", "set", "file * -+p", "--state", card_directory},
                   "'file * -+p', column 9: '+' is no flag, which are p, s, l, i, q and x, and _ "
                   "alone behind '='");
}

TEST_F(SitesCommand, RefusesBadWords)
{
    expect_refusal({"sites"}, "nothing to look into: give --state");
    expect_refusal({"sites", "lst"}, "unknown command 'lst'; did you mean 'list'?");
    expect_refusal({"sites", "set", "--state", card_directory}, "query is required");
    expect_refusal({"sites", "list", "file a +p", "--state", card_directory},
                   "'file a +p', column 8: '+p' changes, and this only selects");
}

TEST_F(SitesCommand, TellsOfATableThatIsDamaged)
{
    {
        RunningHost host;
    }
    const fs::path table = fs::path(card_directory) / "sites-inlc";
    std::string bytes = file_text(table);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    std::ofstream(table, std::ios::binary) << bytes;
    expect_refusal({"sites", "--state", card_directory}, table.string() + ": is damaged");
}

} // namespace
} // namespace test
