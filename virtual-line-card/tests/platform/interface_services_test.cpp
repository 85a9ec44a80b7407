// Slots, interfaces and VRFs of the card file, as the services give them.
#include "platform_interfaces.h"

#include <cerrno>
#include <cstdlib>

#include <gtest/gtest.h>

#include "platform_card.h"
#include "test_card.h"

namespace {

class InterfaceServices : public testing::Test {
protected:
    static vlc::CardConfig with_rows()
    {
        vlc::CardConfig config = card_test::small_card();
        config.slots = {{.number = 3, .node = 0x31, .card_type = CARD_TYPE_INFRA_SLOTS},
                        {.number = 4, .node = 0x41, .card_type = 0xD20001}};
        config.interfaces.resize(2);
        config.interfaces[0] = {.handle = 0x100, .uidb = 7, .pic = 0x0A0B0C0D};
        config.interfaces[1] = {.handle = 0x200, .uidb = 8, .pic = 2};
        config.vrfs = {{.id = 9, .table = 0xABCDEF}, {.id = 10, .table = 0}};
        return config;
    }

    void *bound()
    {
        void *handle = nullptr;
        EXPECT_EQ(0u, imc_db_bind(bind_record, IMC_BIND_LENGTH, &handle));
        return handle;
    }

    const uint32_t bind_record[2] = {IMC_BIND_CLIENT, 0};
    card_test::ScratchDirectory room;
    vlc::VirtualLineCard card{with_rows(), room.path()};
};

TEST_F(InterfaceServices, ASlotHasItsNodeAndTheNodeItsCardType)
{
    uint32_t node = 0;
    EXPECT_EQ(0u, plm_slot_to_nodeid(3, &node));
    EXPECT_EQ(0x31u, node);
    EXPECT_EQ(uint32_t{CARD_TYPE_INFRA_SLOTS}, platform_node_get_card_type(0x31));
    EXPECT_EQ(0u, plm_slot_to_nodeid(4, &node));
    EXPECT_EQ(0xD20001u, platform_node_get_card_type(node));
}

TEST_F(InterfaceServices, AnUnknownSlotLeavesTheNodeUntouchedAndAnUnknownNodeHasNoType)
{
    uint32_t node = 77;
    EXPECT_EQ(uint32_t{ENOENT}, plm_slot_to_nodeid(5, &node));
    EXPECT_EQ(77u, node);
    EXPECT_EQ(uint32_t{EINVAL}, plm_slot_to_nodeid(3, nullptr));
    EXPECT_EQ(0u, platform_node_get_card_type(0x32));
}

TEST_F(InterfaceServices, AQueryGivesABufferOutOfWhichThePicIsTaken)
{
    uint64_t result[2] = {};
    ASSERT_EQ(
        0u, imc_s_attr_query(bound(), 0x100, 0, 0, IMC_ATTRIBUTE_PIC, IMC_ATTRIBUTE_COUNT, result));
    ASSERT_NE(0u, result[1]);
    imc_pic pic = 0;
    uint64_t scratch = 0;
    EXPECT_EQ(0u, imc_gdp_pic_get(result, 0, &scratch, &pic));
    EXPECT_EQ(0x0A0B0C0Du, pic);
    std::free(reinterpret_cast<void *>(result[1]));
}

TEST_F(InterfaceServices, AnUnknownInterfaceLeavesNoBuffer)
{
    uint64_t result[2] = {};
    EXPECT_EQ(uint32_t{ENOENT}, imc_s_attr_query(bound(), 0x101, 0, 0, IMC_ATTRIBUTE_PIC,
                                                 IMC_ATTRIBUTE_COUNT, result));
    EXPECT_EQ(0u, result[1]);
    imc_pic pic = 5;
    uint64_t scratch = 0;
    EXPECT_EQ(uint32_t{EINVAL}, imc_gdp_pic_get(result, 0, &scratch, &pic));
    EXPECT_EQ(5u, pic);
}

TEST_F(InterfaceServices, OnlyABoundClientQueries)
{
    uint64_t result[2] = {};
    int stranger = 0;
    EXPECT_EQ(uint32_t{EINVAL}, imc_s_attr_query(&stranger, 0x100, 0, 0, IMC_ATTRIBUTE_PIC,
                                                 IMC_ATTRIBUTE_COUNT, result));
    EXPECT_EQ(uint32_t{EINVAL}, imc_s_attr_query(nullptr, 0x100, 0, 0, IMC_ATTRIBUTE_PIC,
                                                 IMC_ATTRIBUTE_COUNT, result));
}

TEST_F(InterfaceServices, AnotherBindRecordIsRefusedWithTheHandleUntouched)
{
    void *handle = nullptr;
    const uint32_t other[2] = {IMC_BIND_CLIENT + 1, 0};
    const uint32_t dirty[2] = {IMC_BIND_CLIENT, 1};
    EXPECT_EQ(uint32_t{EINVAL}, imc_db_bind(other, IMC_BIND_LENGTH, &handle));
    EXPECT_EQ(uint32_t{EINVAL}, imc_db_bind(dirty, IMC_BIND_LENGTH, &handle));
    EXPECT_EQ(uint32_t{EINVAL}, imc_db_bind(bind_record, 4, &handle));
    EXPECT_EQ(uint32_t{EINVAL}, imc_db_bind(nullptr, IMC_BIND_LENGTH, &handle));
    EXPECT_EQ(nullptr, handle);
}

TEST_F(InterfaceServices, AVrfsWordDecodesToItsTable)
{
    vrf_record record{};
    uint32_t table = 0;
    ASSERT_EQ(0u, ital_shm_lookup_vrf(9, 1, 1, &record));
    EXPECT_EQ(0u, rsi_c_tbl_id_decode2(record.table_id, nullptr, nullptr, &table));
    EXPECT_EQ(0xABCDEFu, table);
    ASSERT_EQ(0u, ital_shm_lookup_vrf(10, 1, 1, &record));
    EXPECT_EQ(0u, rsi_c_tbl_id_decode2(record.table_id, nullptr, nullptr, &table));
    EXPECT_EQ(0u, table);
}

TEST_F(InterfaceServices, AnUnknownVrfAndAWordThatIsNoTablesAreRefused)
{
    vrf_record record{};
    record.table_id = 5;
    uint32_t table = 6;
    EXPECT_EQ(uint32_t{ENOENT}, ital_shm_lookup_vrf(11, 1, 1, &record));
    EXPECT_EQ(5u, record.table_id);
    EXPECT_EQ(uint32_t{EINVAL}, rsi_c_tbl_id_decode2(5, nullptr, nullptr, &table));
    EXPECT_EQ(uint32_t{EINVAL}, rsi_c_tbl_id_decode2(0, nullptr, nullptr, &table));
    EXPECT_EQ(6u, table);
}

} // namespace
