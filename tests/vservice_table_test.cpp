// The table of virtual services in the window, and what the library keeps of it.
#include "vservice_fixture.h"

using namespace test;

namespace {

class VserviceTable : public RunningCardTest {
protected:
    using Lines = std::vector<std::string>;
};

TEST_F(VserviceTable, ItIs0x45000ZeroedBytesOfTheWindow)
{
    const auto *table = static_cast<const uint8_t *>(vservice_table_init());
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(services.names(), Lines{"shmwin_malloc"});
    EXPECT_EQ(services.calls()[0].args[0], card->window_id());
    EXPECT_EQ(services.calls()[0].args[1], 0x45000u);
    EXPECT_TRUE(card->window().contains(table + 0x44FFF));
    EXPECT_EQ(std::vector<uint8_t>(table, table + 0x45000), std::vector<uint8_t>(0x45000));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(VserviceTable, StoringItInTheRootIsTheHosts)
{
    EXPECT_NE(vservice_table_init(), nullptr);
    EXPECT_EQ(root->vservice_db, nullptr);
}

TEST_F(VserviceTable, ATableThatCannotBeAllocatedIsNullAfterTheAllocationsLine)
{
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(vservice_table_init(), nullptr);
    EXPECT_EQ(log(), Lines{"shared memory alloc failed c 282624"});
}

TEST_F(VserviceTable, TheHandleIsTheRootsPointer)
{
    EXPECT_EQ(vservice_get_db_handle(), nullptr);
    root->vservice_db = &context;
    EXPECT_EQ(vservice_get_db_handle(), &context);
    pshadow_db = nullptr;
    EXPECT_EQ(vservice_get_db_handle(), nullptr);
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(VserviceTable, TheHandleIsOfTheRootInUseNotOfTheContexts)
{
    shadow_db other = {};
    other.vservice_db = &context;
    context.shadow_db = &other;
    EXPECT_EQ(vservice_get_db_handle(), nullptr);
}

TEST_F(VserviceTable, TheInitialisationHandsItsFourArgumentsToTheEncoder)
{
    plm_vservice_init(1, UINT64_C(0x2222222222222222), 3, UINT64_C(0xFFFFFFFFFFFFFFFF));
    ASSERT_EQ(services.names(), Lines{"ac_encode_init"});
    EXPECT_EQ(services.calls()[0].args,
              (std::vector<uint64_t>{1, 0x2222222222222222, 3, 0xFFFFFFFFFFFFFFFF}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(VserviceTable, TheInitialisationReturnsTheTableOrNullWithoutOne)
{
    EXPECT_EQ(plm_vservice_init(0, 0, 0, 0), nullptr);
    root->vservice_db = vservice_table_init();
    EXPECT_EQ(plm_vservice_init(0, 0, 0, 0), root->vservice_db);
    pshadow_db = nullptr;
    EXPECT_EQ(plm_vservice_init(0, 0, 0, 0), nullptr);
}

TEST_F(VserviceTable, TheTableIsTakenOverBehindTheEncodersInitialisation)
{
    services.script("ac_encode_init", [this](const vlc::ServiceCall &) {
        root->vservice_db = &context;
        return std::optional<uint64_t>();
    });
    EXPECT_EQ(plm_vservice_init(0, 0, 0, 0), &context);
}

TEST_F(VserviceTable, ARecordOfEachIndexLies1104BytesBehindTheOneBefore)
{
    root->vservice_db = vservice_table_init();
    plm_vservice_init(0, 0, 0, 0);
    auto *first = static_cast<uint8_t *>(root->vservice_db);
    for (uint32_t index = 0; index < 256; ++index)
        EXPECT_EQ(plm_vservice_get_common_data(index), first + 1104 * index);
}

TEST_F(VserviceTable, ThereIsNoRecordFrom256OnNorBeforeTheInitialisation)
{
    root->vservice_db = vservice_table_init();
    EXPECT_EQ(plm_vservice_get_common_data(0), nullptr);
    plm_vservice_init(0, 0, 0, 0);
    EXPECT_EQ(plm_vservice_get_common_data(256), nullptr);
    EXPECT_EQ(plm_vservice_get_common_data(0xFFFFFFFF), nullptr);
    EXPECT_NE(plm_vservice_get_common_data(255), nullptr);
}

TEST_F(VserviceTable, ATableThatComesLaterIsNotSeenBeforeTheNextInitialisation)
{
    plm_vservice_init(0, 0, 0, 0);
    root->vservice_db = vservice_table_init();
    EXPECT_EQ(plm_vservice_get_common_data(0), nullptr);
    plm_vservice_init(0, 0, 0, 0);
    EXPECT_EQ(plm_vservice_get_common_data(0), root->vservice_db);
}

TEST_F(VserviceTable, MessagesWithoutATableAreLoggedAndSkipped)
{
    root->vservice_db = vservice_table_init(); // which no initialisation has taken over
    forget_log();
    services.forget();
    const VserviceMessage messages[] = {add_message().record({.index = 5}),
                                        delete_message().index(5), VserviceMessage(3),
                                        VserviceMessage(9)};
    for (const VserviceMessage &message : messages)
        plm_vservice_msg_handler(message.bytes().data());
    EXPECT_EQ(log(),
              (Lines{"vmsg: type 1 count 1\n", "vmsg: no vservice table", "vmsg: type 2 count 1\n",
                     "vmsg: no vservice table", "vmsg: type 3 count 0\n", "vmsg: no vservice table",
                     "vmsg: type 9 count 0\n", "vmsg: no vservice table"}));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(root->main_table[0x305], nullptr);
}

TEST_F(VserviceTable, AnInitialisationThatFindsNoTableEndsTheUseOfTheEarlierOne)
{
    root->vservice_db = vservice_table_init();
    plm_vservice_init(0, 0, 0, 0);
    root->vservice_db = nullptr;
    plm_vservice_init(0, 0, 0, 0);
    forget_log();
    plm_vservice_msg_handler(add_message().record({.index = 5}).bytes().data());
    EXPECT_EQ(log(), (Lines{"vmsg: type 1 count 1\n", "vmsg: no vservice table"}));
}

} // namespace
