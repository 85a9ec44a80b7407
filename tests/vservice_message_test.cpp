// Messages of virtual services: types and counts, deletes, and which records of an add are taken.
#include <limits>

#include "vservice_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;

class VserviceMessages : public VserviceTest {
protected:
    void expect_only_the_first_line(int32_t type, int32_t count)
    {
        const std::vector<uint8_t> before = table();
        handle(VserviceMessage(type, count));
        EXPECT_EQ(log(), Lines{"vmsg: type " + std::to_string(type) + " count " +
                               std::to_string(count) + "\n"});
        EXPECT_EQ(services.names(), Lines{});
        EXPECT_TRUE(table() == before);
    }
    // The lines of the messages' own file.
    Lines own_lines() const
    {
        Lines own;
        for (const std::string &line : log()) {
            if (line.starts_with("vmsg") || line.starts_with("vservice") ||
                line.starts_with("invalid"))
                own.push_back(line);
        }
        return own;
    }
};

// ---- types and counts --------------------------------------------------------------------------

TEST_F(VserviceMessages, ANullMessageIsLoggedAndNothingIsDone)
{
    plm_vservice_msg_handler(nullptr);
    EXPECT_EQ(log(), Lines{"msg is NULL in plm_vservice_msg_handler"});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(VserviceMessages, AnyOtherTypeDoesNothingAfterTheFirstLineWhateverItsCount)
{
    add({.index = 5});
    for (const int32_t type : {0, 4, -1, 257, std::numeric_limits<int32_t>::min()}) {
        for (const int32_t count : {0, 1, 1000, std::numeric_limits<int32_t>::max()})
            expect_only_the_first_line(type, count);
    }
    EXPECT_NE(node_of(5), nullptr);
}

TEST_F(VserviceMessages, AnAddOrDeleteOfLessThanOneItemDoesNothingAfterTheFirstLine)
{
    add({.index = 5});
    for (const int32_t type : {1, 2}) {
        for (const int32_t count : {0, -1, std::numeric_limits<int32_t>::min()})
            expect_only_the_first_line(type, count);
    }
    EXPECT_NE(node_of(5), nullptr);
}

TEST_F(VserviceMessages, ADeleteAllChangesNothingWhateverItsCount)
{
    add({.index = 5});
    const std::vector<uint8_t> before = table();
    for (const int32_t count : {0, 1, 256, -1}) {
        handle(VserviceMessage(3, count));
        EXPECT_EQ(log(),
                  (Lines{"vmsg: type 3 count " + std::to_string(count) + "\n", "vmsg delall"}));
        EXPECT_EQ(services.names(), Lines{});
    }
    EXPECT_TRUE(table() == before);
    EXPECT_NE(node_of(5), nullptr);
    EXPECT_EQ(rows(0, 0), 1u);
}

TEST_F(VserviceMessages, AMessageNeedNotBeAlignedAndIsNotChanged)
{
    std::vector<uint8_t> bytes(1); // the message begins at an odd address
    const VserviceMessage message = add_message().record({.index = 5}).record({.index = 6});
    bytes.insert(bytes.end(), message.bytes().begin(), message.bytes().end());
    const std::vector<uint8_t> before = bytes;
    plm_vservice_msg_handler(bytes.data() + 1);
    EXPECT_EQ(bytes, before);
    EXPECT_NE(node_of(5), nullptr);
    EXPECT_NE(node_of(6), nullptr);
}

// ---- deletes -----------------------------------------------------------------------------------

TEST_F(VserviceMessages, ADeleteZeroesTheRecordAndTakesTheEntryOffTheHardware)
{
    handle(add_message().record({.index = 4}).record({.index = 5}).record({.index = 6}));
    handle(delete_message().index(5));
    EXPECT_EQ(own_lines(), (Lines{"vmsg: type 2 count 1\n", "vservice delete index 5"}));
    EXPECT_EQ(stored_record(5), std::vector<uint8_t>(vservice_record_bytes));
    EXPECT_EQ(entry(key_of(5)), nullptr);
    EXPECT_EQ(services.count("prm_srh_service_config_del"), 2u);
    EXPECT_EQ(stored_record(4), record_of(Vservice{.index = 4}));
    EXPECT_EQ(stored_record(6), record_of(Vservice{.index = 6}));
    EXPECT_NE(node_of(4), nullptr);
    EXPECT_NE(node_of(6), nullptr);
    EXPECT_EQ(rows(0, 0), 2u);
    EXPECT_EQ(rows(1, 0), 2u);
}

TEST_F(VserviceMessages, DeletesGoInTheirOrderPastIndicesThatAreInvalid)
{
    handle(add_message().record({.index = 0}).record({.index = 255}));
    handle(delete_message().index(255).index(256).index(0xFFFFFFFF).index(0));
    EXPECT_EQ(own_lines(),
              (Lines{"vmsg: type 2 count 4\n", "vservice delete index 255",
                     "vservice delete index 256", "invalid index 256", "vservice delete index -1",
                     "invalid index -1", "vservice delete index 0"}));
    EXPECT_EQ(entry(key_of(0)), nullptr);
    EXPECT_EQ(entry(key_of(255)), nullptr);
    EXPECT_EQ(table(), std::vector<uint8_t>(table_bytes));
}

TEST_F(VserviceMessages, AnInvalidDeleteReachesNoKey)
{
    store(0x400 - 0x100, 9, 0, "of index 0");
    handle(delete_message().index(256).index(0x10000).index(0xFFFF0000));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_NE(stored_node(0x300, 9), nullptr);
}

TEST_F(VserviceMessages, ADeleteOfWhatWasNeverAddedIsNoFailure)
{
    handle(delete_message().index(7));
    EXPECT_EQ(log(),
              (Lines{"vmsg: type 2 count 1\n", "vservice delete index 7", " action array present ",
                     " app wants to delet the index 775 num_node 0",
                     " Query Main entry  NULL for uind_index  775", "Query MAIN entry is NULL "}));
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(VserviceMessages, TheRecordIsZeroWhenTheHardwareIsAsked)
{
    add({.index = 5});
    bool zero = false;
    services.script("prm_srh_service_config_del", [&](const vlc::ServiceCall &) {
        zero = stored_record(5) == std::vector<uint8_t>(vservice_record_bytes);
        return std::optional<uint64_t>();
    });
    handle(delete_message().index(5));
    EXPECT_TRUE(zero);
}

TEST_F(VserviceMessages, ADeleteThatTheHardwareRefusesIsNotReportedAndTheNextGoesOn)
{
    handle(add_message().record({.index = 5}).record({.index = 6}));
    services.force("prm_srh_service_config_del", refusal, 1, 2); // the first, on both NPs
    handle(delete_message().index(5).index(6));
    EXPECT_NE(entry(key_of(5)), nullptr);
    EXPECT_EQ(entry(key_of(6)), nullptr);
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(VserviceMessages, WithTheSwitchOffADeleteZeroesTheRecordAlone)
{
    add({.index = 5});
    plm_inline_disable_hardware_programming();
    handle(delete_message().index(5));
    EXPECT_EQ(stored_record(5), std::vector<uint8_t>(vservice_record_bytes));
    EXPECT_NE(node_of(5), nullptr);
    EXPECT_EQ(services.names(), Lines{});
}

// ---- which records of an add are taken ---------------------------------------------------------

TEST_F(VserviceMessages, AnAddsRecordIsStoredByteForByte)
{
    std::vector<uint8_t> record = record_of(Vservice{.index = 255});
    for (size_t i = 108; i < record.size(); ++i)
        record[i] = static_cast<uint8_t>(i * 7);
    handle(add_message().append(record));
    EXPECT_EQ(stored_record(255), record);
    std::vector<uint8_t> rest = table();
    rest.resize(table_bytes - vservice_record_bytes);
    EXPECT_EQ(rest, std::vector<uint8_t>(rest.size()));
}

TEST_F(VserviceMessages, Index255IsProgrammedAnd256IsSkippedWithTheNextStillHandled)
{
    handle(add_message().record({.index = 255}).record({.index = 256}).record({.index = 1}));
    const std::string udp = "vmsg:udp; sport 1234 sip 0xc0000201 dport abcd dip 0xcb007105";
    EXPECT_EQ(own_lines(), (Lines{"vmsg: type 1 count 3\n", "vmsg add :vindex 255 encap 1 user 1\n",
                                  udp, "vmsg add :vindex 256 encap 1 user 1\n", "invalid index 256",
                                  "vmsg add :vindex 1 encap 1 user 1\n", udp}));
    EXPECT_NE(node_of(255), nullptr);
    EXPECT_NE(node_of(1), nullptr);
    EXPECT_EQ(rows(0, 0), 2u);
}

TEST_F(VserviceMessages, AnInvalidIndexIsLoggedAndReachesNeitherTableNorKey)
{
    handle(add_message()
               .record({.index = 256})
               .record({.index = 0xFFFFFFFF, .encap = 0xFFFFFFFE, .user = 0xFFFFFFFD})
               .record({.index = 0x10005}));
    EXPECT_EQ(own_lines(), (Lines{"vmsg: type 1 count 3\n", "vmsg add :vindex 256 encap 1 user 1\n",
                                  "invalid index 256", "vmsg add :vindex -1 encap -2 user -3\n",
                                  "invalid index -1", "vmsg add :vindex 65541 encap 1 user 1\n",
                                  "invalid index 65541"}));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(table(), std::vector<uint8_t>(table_bytes));
}

TEST_F(VserviceMessages, AnUnsupportedEncapsulationIsStoredAndNothingIsProgrammed)
{
    for (const uint32_t encap : {0u, 2u, 3u, 5u, 0xFFFFFFFFu}) {
        const Vservice service{.index = 9, .encap = encap};
        add(service);
        EXPECT_EQ(own_lines().back(), "vmsg:unsupported encap\n") << encap;
        EXPECT_EQ(own_lines().size(), 3u);
        EXPECT_EQ(stored_record(9), record_of(service));
        EXPECT_EQ(services.names(), Lines{});
    }
    EXPECT_EQ(entry(key_of(9)), nullptr);
}

TEST_F(VserviceMessages, AnUnsupportedOneReplacesTheRecordOfAProgrammedOneAndItsEntryStays)
{
    add({.index = 9});
    const app_node before = node_of(9)->app_node;
    handle(add_message().record({.index = 9, .encap = 2}).record({.index = 8}));
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9, .encap = 2}));
    EXPECT_EQ(memcmp(&node_of(9)->app_node, &before, sizeof before), 0);
    EXPECT_NE(node_of(8), nullptr);
}

TEST_F(VserviceMessages, TheUdpLineShowsThePortsInFourDigitsAndTheAddressesInEight)
{
    add({.index = 9,
         .encap = 4,
         .source = 0x0A000001,
         .destination = 0x0102,
         .source_port = 0x35,
         .destination_port = 0});
    EXPECT_EQ(own_lines().back(), "vmsg:udp; sport 0035 sip 0x0a000001 dport 0000 dip 0x00000102");
}

TEST_F(VserviceMessages, TheRecordIsStoredBeforeThePlatformIsAsked)
{
    std::vector<uint8_t> stored;
    services.script("platform_get_my_card_type", [&](const vlc::ServiceCall &) {
        stored = stored_record(9);
        return std::optional<uint64_t>();
    });
    add({.index = 9});
    EXPECT_EQ(stored, record_of(Vservice{.index = 9}));
}

TEST_F(VserviceMessages, A256ServiceMessageIsProgrammedWhole)
{
    VserviceMessage message = add_message();
    for (uint32_t index = 0; index < 256; ++index)
        message.record({.index = index, .encap = index % 2 == 0 ? 1u : 4u});
    handle(message);
    for (uint32_t index = 0; index < 256; ++index)
        EXPECT_NE(node_of(index), nullptr) << index;
    EXPECT_EQ(rows(0, 0), 256u);
    EXPECT_EQ(rows(1, 0), 256u);
    VserviceMessage deletes = delete_message();
    for (uint32_t index = 0; index < 256; ++index)
        deletes.index(index);
    handle(deletes);
    EXPECT_EQ(rows(0, 0) + rows(1, 0), 0u);
    EXPECT_EQ(table(), std::vector<uint8_t>(table_bytes));
}

TEST_F(VserviceMessages, WithTheSwitchOffAnAddIsStoredAndEncodedAlone)
{
    plm_inline_disable_hardware_programming();
    add({.index = 9});
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9}));
    EXPECT_EQ(entry(key_of(9)), nullptr);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
}

} // namespace
