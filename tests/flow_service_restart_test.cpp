// Flows outlive their process: another one attaches to the window, gives the table its own
// functions and goes on with what is there.
#include <sys/wait.h>
#include <unistd.h>

#include "flow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t flows = 600;
int flow_info; // only the encoders look at it

// The process that makes the flows. Its functions are good in it alone.
class FirstProcess : public FlowTest {
public:
    FirstProcess()
    {
        process_ = getpid();
        in_hash_init(buckets, table, bucket_of_flow_here, match_of_flows_here);
        dpss_flow_table_init(0, 0, 0, 0);
        platform.has_policer = 1;
        for (uint64_t key = 0; key < flows; ++key)
            EXPECT_EQ(dpss_flow_add_modify(key, FLOW_ALL_NPS, key % 2, &flow_info), 0u);
        in_hash_periodic_walker(table); // sees a part, and leaves the cursor behind it
        EXPECT_NE(table->scan_cursor, 0u);
    }

private:
    static void expect_in_first_process()
    {
        if (getpid() != process_)
            abort();
    }
    static int32_t bucket_of_flow_here(const void *record)
    {
        expect_in_first_process();
        return bucket_of_flow(record);
    }
    static int32_t match_of_flows_here(const void *entry, const void *key_record)
    {
        expect_in_first_process();
        return match_of_flows(entry, key_record);
    }
    void TestBody() override {}

    static inline pid_t process_ = 0;
};

// Comes to be when the first process has ended.
class AfterFirstProcess : public testing::Test {
protected:
    AfterFirstProcess()
    {
        const pid_t first = fork();
        if (first == 0) {
            new FirstProcess; // whose destructor would clear the state away
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        waitpid(first, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
};

// A process that has called nothing of the library yet, on the state that the first one left.
class RestartedFlows : public AfterFirstProcess {
protected:
    RestartedFlows() { attach(); }
    ~RestartedFlows() override
    {
        pgbl_ptr = nullptr;
        pshadow_db = nullptr;
    }

    // As a host does; the table is not taken over yet.
    void attach()
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        vlc::CardConfig config;
        config.num_nps = 3;
        config.service_config_capacity = 256;
        config.ext_conf_capacity = 256;
        config.window_bytes = uint64_t{4} << 20;
        card_ = std::make_unique<vlc::VirtualLineCard>(config, "/tmp/card");
        root = static_cast<shadow_db *>(card_->window().root());
        ASSERT_NE(root, nullptr);
        context_.inline_evm = card_->events().handle();
        context_.shadow_db = root;
        context_.shmwin_id = card_->window_id();
        context_.num_nps = config.num_nps;
        ASSERT_EQ(inline_svc_set_global_cntx(&context_), 0u);
        ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
        ASSERT_EQ(inline_svc_prm_init(), 0u);
        card_->events().run_until_idle();
        table = dpss_flow_get_db_handle();
        ASSERT_NE(table, nullptr);
    }
    void take_over()
    {
        ASSERT_EQ(in_hash_init(table->num_buckets, table, bucket_of_flow, match_of_flows), table);
        ASSERT_EQ(dpss_flow_table_init(0, 0, 0, 0), 0u);
        services.forget();
        platform.requests.clear();
        platform.given_back.clear();
    }
    uint64_t blocks() const { return card_->window().usage().blocks_in_use; }

    ServiceRecorder services;
    FlowPlatform platform{services};
    shadow_db *root = nullptr;
    in_hash_table *table = nullptr;

private:
    std::unique_ptr<vlc::VirtualLineCard> card_;
    inline_svc_global_cntx context_{};
};

TEST_F(RestartedFlows, EntriesAndCountStayAndTheCursorBeginsAgain)
{
    EXPECT_EQ(table->count, flows);
    EXPECT_NE(table->scan_cursor, 0u);
    take_over();
    EXPECT_EQ(table->count, flows);
    EXPECT_EQ(table->scan_cursor, 0u);
    for (uint64_t key = 0; key < flows; ++key) {
        const flow_record *record = flowdb_lookup(table, key);
        ASSERT_NE(record, nullptr) << key;
        EXPECT_EQ(record->flow_key, key);
        EXPECT_EQ(record->flags, key % 2 == 0 ? 2u : 3u);
        EXPECT_EQ(record->drop_counter[2], key % 2 == 0 ? 0 : record->counter[2] + 1);
    }
}

TEST_F(RestartedFlows, BeforeTheServiceStartsItsCallsFindNoFlow)
{
    char out[FLOW_USER_DATA_BYTES];
    EXPECT_EQ(dpss_flow_lookup(7, out), 2u);
    EXPECT_EQ(dpss_flow_add_modify(7, 0, 0, &flow_info), 22u);
    EXPECT_EQ(table->count, flows);
}

TEST_F(RestartedFlows, AFlowOfTheFirstProcessIsStillTheOnlyOneWithItsKey)
{
    take_over();
    EXPECT_EQ(dpss_flow_add_modify(7, FLOW_ALL_NPS, 0, &flow_info), 17u);
    char out[FLOW_USER_DATA_BYTES];
    EXPECT_EQ(dpss_flow_lookup(7, out), 0u);
    EXPECT_STREQ(out, "user data");
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(RestartedFlows, AFlowOfTheFirstProcessIsDeletedWithItsCountersAndItsRecord)
{
    take_over();
    const uint64_t used = blocks();
    const uint32_t counter = flowdb_lookup(table, 7)->counter[1];
    uint64_t packets = 0;
    uint64_t octets = 0;
    platform.counts = {{{1, counter}, {5, 500}}};
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, &packets, &octets), 0u);
    EXPECT_EQ(packets, 5u);
    EXPECT_EQ(octets, 500u);
    EXPECT_EQ(platform.requests.size(), 3u);
    EXPECT_EQ(platform.given_back.at(1).second, counter);
    EXPECT_EQ(table->count, flows - 1);
    EXPECT_EQ(blocks(), used - 1);
    EXPECT_EQ(flowdb_lookup(table, 7), nullptr);
}

TEST_F(RestartedFlows, NewFlowsStandInFrontOfThoseOfTheFirstProcess)
{
    take_over();
    EXPECT_EQ(dpss_flow_add_modify(flows, FLOW_ALL_NPS, 0, &flow_info), 0u);
    const flow_record *record = flowdb_lookup(table, flows);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->next, flowdb_lookup(table, flows - table->num_buckets));
    EXPECT_EQ(table->count, flows + 1);
}

// The pause between two whole visits is the process's, so that it begins at none.
TEST_F(RestartedFlows, TheWalkerBeginsAtOnceAndAtTheFirstBucket)
{
    take_over();
    in_hash_periodic_walker(table);
    ASSERT_FALSE(platform.scanned.empty());
    EXPECT_EQ(static_cast<const flow_record *>(platform.scanned[0][0])->flow_key,
              flows - table->num_buckets); // the newest of bucket 0
    size_t visited = 0;
    for (int call = 1; call < 15; ++call)
        in_hash_periodic_walker(table);
    for (const std::vector<void *> &slice : platform.scanned)
        visited += slice.size();
    EXPECT_GE(visited, flows);
}

TEST_F(RestartedFlows, ReadingAllGivesEveryFlowOfTheFirstProcess)
{
    static std::set<uint64_t> keys;
    keys.clear();
    take_over();
    const auto keep = [](void **records, uint32_t count, uint32_t last) {
        for (uint32_t i = 0; i < count; ++i)
            keys.insert(static_cast<const flow_record *>(records[i])->flow_key);
        return last;
    };
    EXPECT_EQ(flowdb_read_all(table, keep, 20), 1u);
    EXPECT_EQ(keys.size(), flows);
}

TEST_F(RestartedFlows, NothingIsLeftWhenAllAreDeleted)
{
    take_over();
    const uint64_t used = blocks();
    for (uint64_t key = 0; key < flows; ++key)
        EXPECT_EQ(dpss_flow_delete(key), 0u);
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(blocks(), used - flows);
}

} // namespace
