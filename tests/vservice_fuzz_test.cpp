// Messages drawn by a seed, for a few seconds, against a model; and planted defects, which must be
// caught. Longer, and with another seed:
//
//   VSERVICE_FUZZ_SECONDS=600 VSERVICE_FUZZ_SEED=7 library_test --gtest_filter='VserviceFuzz.*'

#include <chrono>
#include <cstdlib>
#include <memory>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "message_fuzzer.h"
#include "vservice_fixture.h"

using namespace test;

namespace {

using Handler = void (*)(const void *msg);

// What the process that is fed says of itself while it still can.
struct Progress {
    uint64_t messages;
    int32_t type;
    int32_t count;
    VserviceModel::Ways ways;
    char difference[120];
};

struct Finding {
    bool found;
    std::string text; // with what leads there again
};

uint32_t number_from_environment(const char *name, uint32_t otherwise)
{
    const char *text = getenv(name);
    return text != nullptr ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : otherwise;
}

class VserviceFuzz : public VserviceTest {
protected:
    VserviceFuzz()
    {
        void *shared = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED)
            abort();
        progress = static_cast<Progress *>(shared);
    }
    ~VserviceFuzz() override { munmap(progress, sizeof *progress); }

    // Feeds the handler in a process of its own, until the time is over or something is found.
    Finding feed(Handler handler, uint32_t seed, uint32_t seconds)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(seconds + 60); // a handler that never returns is a finding too
            feed_here(handler, seed, seconds);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            return {false, ""};
        std::string text = "seed " + std::to_string(seed) + ", message " +
                           std::to_string(progress->messages) + " (type " +
                           std::to_string(progress->type) + ", count " +
                           std::to_string(progress->count) + "): ";
        if (WIFSIGNALED(status))
            text += "ended by signal " + std::to_string(WTERMSIG(status));
        else
            text += progress->difference[0] != '\0' ? progress->difference : "a sanitizer's report";
        return {true, text};
    }

    Progress *progress;

private:
    [[noreturn]] void feed_here(Handler handler, uint32_t seed, uint32_t seconds)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        const UnreadableEnd room(MessageGenerator::most_bytes);
        const auto model = std::make_unique<VserviceModel>();
        MessageGenerator generator(seed);
        while (std::chrono::steady_clock::now() < end) {
            const VserviceMessage message = generator.next();
            const std::vector<uint8_t> &bytes = message.bytes();
            ++progress->messages;
            memcpy(&progress->type, &bytes[8], sizeof progress->type);
            memcpy(&progress->count, &bytes[12], sizeof progress->count);
            handler(room.place(bytes));
            model->apply(bytes);
            progress->ways = model->ways();
            const std::string difference = model->difference(root->vservice_db, root->main_table);
            if (!difference.empty()) {
                snprintf(progress->difference, sizeof progress->difference, "%s",
                         difference.c_str());
                _exit(1);
            }
            services.forget();
            run_events();
        }
        _exit(0);
    }
};

TEST_F(VserviceFuzz, WhateverAMessageClaimsIsDoneAndNoByteBehindItIsRead)
{
    const Finding finding =
        feed(plm_vservice_msg_handler, number_from_environment("VSERVICE_FUZZ_SEED", 1),
             number_from_environment("VSERVICE_FUZZ_SECONDS", 4));
    EXPECT_FALSE(finding.found) << finding.text;
    const VserviceModel::Ways &ways = progress->ways;
    for (const uint64_t taken : {ways.created, ways.modified, ways.unsupported, ways.invalid_adds,
                                 ways.deleted, ways.invalid_deletes, ways.nothing})
        EXPECT_GT(taken, 0u);
    RecordProperty("messages", std::to_string(progress->messages));
    printf("%llu messages\n", static_cast<unsigned long long>(progress->messages));
}

// ---- planted defects: what the shipped handler does, with one thing wrong ----------------------

struct Head {
    uint32_t unread[2];
    int32_t type;
    int32_t count;
};

template <typename Count>
void read_items(const void *msg, Count count)
{
    Head head;
    memcpy(&head, msg, sizeof head);
    const size_t width = head.type == 1 ? vservice_record_bytes : 4;
    const auto *item = static_cast<const volatile uint8_t *>(msg) + sizeof head;
    for (Count i = 0; i < count && (head.type == 1 || head.type == 2); ++i, item += width)
        static_cast<void>(item[0]);
}

int32_t count_of(const void *msg)
{
    Head head;
    memcpy(&head, msg, sizeof head);
    return head.count;
}

void reads_one_item_too_many(const void *msg)
{
    plm_vservice_msg_handler(msg);
    read_items(msg, int64_t{count_of(msg)} + 1);
}

void takes_the_count_as_unsigned(const void *msg)
{
    plm_vservice_msg_handler(msg);
    read_items(msg, static_cast<uint32_t>(count_of(msg)));
}

void forgets_index_255(const void *msg)
{
    plm_vservice_msg_handler(msg);
    memset(plm_vservice_get_common_data(255), 0, vservice_record_bytes);
}

void leaves_the_entry_of_a_deleted_service(const void *msg)
{
    Head head;
    memcpy(&head, msg, sizeof head);
    if (head.type == 2)
        plm_inline_disable_hardware_programming();
    plm_vservice_msg_handler(msg);
    plm_inline_enable_hardware_programming();
}

void never_returns(const void *msg)
{
    plm_vservice_msg_handler(msg);
    raise(SIGALRM); // as its alarm would do to it
}

struct Planted {
    const char *name;
    Handler handler;
    const char *found; // in the finding's text
};
std::ostream &operator<<(std::ostream &out, const Planted &defect)
{
    return out << defect.name;
}
constexpr Planted planted_defects[] = {
    {"ReadsOneItemTooMany", reads_one_item_too_many, "ended by signal 11"},
    {"TakesTheCountAsUnsigned", takes_the_count_as_unsigned, "ended by signal 11"},
    {"ForgetsIndex255", forgets_index_255, "record 255 differs"},
    {"LeavesTheEntry", leaves_the_entry_of_a_deleted_service, " is programmed"},
    {"NeverReturns", never_returns, "ended by signal 14"},
};

// The process that is fed changes the card's files, so each defect has a card of its own.
class PlantedDefect : public VserviceFuzz, public testing::WithParamInterface<Planted> {};

TEST_P(PlantedDefect, IsCaught)
{
    const Finding finding = feed(GetParam().handler, 1, 4);
    EXPECT_TRUE(finding.found);
    EXPECT_NE(finding.text.find(GetParam().found), std::string::npos) << finding.text;
    EXPECT_GT(progress->messages, 0u);
}

INSTANTIATE_TEST_SUITE_P(VserviceFuzz, PlantedDefect, testing::ValuesIn(planted_defects),
                         [](const testing::TestParamInfo<Planted> &row) { return row.param.name; });

TEST_F(VserviceFuzz, ASeedGivesTheSameMessagesEachTime)
{
    MessageGenerator first(7);
    MessageGenerator second(7);
    MessageGenerator other(8);
    size_t different = 0;
    for (int i = 0; i < 100; ++i) {
        const std::vector<uint8_t> bytes = first.next().bytes();
        ASSERT_EQ(bytes, second.next().bytes());
        different += bytes != other.next().bytes();
    }
    EXPECT_GT(different, 50u);
}

} // namespace
