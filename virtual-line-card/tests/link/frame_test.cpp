// Frames and what they carry, in whatever pieces and states they arrive.
#include "frame.h"

#include <cstring>

#include <gtest/gtest.h>

#include "messages.h"

namespace {

using namespace vlc;

Payload payload_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

Payload two_frames()
{
    Payload bytes;
    append_frame(bytes, FrameKind::unread, 7, payload_of("first"));
    append_frame(bytes, FrameKind::reply, 0xFFFFFFFF, {});
    return bytes;
}

void expect_both(FrameAssembler &assembler, std::vector<Frame> frames)
{
    while (std::optional<Frame> frame = assembler.next())
        frames.push_back(*frame);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].kind, FrameKind::unread);
    EXPECT_EQ(frames[0].sequence, 7u);
    EXPECT_EQ(frames[0].payload, payload_of("first"));
    EXPECT_EQ(frames[1].kind, FrameKind::reply);
    EXPECT_EQ(frames[1].sequence, 0xFFFFFFFFu);
    EXPECT_TRUE(frames[1].payload.empty());
}

TEST(Frames, AreWordsOfFourBytesTheLowestFirst)
{
    Payload bytes;
    append_frame(bytes, FrameKind::prm_event, 0x01020304, payload_of("ab"));
    EXPECT_EQ(bytes, (Payload{2, 0, 0, 0, 0, 2, 0, 0, 4, 3, 2, 1, 'a', 'b'}));
}

TEST(Frames, AreTheSameWhereverTheStreamIsCut)
{
    const Payload bytes = two_frames();
    for (size_t cut = 0; cut <= bytes.size(); cut++) {
        SCOPED_TRACE(cut);
        FrameAssembler assembler;
        std::vector<Frame> frames;
        assembler.feed(std::span(bytes).first(cut));
        while (std::optional<Frame> frame = assembler.next())
            frames.push_back(*frame);
        assembler.feed(std::span(bytes).subspan(cut));
        expect_both(assembler, frames);
    }
}

TEST(Frames, AreTheSameByteByByte)
{
    FrameAssembler assembler;
    std::vector<Frame> frames;
    for (const uint8_t byte : two_frames()) {
        assembler.feed({&byte, 1});
        while (std::optional<Frame> frame = assembler.next())
            frames.push_back(*frame);
    }
    expect_both(assembler, frames);
}

TEST(Frames, OneThatIsTooLongEndsTheStreamAtItsHeader)
{
    FrameAssembler assembler;
    assembler.feed(WireWriter().number(longest_payload + 1).number(1u).number(1u).take());
    EXPECT_FALSE(assembler.next());
    EXPECT_TRUE(assembler.is_broken());
    assembler.feed(two_frames());
    EXPECT_FALSE(assembler.next());
}

TEST(Frames, TheLongestIsTaken)
{
    Payload bytes;
    append_frame(bytes, FrameKind::packets, 1, Payload(longest_payload, 9));
    FrameAssembler assembler;
    assembler.feed(bytes);
    const std::optional<Frame> frame = assembler.next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->payload.size(), longest_payload);
}

// ---- messages

template <typename Thing>
Payload sent(const Thing &thing)
{
    WireWriter writer;
    put(writer, thing);
    return writer.take();
}

// Reads what was put, and refuses it wherever it is cut.
template <typename Thing>
Thing read_back(const Thing &thing)
{
    const Payload bytes = sent(thing);
    for (size_t cut = 0; cut < bytes.size(); cut++) {
        WireReader reader({bytes.data(), cut});
        Thing ignored{};
        get(reader, ignored);
        EXPECT_FALSE(reader.fits()) << "cut at " << cut << " of " << bytes.size();
    }
    WireReader reader(bytes);
    Thing read{};
    get(reader, read);
    EXPECT_TRUE(reader.is_whole());
    return read;
}

TEST(Messages, ACardsConfigurationArrivesAsItWas)
{
    CardConfig card;
    card.name = "lab";
    card.card_type = 0xD10001;
    card.slot = 3;
    card.num_nps = 8;
    card.service_config_capacity = 11;
    card.ext_conf_capacity = 12;
    card.flow_capacity = 13;
    card.dynamic_counters = 14;
    card.window_bytes = uint64_t{5} << 32;
    const CardConfig read = read_back(card);
    EXPECT_EQ(read.name, "lab");
    EXPECT_EQ(read.card_type, 0xD10001u);
    EXPECT_EQ(read.slot, 3u);
    EXPECT_EQ(read.num_nps, 8u);
    EXPECT_EQ(read.service_config_capacity, 11u);
    EXPECT_EQ(read.ext_conf_capacity, 12u);
    EXPECT_EQ(read.flow_capacity, 13u);
    EXPECT_EQ(read.dynamic_counters, 14u);
    EXPECT_EQ(read.window_bytes, uint64_t{5} << 32);
}

TEST(Messages, ARequestArrivesWithEveryByteOfItsRecord)
{
    prm_config_record record;
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
    for (size_t i = 0; i < sizeof record; i++)
        bytes[i] = static_cast<uint8_t>(i * 7);
    const prm_config_record read = read_back(record);
    EXPECT_EQ(std::memcmp(&read, &record, sizeof record), 0);
}

TEST(Messages, AnAnswerArrivesWithEveryByteThatAnAnswerCanHave)
{
    prm_async_response answer{};
    answer.np = 1;
    answer.flags = 2;
    answer.status = 0x257C5406;
    answer.refnum = 0x101;
    answer.vrf_id = 5;
    answer.key_size = 104;
    answer.result_size = 120;
    std::memset(answer.key, 0x5A, sizeof answer.key);
    std::memset(answer.result, 0xA5, 120);
    const prm_async_response read = read_back(answer);
    EXPECT_EQ(std::memcmp(&read, &answer, sizeof answer), 0);
}

TEST(Messages, ARowArrivesWithItsKeyAndItsResultAlone)
{
    TableRow row{};
    row.hash = 77;
    row.key_len = 3;
    row.result_len = 5;
    std::memcpy(row.key, "key", 3);
    std::memcpy(row.result, "value", 5);
    EXPECT_EQ(sent(row).size(), 4u + 2 + 2 + 3 + 5);
    const TableRow read = read_back(row);
    EXPECT_EQ(std::memcmp(&read, &row, sizeof row), 0);
}

TEST(Messages, ARowThatIsWiderThanARowCanBeIsRefused)
{
    const Payload bytes = WireWriter()
                              .number(uint32_t{1})
                              .number(uint16_t{TableRow::key_bytes + 1})
                              .number(uint16_t{0})
                              .bytes(Payload(TableRow::key_bytes + 1, 1))
                              .take();
    WireReader reader(bytes);
    TableRow row;
    get(reader, row);
    EXPECT_FALSE(reader.fits());
}

TEST(Messages, AnUnreadAnswerArrivesAsItWas)
{
    StoredAnswer answer{};
    answer.np = 1;
    answer.status = 2;
    answer.refnum = 3;
    answer.key_len = 104;
    answer.result_len = 120;
    std::memset(answer.key, 1, sizeof answer.key);
    std::memset(answer.result, 2, sizeof answer.result);
    const StoredAnswer read = read_back(answer);
    EXPECT_EQ(std::memcmp(&read, &answer, sizeof answer), 0);
}

TEST(Messages, TotalsArriveWithThoseOfEveryNp)
{
    DataPlaneTotals totals;
    totals.packets = 1;
    totals.missed_bytes = uint64_t{1} << 40;
    totals.unreadable[2] = 3;
    totals.nps.resize(2);
    totals.nps[1].hits[1] = 9;
    totals.nps[1].uncounted_hits = 10;
    totals.nps[1].hits[2] = 11;
    totals.nps[1].policed_packets = 12;
    totals.nps[1].policed_bytes = 13;
    totals.nps[1].missed_packets = 14;
    const DataPlaneTotals read = read_back(totals);
    EXPECT_EQ(read.packets, 1u);
    EXPECT_EQ(read.missed_bytes, uint64_t{1} << 40);
    EXPECT_EQ(read.unreadable[2], 3u);
    ASSERT_EQ(read.nps.size(), 2u);
    EXPECT_TRUE(read.nps[1] == totals.nps[1]);
    EXPECT_EQ(read.nps[1].policed_bytes, 13u);
}

TEST(Messages, TotalsOfMoreNpsThanACardHasAreRefused)
{
    Payload bytes = sent(DataPlaneTotals{});
    bytes[0] = 200;
    bytes.resize(bytes.size() + size_t{200} * 5 * 8);
    WireReader reader(bytes);
    DataPlaneTotals totals;
    get(reader, totals);
    EXPECT_FALSE(reader.is_whole());
    EXPECT_LE(totals.nps.size(), 8u);
}

TEST(Messages, APacketArrivesAsItWas)
{
    const uint8_t bytes[] = {1, 2, 3};
    const CapturedPacket read = read_back(CapturedPacket{LinkType::linux_sll, bytes, 1500, -5});
    EXPECT_EQ(read.link, LinkType::linux_sll);
    EXPECT_EQ(read.wire_length, 1500u);
    EXPECT_EQ(read.nanoseconds, -5);
}

TEST(Messages, AMissArrivesAsItWas)
{
    const FlowMiss miss{{0x0A000001, 0x0A000002, 0x1234, 0x5678, 17}, 7, 1500, -5};
    const FlowMiss read = read_back(miss);
    EXPECT_EQ(read.tuple, miss.tuple);
    EXPECT_EQ(read.np, 7u);
    EXPECT_EQ(read.wire_length, 1500u);
    EXPECT_EQ(read.nanoseconds, -5);
}

TEST(Messages, AFlowsActivityAndARunOfCountersArriveAsTheyWere)
{
    const FlowActivity activity{{3, uint64_t{1} << 40}, -9};
    EXPECT_EQ(read_back(activity), activity);
    const CounterRun read = read_back(CounterRun{0x1000100, 2, {{1, 2}, {3, 4}}});
    EXPECT_EQ(read.first, 0x1000100u);
    EXPECT_EQ(read.length, 2u);
    EXPECT_EQ(read.counts[0], (PacketCount{1, 2}));
    EXPECT_EQ(read.counts[1], (PacketCount{3, 4}));
}

TEST(Messages, ARunOfCountersThatIsLongerThanOneCanBeIsRefused)
{
    for (const uint32_t length : {0u, 3u, UINT32_MAX}) {
        const Payload bytes = sent(CounterRun{0x1000100, length, {}});
        WireReader reader(bytes);
        CounterRun run;
        get(reader, run);
        EXPECT_FALSE(reader.fits()) << length;
    }
}

TEST(Messages, WhatAHostWishesToHearOfPacketsArrivesAsItWas)
{
    const PacketWishes read = read_back(PacketWishes{.output = false, .flow_misses = true});
    EXPECT_FALSE(read.output);
    EXPECT_TRUE(read.flow_misses);
    EXPECT_TRUE(read_back(PacketWishes{.output = true, .flow_misses = false}).output);
}

TEST(Messages, AGreetingOfAnotherVersionIsToldWithBoth)
{
    const Payload greeting =
        WireWriter().bytes(payload_of(std::string(link_magic))).number(link_version + 1).take();
    WireReader reader(greeting);
    EXPECT_EQ(wrong_with_greeting(reader), "speaks version 5, and this program speaks version 4");
}

TEST(Messages, AGreetingThatIsNoneIsTold)
{
    for (const std::string text : {"", "vlc-lin", "GET / HTTP/1.1\r\n"}) {
        const Payload bytes = payload_of(text);
        WireReader reader(bytes);
        EXPECT_EQ(wrong_with_greeting(reader), "speaks no protocol of a virtual line card");
    }
}

} // namespace
