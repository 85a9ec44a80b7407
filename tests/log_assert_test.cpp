// A broken invariant: one line on standard error, then a fault that leaves a core.

#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "card_fixture.h"

namespace {

// How a child process ended, and what it wrote to standard error.
struct Ending {
    int status;
    std::string text;
};

Ending end_of(const std::function<void()> &work)
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        work();
        _exit(0);
    }
    close(ends[1]);
    Ending ending = {};
    char part[512];
    for (ssize_t got = 0; (got = read(ends[0], part, sizeof part)) > 0;)
        ending.text.append(part, static_cast<size_t>(got));
    close(ends[0]);
    EXPECT_EQ(waitpid(child, &ending.status, 0), child);
    return ending;
}

void expect_segmentation_fault(const Ending &ending)
{
    EXPECT_TRUE(WIFSIGNALED(ending.status)) << ending.status;
    EXPECT_EQ(WTERMSIG(ending.status), SIGSEGV);
}

std::string source_line(const std::string &file, int number)
{
    std::ifstream source(PROJECT_SOURCE_DIR "/lc/inline-service/src/" + file);
    std::string line;
    for (int i = 0; i < number; ++i)
        std::getline(source, line);
    return line;
}

// The line is exactly that of an assertion of this expression, and names the place where it stands.
void expect_assertion_line(const std::string &text, const std::string &file,
                           const std::string &expression)
{
    const std::regex form("pellam/lc/inline-service/src/" + file + R"(\.cpp: ([0-9]+) )" +
                          expression + " -- assertion failed\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, form)) << text;
    EXPECT_NE(source_line(file + ".cpp", std::stoi(match[1]))
                  .find("inline_svc_assert(" + expression + ")"),
              std::string::npos)
        << text;
}

class LogAssert : public test::RunningCardTest {
protected:
    static void break_an_invariant()
    {
        pshadow_db = nullptr;
        inline_svc_shadow_db_query_main(1);
    }
};

TEST_F(LogAssert, AnUnconditionalStopNamesFileLineAndFalse)
{
    const Ending ending = end_of(break_an_invariant);
    expect_assertion_line(ending.text, "inline_service_shadowdb_util", "FALSE");
}

TEST_F(LogAssert, AConditionIsWrittenAsItStandsInTheSource)
{
    test::Batch batch(1);
    batch.add(test::make_node(1, 0, "key", "result", SHADOW_DB_CREATE));
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    test::Batch nameless(1);
    nameless.add(test::make_node(1, 0, "key", "result", SHADOW_DB_MODIFY));
    const Ending ending = end_of([&] { inline_svc_shadow_db_insert_action_array(nameless.get()); });
    expect_assertion_line(ending.text, "inline_service_shadowdb_util", "shmem_node");
    expect_segmentation_fault(ending);
}

TEST_F(LogAssert, OtherSourceFilesNameThemselves)
{
    const Ending ending = end_of([] {
        pshadow_db = nullptr;
        inline_svc_stats_collection();
    });
    expect_assertion_line(ending.text, "inline_service_stat", "FALSE");
    expect_segmentation_fault(ending);
}

TEST_F(LogAssert, TheProcessEndsByASegmentationFault)
{
    expect_segmentation_fault(end_of(break_an_invariant));
}

TEST_F(LogAssert, TheFaultIsAtAddressOne)
{
    const Ending ending = end_of([] {
        struct sigaction action = {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = [](int, siginfo_t *info, void *) {
            _exit(info->si_addr == reinterpret_cast<void *>(1) ? 42 : 43);
        };
        sigaction(SIGSEGV, &action, nullptr);
        break_an_invariant();
    });
    ASSERT_TRUE(WIFEXITED(ending.status));
    EXPECT_EQ(WEXITSTATUS(ending.status), 42);
}

std::atomic<bool> faulted = false;
std::atomic<int> lock_result = -1;

TEST_F(LogAssert, StandardErrorIsStillLockedAtTheFault)
{
    const Ending ending = end_of([] {
        std::thread other([] {
            while (!faulted)
                std::this_thread::yield();
            lock_result = ftrylockfile(stderr) == 0 ? 0 : 1;
        });
        std::signal(SIGSEGV, [](int) {
            faulted = true;
            while (lock_result < 0)
                continue;
            _exit(lock_result == 1 ? 42 : 43);
        });
        break_an_invariant();
        other.join();
    });
    ASSERT_TRUE(WIFEXITED(ending.status));
    EXPECT_EQ(WEXITSTATUS(ending.status), 42);
}

TEST_F(LogAssert, TheAssertionItselfLogsNothing)
{
    const Ending ending = end_of(break_an_invariant);
    expect_segmentation_fault(ending);
    EXPECT_TRUE(log().empty());
}

TEST_F(LogAssert, AnInvariantThatHoldsWritesNothing)
{
    const Ending ending = end_of([] { inline_svc_shadow_db_query_main(1); });
    EXPECT_EQ(ending.text, "");
    EXPECT_EQ(ending.status, 0);
}

} // namespace
