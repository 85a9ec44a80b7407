// The flow service's encoders and the callback of its table's walker.
#include <array>
#include <cstring>

#include "flow_layout.h"
#include "platform_encoders.h"
#include "platform_flow.h"
#include "test_card.h"

namespace {

using flow_layout::FlowInfo;
using Scratch = std::array<uint8_t, ENCODER_SCRATCH_BYTES>;

constexpr FlowInfo policed = {.tuple = {.source = 0x0A000001,
                                        .destination = 0xC0000202,
                                        .source_port = 0x1234,
                                        .destination_port = 443,
                                        .protocol = 6},
                              .policer = true,
                              .rate = 0x0102030405060708,
                              .burst = 0x090A0B0C,
                              .first_packet = 0x1112131415161718,
                              .last_active = -2,
                              .seen_packets = 0x2122232425262728,
                              .idle_time = 0x3132333435363738,
                              .mark = 0x4142434445464748};

FlowInfo unpoliced()
{
    FlowInfo flow = policed;
    flow.policer = false;
    return flow;
}

template <size_t Length>
void expect_bytes(const Scratch &scratch, const std::array<uint8_t, Length> &expected)
{
    Scratch whole{};
    std::ranges::copy(expected, whole.begin());
    EXPECT_EQ(scratch, whole) << "all behind it is left alone";
}

TEST(FlowEncoders, WriteTheFiveTupleAsTheKey)
{
    Scratch key{};
    uint8_t length = 0;
    dpss_flow_encoder_key(&policed, key.data(), &length);
    EXPECT_EQ(13, length);
    expect_bytes(key, std::array<uint8_t, 13>{6, 10, 0, 0, 1, 192, 0, 2, 2, 0x12, 0x34, 1, 0xBB});
}

TEST(FlowEncoders, WriteWhatAPolicerNeedsIntoTheResultAndLeaveTheCountersBytes)
{
    Scratch result{};
    dpss_flow_encoder_result(&policed, result.data());
    expect_bytes(result, std::array<uint8_t, 32>{2, 0, 0, 0, 0, 0, 0, 0,  1,  2,
                                                 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
}

TEST(FlowEncoders, WriteAResultThatCountsForAFlowWithoutAPolicer)
{
    Scratch result{};
    const FlowInfo flow = unpoliced();
    dpss_flow_encoder_result(&flow, result.data());
    expect_bytes(result, std::array<uint8_t, 32>{1});
}

TEST(FlowEncoders, TellWhetherAFlowHasAPolicer)
{
    const FlowInfo flow = unpoliced();
    EXPECT_EQ(1u, dpss_flow_is_policer_enabled(&policed));
    EXPECT_EQ(0u, dpss_flow_is_policer_enabled(&flow));
    EXPECT_EQ(0u, dpss_flow_is_policer_enabled(nullptr));
}

TEST(FlowEncoders, FillAFlowFromItsUserData)
{
    for (const FlowInfo &flow : {policed, unpoliced(), FlowInfo{}}) {
        Scratch data{};
        dpss_flow_encoder_userdata(&flow, data.data());
        EXPECT_EQ(0, data[flow_layout::UserData{}.size()]) << "all fits into its 131 bytes";
        FlowInfo back{.mark = 1};
        dpss_fill_flow_info_from_db(data.data(), &back, DPSS_FILL_FROM_USER_DATA);
        EXPECT_EQ(flow, back);
    }
}

TEST(FlowEncoders, LeaveTheOutputAloneWhenTheyCannotReadTheUserData)
{
    Scratch data{};
    dpss_flow_encoder_userdata(&policed, data.data());
    FlowInfo out = unpoliced();
    dpss_fill_flow_info_from_db(data.data(), &out, 1);
    dpss_fill_flow_info_from_db(nullptr, &out, DPSS_FILL_FROM_USER_DATA);
    dpss_fill_flow_info_from_db(data.data(), nullptr, DPSS_FILL_FROM_USER_DATA);
    data[0] = 0;
    dpss_fill_flow_info_from_db(data.data(), &out, DPSS_FILL_FROM_USER_DATA);
    EXPECT_EQ(unpoliced(), out);
}

TEST(FlowEncoders, DoNothingWithoutAFlowOrWithoutRoom)
{
    Scratch scratch{};
    uint8_t length = 9;
    dpss_flow_encoder_key(nullptr, scratch.data(), &length);
    dpss_flow_encoder_key(&policed, nullptr, &length);
    dpss_flow_encoder_key(&policed, scratch.data(), nullptr);
    dpss_flow_encoder_result(nullptr, scratch.data());
    dpss_flow_encoder_result(&policed, nullptr);
    dpss_flow_encoder_userdata(nullptr, scratch.data());
    dpss_flow_encoder_userdata(&policed, nullptr);
    EXPECT_EQ(9, length);
    EXPECT_EQ(Scratch{}, scratch);
}

TEST(FlowLayouts, AKeyIsReadBackAndAnotherLengthIsNone)
{
    const flow_layout::Key key = flow_layout::key_of(policed.tuple);
    EXPECT_EQ(policed.tuple, flow_layout::tuple_in(key));
    EXPECT_EQ(std::nullopt, flow_layout::tuple_in(flow_layout::Bytes(key).first(12)));
    EXPECT_EQ(std::nullopt, flow_layout::flow_in(flow_layout::Bytes(key)));
}

// Bytes 3 to 5 of an add hold the address; bytes 1 to 3 of a modify hold the number's upper three.
TEST(FlowLayouts, AnAddAndAModifyCarryTheSameAddress)
{
    const uint32_t number = 0x12345600;
    const uint32_t address = prm_stats_cl_get_phy_stats_ptr(number);
    EXPECT_EQ(0x123456u, address);
    flow_layout::Result added = flow_layout::result_of(policed);
    added[3] = static_cast<uint8_t>(address >> 16);
    added[4] = static_cast<uint8_t>(address >> 8);
    added[5] = static_cast<uint8_t>(address);
    flow_layout::Result modified = flow_layout::result_of(policed);
    std::memcpy(modified.data() + 1, reinterpret_cast<const uint8_t *>(&number) + 1, 3);
    EXPECT_EQ(address, flow_layout::counter_address(added));
    EXPECT_EQ(address, flow_layout::counter_address(modified));
    EXPECT_EQ(flow_layout::policer_in(added), flow_layout::policer_in(modified));
    EXPECT_EQ(0u, flow_layout::counter_address(flow_layout::result_of(policed)));
}

using FlowScans = card_test::CardTest;

TEST_F(FlowScans, GoToWhoeverAskedForThem)
{
    int records[2];
    void *slice[] = {&records[0], &records[1]};
    std::vector<void *> seen;
    dpss_flow_scan_callback(slice, 2); // nobody has asked
    card().on_flow_scan([&seen](std::span<void *const> some) {
        seen.insert(seen.end(), some.begin(), some.end());
    });
    dpss_flow_scan_callback(slice, 2);
    dpss_flow_scan_callback(slice + 1, 1);
    dpss_flow_scan_callback(nullptr, 5);
    EXPECT_EQ((std::vector<void *>{&records[0], &records[1], &records[1]}), seen);
    card().on_flow_scan({});
    dpss_flow_scan_callback(slice, 2);
    EXPECT_EQ(3u, seen.size());
}

TEST_F(FlowScans, AndEncodersAreSeenByATap)
{
    std::vector<std::string> called;
    vlc::set_service_tap([&called](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        called.emplace_back(call.service);
        return 5;
    });
    Scratch scratch{};
    uint8_t length = 0;
    void *none = nullptr;
    FlowInfo out;
    dpss_flow_encoder_key(&policed, scratch.data(), &length);
    dpss_flow_encoder_result(&policed, scratch.data());
    dpss_flow_encoder_userdata(&policed, scratch.data());
    EXPECT_EQ(5u, dpss_flow_is_policer_enabled(&policed));
    dpss_fill_flow_info_from_db(scratch.data(), &out, DPSS_FILL_FROM_USER_DATA);
    dpss_flow_scan_callback(&none, 1);
    EXPECT_EQ(5u, prm_stats_cl_get_phy_stats_ptr(1));
    EXPECT_EQ(Scratch{}, scratch);
    EXPECT_EQ((std::vector<std::string>{
                  "dpss_flow_encoder_key", "dpss_flow_encoder_result", "dpss_flow_encoder_userdata",
                  "dpss_flow_is_policer_enabled", "dpss_fill_flow_info_from_db",
                  "dpss_flow_scan_callback", "prm_stats_cl_get_phy_stats_ptr"}),
              called);
}

} // namespace
