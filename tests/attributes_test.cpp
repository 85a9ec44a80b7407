// Attributes of interfaces: what each setter writes, what each getter reads, and what both do out
// of range and without a table.
#include <functional>
#include <limits>

#include "attribute_fixture.h"

using namespace test;

namespace {

using Lines = std::vector<std::string>;
using Record = std::vector<uint8_t>;

class Attributes : public AttributeTest {
protected:
    // What the six getters give, in the order of the record's fields.
    static std::vector<uint32_t> got(uint16_t index)
    {
        return {inline_api_uidb_to_apptype(index),  inline_api_get_dirty_bit(index),
                inline_api_get_slot(index),         inline_api_get_iftype(index),
                inline_api_uidb_to_appid(0, index), inline_api_uidb_to_vqi(index)};
    }
};

const std::vector<uint32_t> out_of_range = {0, 0, 22, 0, 0, 0xFFFFFFFF};

// One setter, called for an interface with values that are not zero.
struct Setter {
    std::string name;
    std::function<void(uint16_t)> call;
    std::string (*refusal)(uint16_t);
};

std::string index_alone(uint16_t index)
{
    return "Invalid uidb_index " + std::to_string(index);
}

const Setter setters[] = {
    {"app", [](uint16_t index) { inline_api_set_uidb_to_app(3, index, 5); },
     [](uint16_t index) { return index_alone(index) + " or app_type 3"; }},
    {"vqi", [](uint16_t index) { inline_api_set_uidb_to_vqi(index, 5); }, index_alone},
    {"dirty", inline_api_set_dirty_bit,
     [](uint16_t index) { return "inline_api_set_dirty_bit: " + index_alone(index); }},
    {"clean", inline_api_reset_dirty_bit,
     [](uint16_t index) { return "inline_api_reset_dirty_bit: " + index_alone(index); }},
    {"slot", [](uint16_t index) { inline_api_set_slot_iftype(index, 5, 6); },
     [](uint16_t index) { return "inline_api_set_slot_iftype: " + index_alone(index); }},
};

// ---- setters -----------------------------------------------------------------------------------

TEST_F(Attributes, AnInterfaceThatWasNeverSetIsAllZero)
{
    for (uint16_t index = 0; index < 4096; ++index)
        EXPECT_EQ(got(index), std::vector<uint32_t>(6, 0)) << index;
}

TEST_F(Attributes, BindingAnInterfaceWritesItsTypeAndIdAndNothingElse)
{
    memset(&root->uidb_attr_table[10], 0xEE, 16);
    inline_api_set_uidb_to_app(3, 10, 0x1234);
    EXPECT_EQ(record(10), (Record{3, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0x34,
                                  0x12, 0xEE, 0xEE}));
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(Attributes, AVqiGoesIntoTheLastTwoBytes)
{
    memset(&root->uidb_attr_table[10], 0xEE, 16);
    inline_api_set_uidb_to_vqi(10, 0x1234);
    Record expected(16, 0xEE);
    expected[14] = 0x34;
    expected[15] = 0x12;
    EXPECT_EQ(record(10), expected);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, TheDirtyBitIsTheByteAt4)
{
    memset(&root->uidb_attr_table[10], 0xEE, 16);
    Record expected(16, 0xEE);
    inline_api_set_dirty_bit(10);
    expected[4] = 1;
    EXPECT_EQ(record(10), expected);
    inline_api_reset_dirty_bit(10);
    expected[4] = 0;
    EXPECT_EQ(record(10), expected);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, ASlotAndItsInterfaceTypeLieAt6And8)
{
    memset(&root->uidb_attr_table[10], 0xEE, 16);
    inline_api_set_slot_iftype(10, 0x1234, 0x56789ABC);
    EXPECT_EQ(record(10), (Record{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0x34, 0x12, 0xBC, 0x9A, 0x78,
                                  0x56, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, AllTypesUpTo5AreBound)
{
    for (uint32_t type = 0; type <= 5; ++type) {
        inline_api_set_uidb_to_app(type, 10, 7);
        EXPECT_EQ(inline_api_uidb_to_apptype(10), type);
        EXPECT_EQ(inline_api_uidb_to_appid(99, 10), 7u);
    }
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, BindingIdZeroUnbindsWhateverTheTypeSays)
{
    inline_api_set_uidb_to_app(3, 10, 7);
    inline_api_set_uidb_to_app(5, 10, 0);
    EXPECT_EQ(inline_api_uidb_to_apptype(10), 0u);
    EXPECT_EQ(inline_api_uidb_to_appid(0, 10), 0u);
    EXPECT_EQ(record(10), Record(16, 0));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, ATypeAbove5ChangesNothingAndIsLoggedWithTheIndexFirst)
{
    inline_api_set_uidb_to_app(3, 10, 7);
    const std::string before = table();
    inline_api_set_uidb_to_app(6, 10, 5);
    inline_api_set_uidb_to_app(6, 10, 0); // nor does it unbind
    inline_api_set_uidb_to_app(std::numeric_limits<uint32_t>::max(), 10, 5);
    EXPECT_EQ(table(), before);
    EXPECT_EQ(log(),
              (Lines{"Invalid uidb_index 10 or app_type 6", "Invalid uidb_index 10 or app_type 6",
                     "Invalid uidb_index 10 or app_type -1"}));
}

TEST_F(Attributes, EverySetterRefusesAnIndexAbove4095WithItsLine)
{
    const std::string before = table();
    for (const Setter &setter : setters) {
        for (const uint16_t index : {uint16_t{4096}, uint16_t{0xFFFF}}) {
            forget_log();
            setter.call(index);
            EXPECT_EQ(log(), Lines{setter.refusal(index)}) << setter.name;
        }
    }
    EXPECT_EQ(table(), before);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(Attributes, TheFirstAndTheLastInterfaceHaveRecordsOfTheirOwn)
{
    for (const uint16_t index : {uint16_t{0}, uint16_t{4095}}) {
        inline_api_set_uidb_to_app(2, index, 3);
        inline_api_set_dirty_bit(index);
        inline_api_set_slot_iftype(index, 4, 5);
        inline_api_set_uidb_to_vqi(index, 6);
        EXPECT_EQ(got(index), (std::vector<uint32_t>{2, 1, 4, 5, 3, 6})) << index;
        std::string expected(table_bytes, '\0');
        const uint8_t bytes[] = {2, 0, 0, 0, 1, 0, 4, 0, 5, 0, 0, 0, 3, 0, 6, 0};
        memcpy(expected.data() + 16 * index, bytes, sizeof bytes);
        EXPECT_TRUE(table() == expected) << "index " << index << " reached another record";
        memset(root->uidb_attr_table, 0, table_bytes);
    }
    EXPECT_EQ(log(), Lines{});
}

// ---- getters -----------------------------------------------------------------------------------

TEST_F(Attributes, GettersReadTheRecordAtItsOffsets)
{
    const Record bytes = {1, 2, 3, 4, 5, 0xEE, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    memcpy(&root->uidb_attr_table[4095], bytes.data(), bytes.size());
    EXPECT_EQ(got(4095),
              (std::vector<uint32_t>{0x04030201, 5, 0x0807, 0x0C0B0A09, 0x0E0D, 0x100F}));
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(Attributes, TheLargestVqiThatIsStoredIsNotTheUnknownOne)
{
    inline_api_set_uidb_to_vqi(10, 0xFFFF);
    EXPECT_EQ(inline_api_uidb_to_vqi(10), 0xFFFFu);
}

TEST_F(Attributes, GettersOutOfRangeSayNothingAndGiveZeroAllOnesForTheVqiAnd22ForTheSlot)
{
    memset(root->uidb_attr_table, 0x55, table_bytes);
    for (const uint16_t index : {uint16_t{4096}, uint16_t{0xFFFF}})
        EXPECT_EQ(got(index), out_of_range) << index;
    EXPECT_EQ(log(), Lines{});
}

// ---- without a table, and without a root -------------------------------------------------------

TEST_F(Attributes, WithoutATableGettersGiveTheirOutOfRangeValues)
{
    root->uidb_attr_table = nullptr;
    EXPECT_EQ(got(0), out_of_range);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Attributes, WithoutATableSettersLogTheirLineAndReturn)
{
    root->uidb_attr_table = nullptr;
    for (const Setter &setter : setters) {
        forget_log();
        setter.call(10);
        EXPECT_EQ(log(), Lines{setter.refusal(10)}) << setter.name;
    }
}

TEST_F(Attributes, WithoutARootGettersAndSettersBehaveAsWithoutATable)
{
    pshadow_db = nullptr;
    EXPECT_EQ(got(0), out_of_range);
    for (const Setter &setter : setters) {
        forget_log();
        setter.call(10);
        EXPECT_EQ(log(), Lines{setter.refusal(10)}) << setter.name;
    }
}

TEST_F(Attributes, TheTableIsThatOfTheRootNotOfTheContext)
{
    shadow_db other = {};
    context.shadow_db = &other;
    inline_api_set_uidb_to_vqi(10, 7);
    EXPECT_EQ(inline_api_uidb_to_vqi(10), 7u);
}

} // namespace
