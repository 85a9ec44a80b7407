// Whole transcripts: every log line and every platform call of one reference operation, in order.
//
// The expected transcripts lie in baseline/. A change of the library's behaviour shows as a
// difference; where it is meant, REWRITE_BASELINES=1 writes them anew.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "shadow_fixture.h"

using namespace test;

namespace {

std::string hex_of(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char two[3];
        snprintf(two, sizeof two, "%02x", bytes[i]);
        text += two;
    }
    return text;
}

// A message as one line of text, its own line end visible.
std::string quoted(const std::string &message)
{
    std::string text = "log  \"";
    for (const char c : message)
        text += c == '\n' ? std::string("\\n") : std::string(1, c);
    return text + "\"";
}

class Transcript : public ShadowDbTest {
protected:
    // Writes down what `act` says and calls; then compares with the file of that name.
    template <typename Act>
    void expect_transcript(const std::string &name, Act act)
    {
        forget_history();
        lines_.clear();
        messages_ = 0;
        services.observe([this](const vlc::ServiceCall &call) {
            note_messages(); // those that came before the call
            lines_.push_back("call " + described(call));
        });
        act();
        note_messages();
        services.observe({});
        compare(name);
    }

    // How a block or list is called in the transcript.
    void name(const void *address, const std::string &text)
    {
        names_[reinterpret_cast<uint64_t>(address)] = text;
    }
    // The lists of a key, once its main entry exists.
    void name_lists(uint32_t key)
    {
        name(entry(key), "main entry");
        name(&entry(key)->table_array[0], "list 0");
        name(&entry(key)->table_array[1], "list 1");
    }

private:
    void note_messages()
    {
        const Lines all = log();
        for (; messages_ < all.size(); ++messages_)
            lines_.push_back(quoted(all[messages_]));
    }

    std::string named(uint64_t address)
    {
        const auto known = names_.find(address);
        return known != names_.end() ? known->second : "a node";
    }

    static std::string request(const vlc::ServiceCall &call)
    {
        const prm_config_record &record = record_of(call);
        std::ostringstream text;
        text << "(np " << record.np << ", kind " << record.kind << ", refnum " << std::hex
             << record.refnum << ", key " << hex_of(record.key, record.key_len) << ", result "
             << hex_of(record.result, record.result_len) << ")";
        return text.str();
    }

    std::string described(const vlc::ServiceCall &call)
    {
        const std::string service = call.service;
        std::ostringstream text;
        text << service;
        if (service.starts_with("prm_srh_"))
            text << request(call);
        else if (service == "shmwin_malloc")
            text << "(" << call.args[1] << " bytes)";
        else if (service == "prm_stats_cl_read")
            text << "(counter " << std::hex << call.args[1] << ", np " << call.args[2] << ", mode "
                 << *reinterpret_cast<const uint32_t *>(call.args[3]) << ", option " << call.args[6]
                 << ")";
        else if (service.starts_with("list_") || service == "shmwin_free")
            text << "(" << named_arguments(call) << ")";
        return text.str();
    }

    std::string named_arguments(const vlc::ServiceCall &call)
    {
        if (const main_entry *main = entry(5)) // made a moment ago, perhaps
            name_lists(main->uidb_index);
        std::string text = named(call.args[0]);
        for (size_t i = 1; i < call.arg_count; ++i)
            text += call.args[i] == 0 ? std::string(", 0") : ", " + named_node(call.args[i]);
        return text;
    }
    std::string named_node(uint64_t address)
    {
        const auto *node = reinterpret_cast<const shmem_node *>(address);
        return "node " + std::to_string(node->app_node.entry_id);
    }

    void compare(const std::string &name)
    {
        const std::filesystem::path file =
            std::filesystem::path(PROJECT_SOURCE_DIR) / "tests/baseline" / (name + ".txt");
        std::string got;
        for (const std::string &line : lines_)
            got += line + "\n";
        if (const char *rewrite = getenv("REWRITE_BASELINES");
            rewrite != nullptr && *rewrite != '\0')
            std::ofstream(file, std::ios::binary) << got;
        std::ostringstream expected;
        expected << std::ifstream(file, std::ios::binary).rdbuf();
        EXPECT_EQ(got, expected.str()) << file;
    }

    Lines lines_;
    size_t messages_ = 0;
    std::map<uint64_t, std::string> names_;
};

TEST_F(Transcript, InsertingTheFirstEntryOfAKeyIntoTableZeroOnTwoNps)
{
    Batch batch(5, 0x1A);
    batch->app_ID = 17;
    batch.create(7, 0, "abc", "0123");
    expect_transcript("insert_one_entry", [&] {
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    });
}

TEST_F(Transcript, ModifyingAnEntryOfTableZeroOnTwoNps)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5, 0x2B);
    batch->app_ID = 17;
    batch.modify(node, "4567");
    expect_transcript("modify_one_entry", [&] {
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    });
}

TEST_F(Transcript, DeletingTheLastEntryOfAKeyOnTwoNps)
{
    shmem_node *node = store(5, 7, 0, "abc");
    name_lists(5);
    name(node, "node 7");
    Batch batch(5, 0x3C);
    batch.remove(node);
    expect_transcript("delete_last_entry", [&] {
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    });
}

TEST_F(Transcript, ClearingAKeyWithAnEntryInEachTableOnTwoNps)
{
    name(store(5, 7, 0, "abc"), "node 7");
    name(store(5, 8, 1, "def"), "node 8");
    name_lists(5);
    Batch batch(5);
    batch->action = 3;
    expect_transcript(
        "clear_key", [&] { EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u); });
}

TEST_F(Transcript, AnInsertionThatFailsOnTheSecondNpAndIsCleared)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123", 0xFFFFFFFF);
    services.script("prm_srh_service_config_add", refused_on(1, 77));
    expect_transcript("failed_insertion", [&] {
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    });
}

} // namespace
