// Every record that other processes read, byte for byte: filled through its fields, compared with
// bytes written at offsets that stand here in figures.
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_cmdlist.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "inline_service_hash.h"
#include "inline_service_packet.h"
#include "inline_service_prm.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"
#include "inline_service_vservice.h"
#include "platform_encoders.h"
#include "platform_event_debug.h"
#include "platform_interfaces.h"

namespace {

// A record's bytes as another program would write them, low byte first.
class Bytes {
public:
    explicit Bytes(size_t size) : bytes_(size) {}

    Bytes &u8(size_t offset, uint8_t value) { return put(offset, value, 1); }
    Bytes &u16(size_t offset, uint16_t value) { return put(offset, value, 2); }
    Bytes &u32(size_t offset, uint32_t value) { return put(offset, value, 4); }
    Bytes &u64(size_t offset, uint64_t value) { return put(offset, value, 8); }
    Bytes &fill(size_t offset, size_t count, uint8_t value)
    {
        for (size_t i = 0; i < count; ++i)
            put(offset + i, value, 1);
        return *this;
    }
    const std::vector<uint8_t> &bytes() const { return bytes_; }

private:
    Bytes &put(size_t offset, uint64_t value, size_t width)
    {
        for (size_t i = 0; i < width; ++i)
            bytes_.at(offset + i) = static_cast<uint8_t>(value >> (8 * i));
        return *this;
    }

    std::vector<uint8_t> bytes_;
};

template <typename Record>
std::vector<uint8_t> bytes_of(const Record &record)
{
    static_assert(std::is_trivially_copyable_v<Record>);
    std::vector<uint8_t> bytes(sizeof record);
    memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

template <typename Pointer>
Pointer pointer(uint64_t value)
{
    return reinterpret_cast<Pointer>(value);
}

app_node filled_app_node()
{
    app_node node = {};
    memset(node.key, 0xA1, sizeof node.key);
    node.key_len = 0x11223344;
    memset(node.result, 0xB2, sizeof node.result);
    node.result_len = 0x55667788;
    node.hw_index = 0xFFFFFFFF;
    node.entry_id = 0x01020304;
    node.table_type = 1;
    node.action = 3;
    node.shmem_node = pointer<shmem_node *>(0x7EA000001122);
    return node;
}

void put_app_node(Bytes &bytes, size_t at)
{
    bytes.fill(at + 0, 48, 0xA1)
        .u32(at + 48, 0x11223344)
        .fill(at + 52, 64, 0xB2)
        .u32(at + 116, 0x55667788)
        .u32(at + 120, 0xFFFFFFFF)
        .u32(at + 124, 0x01020304)
        .u32(at + 128, 1)
        .u32(at + 132, 3)
        .u64(at + 136, 0x7EA000001122);
}

list_link filled_link()
{
    return {pointer<list_link *>(0x101), pointer<list_link *>(0x202), pointer<void *>(0x303),
            pointer<void *>(0x404)};
}

void put_link(Bytes &bytes, size_t at)
{
    bytes.u64(at, 0x101).u64(at + 8, 0x202).u64(at + 16, 0x303).u64(at + 24, 0x404);
}

list_record filled_list(uint64_t base)
{
    list_record list = {};
    list.first = pointer<list_link *>(base + 1);
    list.last = pointer<list_link *>(base + 2);
    list.count = base + 3;
    list.reserved = base + 4;
    list.enqueue = pointer<list_enqueue_fn>(base + 5);
    list.dequeue = pointer<list_dequeue_fn>(base + 6);
    list.remove = pointer<list_remove_fn>(base + 7);
    memset(list.platform_words, 0xC3, sizeof list.platform_words);
    return list;
}

void put_list(Bytes &bytes, size_t at, uint64_t base)
{
    for (uint64_t word = 0; word < 7; ++word)
        bytes.u64(at + 8 * word, base + word + 1);
    bytes.fill(at + 56, 216, 0xC3);
}

TEST(Records, TheGlobalContextIs256BytesWithItsHandlesInPlace)
{
    inline_svc_global_cntx context = {};
    context.host_word = 0x1111;
    context.inline_evm = pointer<void *>(0x2222);
    for (uint64_t i = 0; i < 6; ++i)
        context.host_words[i] = 0x3330 + i;
    context.shadow_db = pointer<shadow_db *>(0x4444);
    context.host_word_72 = 0x5555;
    context.shmwin_id = 0x66667777;
    context.prm_conn = pointer<void *>(0x8888);
    context.uidb_conn = pointer<void *>(0x9999);
    context.np_reset_pending = 0xAAAABBBB;
    context.num_nps = 0xCCDD;
    for (uint64_t i = 0; i < 6; ++i) {
        context.app_handler[i] = pointer<inline_svc_app_fn>(0x1000 + i);
        context.app_stats_handler[i] = pointer<inline_svc_app_stats_fn>(0x2000 + i);
        context.app_data[i] = pointer<void *>(0x3000 + i);
    }

    Bytes expected(256);
    expected.u64(0, 0x1111).u64(8, 0x2222).u64(64, 0x4444).u64(72, 0x5555).u32(80, 0x66667777);
    expected.u64(88, 0x8888).u64(96, 0x9999).u32(104, 0xAAAABBBB).u16(108, 0xCCDD);
    for (uint64_t i = 0; i < 6; ++i)
        expected.u64(16 + 8 * i, 0x3330 + i)
            .u64(112 + 8 * i, 0x1000 + i)
            .u64(160 + 8 * i, 0x2000 + i)
            .u64(208 + 8 * i, 0x3000 + i);
    EXPECT_EQ(bytes_of(context), expected.bytes());
}

TEST(Records, TheRootIs216BytesWithItsFlagsTablesAndColumnsInPlace)
{
    shadow_db root = {};
    root.initialized = 0x10203040;
    root.prm_state = 0x5060;
    root.conn_state = 0x7080;
    root.stats_state = 0x90A0B0C0;
    for (uint64_t np = 0; np < 8; ++np)
        root.counters[np] = pointer<uint32_t *>(0x4000 + np);
    root.prm_srh_hdl = pointer<void *>(0x5000);
    root.uidb_attr_table = pointer<uidb_attribute *>(0x6000);
    for (uint32_t slot = 0; slot < 6; ++slot) {
        root.infra_ip[slot] = 0x0A000000 + slot;
        root.infra_value[slot] = 0x0B000000 + slot;
        root.infra_slot_key[slot] = static_cast<uint16_t>(0x0C00 + slot);
    }
    root.main_table = pointer<main_entry **>(0x7000);
    root.flow_db = pointer<in_hash_table *>(0x8000);
    root.vservice_db = pointer<void *>(0x9000);

    Bytes expected(216);
    expected.u32(16, 0x10203040).u16(20, 0x5060).u16(22, 0x7080).u32(24, 0x90A0B0C0);
    for (uint64_t np = 0; np < 8; ++np)
        expected.u64(32 + 8 * np, 0x4000 + np);
    expected.u64(96, 0x5000).u64(104, 0x6000);
    for (uint32_t slot = 0; slot < 6; ++slot)
        expected.u32(128 + 4 * slot, 0x0A000000 + slot)
            .u32(152 + 4 * slot, 0x0B000000 + slot)
            .u16(176 + 2 * slot, static_cast<uint16_t>(0x0C00 + slot));
    expected.u64(192, 0x7000).u64(200, 0x8000).u64(208, 0x9000);
    EXPECT_EQ(bytes_of(root), expected.bytes());
}

TEST(Records, AMainEntryIs576BytesWithTwoListRecordsOf272)
{
    main_entry entry = {};
    entry.uidb_index = 0x0102;
    entry.entry_version = 0x03040506;
    entry.entry_tag = 0x0708;
    entry.stat_round = 0x090A;
    entry.timestamp = 0x0B0C0D0E;
    entry.app_ID = 0x0F101112;
    entry.num_elements[0] = 0x13141516;
    entry.num_elements[1] = 0x1718191A;
    entry.table_array[0] = filled_list(0x1000);
    entry.table_array[1] = filled_list(0x2000);

    Bytes expected(576);
    expected.u16(0, 0x0102).u32(4, 0x03040506).u16(8, 0x0708).u16(10, 0x090A).u32(12, 0x0B0C0D0E);
    expected.u32(16, 0x0F101112).u32(20, 0x13141516).u32(24, 0x1718191A);
    put_list(expected, 32, 0x1000);
    put_list(expected, 304, 0x2000);
    EXPECT_EQ(bytes_of(entry), expected.bytes());
}

TEST(Records, AnAppNodeIs144Bytes)
{
    Bytes expected(144);
    put_app_node(expected, 0);
    EXPECT_EQ(bytes_of(filled_app_node()), expected.bytes());
}

TEST(Records, ARequestIs176BytesALinkAndAnAppNode)
{
    const app_node_element request = {filled_link(), filled_app_node()};
    Bytes expected(176);
    put_link(expected, 0);
    put_app_node(expected, 32);
    EXPECT_EQ(bytes_of(request), expected.bytes());
}

TEST(Records, ANodeIs248BytesARequestAndItsCounters)
{
    shmem_node node = {};
    node.link = filled_link();
    node.app_node = filled_app_node();
    for (uint32_t np = 0; np < 8; ++np) {
        node.stat_index_rx[np] = 0xC00000 + np;
        node.stat_index_drop[np] = 0xD00000 + np;
    }
    node.reserved_240 = 0x1234567890ABCDEF;

    Bytes expected(248);
    put_link(expected, 0);
    put_app_node(expected, 32);
    for (uint32_t np = 0; np < 8; ++np)
        expected.u32(176 + 4 * np, 0xC00000 + np).u32(208 + 4 * np, 0xD00000 + np);
    expected.u64(240, 0x1234567890ABCDEF);
    EXPECT_EQ(bytes_of(node), expected.bytes());
}

TEST(Records, AListLinkIs32Bytes)
{
    Bytes expected(32);
    put_link(expected, 0);
    EXPECT_EQ(bytes_of(filled_link()), expected.bytes());
}

TEST(Records, AListRecordIs272BytesWithItsThreeOperationSlotsAt32)
{
    Bytes expected(272);
    put_list(expected, 0, 0x7000);
    EXPECT_EQ(bytes_of(filled_list(0x7000)), expected.bytes());
}

TEST(Records, AnActionArrayIs296BytesWithItsListAt24)
{
    action_array batch = {};
    batch.uidb_index = 0x0102;
    batch.app_ID = 0x03040506;
    batch.app_param = 0x0708090A;
    batch.entry_tag = 0x0B0C;
    batch.num_node = 0x0D0E0F10;
    batch.action = 0x11121314;
    batch.node_list = filled_list(0x3000);

    Bytes expected(296);
    expected.u16(0, 0x0102).u32(4, 0x03040506).u32(8, 0x0708090A).u16(12, 0x0B0C);
    expected.u32(16, 0x0D0E0F10).u32(20, 0x11121314);
    put_list(expected, 24, 0x3000);
    EXPECT_EQ(bytes_of(batch), expected.bytes());
}

TEST(Records, ARegistrationIs32Bytes)
{
    app_registration registration = {};
    registration.app_type = 5;
    registration.handler = pointer<inline_svc_app_fn>(0x11);
    registration.stats_handler = pointer<inline_svc_app_stats_fn>(0x22);
    registration.data = pointer<void *>(0x33);
    Bytes expected(32);
    expected.u32(0, 5).u64(8, 0x11).u64(16, 0x22).u64(24, 0x33);
    EXPECT_EQ(bytes_of(registration), expected.bytes());
}

TEST(Records, TheAppHandlersResultIsOnePointer)
{
    const app_handler_result result = {pointer<action_array *>(0x123456789A)};
    Bytes expected(8);
    expected.u64(0, 0x123456789A);
    EXPECT_EQ(bytes_of(result), expected.bytes());
}

TEST(Records, APrmConfigurationRecordIs636Bytes)
{
    prm_config_record record = {};
    record.np = 0x01020304;
    record.kind = 0x05060708;
    record.refnum = 0x090A0B0C;
    record.key_len = 0x0D0E0F10;
    record.reserved = 0x11121314;
    memset(record.key, 0xAA, sizeof record.key);
    record.result_len = 0x15161718;
    memset(record.result, 0xBB, sizeof record.result);

    Bytes expected(636);
    expected.u32(0, 0x01020304).u32(4, 0x05060708).u32(8, 0x090A0B0C).u32(12, 0x0D0E0F10);
    expected.u32(16, 0x11121314).fill(20, 100, 0xAA).u32(120, 0x15161718).fill(124, 512, 0xBB);
    EXPECT_EQ(bytes_of(record), expected.bytes());
}

TEST(Records, AnAsynchronousAnswerIs1384Bytes)
{
    prm_async_response answer = {};
    answer.np = 0x01020304;
    answer.flags = 0x05060708;
    answer.status = 0x090A0B0C;
    answer.refnum = 0x0D0E0F10;
    answer.vrf_id = 0x11121314;
    answer.key_size = 0x15161718;
    memset(answer.unused, 0x99, sizeof answer.unused);
    memset(answer.key, 0xAA, sizeof answer.key);
    answer.result_size = 0x191A1B1C;
    memset(answer.result, 0xBB, sizeof answer.result);

    Bytes expected(1384);
    expected.u32(0, 0x01020304).u32(4, 0x05060708).u32(8, 0x090A0B0C).u32(12, 0x0D0E0F10);
    expected.u32(16, 0x11121314).u32(20, 0x15161718).fill(24, 8, 0x99).fill(32, 104, 0xAA);
    expected.u32(136, 0x191A1B1C).fill(140, 1244, 0xBB);
    EXPECT_EQ(bytes_of(answer), expected.bytes());
}

TEST(Records, APrmNotificationIs8Bytes)
{
    const prm_notification notification = {0x01020304, 0x05060708};
    Bytes expected(8);
    expected.u32(0, 0x01020304).u32(4, 0x05060708);
    EXPECT_EQ(bytes_of(notification), expected.bytes());
}

TEST(Records, ADebugPointIs56Bytes)
{
    ed_debug_point point = {};
    point.flags = 0x0430;
    point.level = 1;
    point.trace_buffer = 2;
    point.line_filter = 0x03000123;
    point.arg_count = 4;
    point.number = 239;
    point.arg_names = pointer<const char *const *>(0x51);
    point.format = pointer<const char *>(0x52);
    point.file = pointer<const char *>(0x53);
    point.function = pointer<const char *>(0x54);
    point.reserved = 0x55;

    Bytes expected(56);
    expected.u16(0, 0x0430).u8(2, 1).u8(3, 2).u32(4, 0x03000123).u32(8, 4).u32(12, 239);
    expected.u64(16, 0x51).u64(24, 0x52).u64(32, 0x53).u64(40, 0x54).u64(48, 0x55);
    EXPECT_EQ(bytes_of(point), expected.bytes());
}

TEST(Records, AComponentRecordIs120Bytes)
{
    ed_component component = {};
    component.name = pointer<const char *>(0x61);
    memset(component.short_name, 'n', sizeof component.short_name);
    component.buffers[0] = {pointer<const char *>(0x62), 1000, 0};
    component.buffers[1] = {pointer<const char *>(0x63), 2000, 0};
    component.buffer_handles[0] = pointer<void *>(0x64);
    component.buffer_handles[1] = pointer<void *>(0x65);
    component.trace_word = 0x66676869;
    component.dummy = pointer<void *>(0x6A);
    component.perf_dummy = pointer<void *>(0x6B);
    component.debug_points = pointer<ed_debug_point *>(0x6C);
    component.debug_point_count = 240;
    component.reserved = 0x6D;

    Bytes expected(120);
    expected.u64(0, 0x61).fill(8, 16, 'n').u64(24, 0x62).u32(32, 1000).u64(40, 0x63).u32(48, 2000);
    expected.u64(56, 0x64).u64(64, 0x65).u32(72, 0x66676869).u64(80, 0x6A).u64(88, 0x6B);
    expected.u64(96, 0x6C).u64(104, 240).u64(112, 0x6D);
    EXPECT_EQ(bytes_of(component), expected.bytes());
}

TEST(Records, AStatisticsSumIs8Bytes)
{
    const stats_sum sum = {0x01020304, 0x05060708};
    Bytes expected(8);
    expected.u32(0, 0x01020304).u32(4, 0x05060708);
    EXPECT_EQ(bytes_of(sum), expected.bytes());
}

TEST(Records, AnInterfacesAttributesAre16Bytes)
{
    const uidb_attribute attribute = {0x01020304, 0x05, 0x06, 0x0708, 0x090A0B0C, 0x0D0E, 0x0F10};
    Bytes expected(16);
    expected.u32(0, 0x01020304).u8(4, 0x05).u8(5, 0x06).u16(6, 0x0708).u32(8, 0x090A0B0C);
    expected.u16(12, 0x0D0E).u16(14, 0x0F10);
    EXPECT_EQ(bytes_of(attribute), expected.bytes());
}

TEST(Records, ACommandsInputIs84Bytes)
{
    command_input input = {};
    input.unread_0 = 0x01020304;
    input.table_type = 0x05060708;
    memset(input.key, 0xAA, sizeof input.key);
    input.key_len = 0x09;
    memset(input.result, 0xBB, sizeof input.result);
    input.result_len = 0x0A;
    memset(input.unread_78, 0xCC, sizeof input.unread_78);

    Bytes expected(84);
    expected.u32(0, 0x01020304).u32(4, 0x05060708).fill(8, 32, 0xAA).u8(40, 0x09);
    expected.fill(41, 36, 0xBB).u8(77, 0x0A).fill(78, 6, 0xCC);
    EXPECT_EQ(bytes_of(input), expected.bytes());
}

TEST(Records, AHashTablesHeaderIs56Bytes)
{
    in_hash_table table = {};
    table.num_buckets = 0x01020304;
    table.hash = pointer<in_hash_fn>(0x11);
    table.match = pointer<in_hash_match_fn>(0x22);
    table.scan_callback = pointer<in_hash_scan_fn>(0x33);
    table.scan_period = 0x05060708;
    table.scan_batch = 0x090A0B0C;
    table.scan_interval = 0x0D0E0F10;
    table.scan_cursor = 0x11121314;
    table.count = 0x15161718;

    Bytes expected(56);
    expected.u32(0, 0x01020304).u64(8, 0x11).u64(16, 0x22).u64(24, 0x33).u32(32, 0x05060708);
    expected.u32(36, 0x090A0B0C).u32(40, 0x0D0E0F10).u32(44, 0x11121314).u32(48, 0x15161718);
    EXPECT_EQ(bytes_of(table), expected.bytes());
}

TEST(Records, AFlowIs304Bytes)
{
    flow_record record = {};
    record.next = pointer<flow_record *>(0x7EA000001122);
    record.flow_key = 0x0102030405060708;
    record.reserved_16 = 0x090A0B0C;
    record.state = 0x0D0E0F10;
    memset(record.key, 0xAA, sizeof record.key);
    record.key_len = 0x11;
    memset(record.result, 0xBB, sizeof record.result);
    record.result_len = 0x12;
    memset(record.reserved_94, 0xCC, sizeof record.reserved_94);
    record.flags = 0x13141516;
    record.np = 0x17;
    memset(record.user_data, 0xDD, sizeof record.user_data);
    for (uint32_t np = 0; np < 8; ++np) {
        record.counter[np] = 0xC00000 + np;
        record.drop_counter[np] = 0xD00000 + np;
    }
    record.reserved_300 = 0x18191A1B;

    Bytes expected(304);
    expected.u64(0, 0x7EA000001122).u64(8, 0x0102030405060708).u32(16, 0x090A0B0C);
    expected.u32(20, 0x0D0E0F10).fill(24, 32, 0xAA).u8(56, 0x11).fill(57, 36, 0xBB).u8(93, 0x12);
    expected.fill(94, 6, 0xCC).u32(100, 0x13141516).u8(104, 0x17).fill(105, 131, 0xDD);
    for (uint32_t np = 0; np < 8; ++np)
        expected.u32(236 + 4 * np, 0xC00000 + np).u32(268 + 4 * np, 0xD00000 + np);
    expected.u32(300, 0x18191A1B);
    EXPECT_EQ(bytes_of(record), expected.bytes());
}

TEST(Records, AVserviceMessagesHeadIs16Bytes)
{
    const vservice_message head = {0x01020304, 0x05060708, -2, 0x0D0E0F10};
    Bytes expected(16);
    expected.u32(0, 0x01020304).u32(4, 0x05060708).u32(8, 0xFFFFFFFE).u32(12, 0x0D0E0F10);
    EXPECT_EQ(bytes_of(head), expected.bytes());
}

TEST(Records, AVservicesConfigurationIs1104Bytes)
{
    vservice_config config;
    memset(&config, 0xEE, sizeof config);
    config.vs_index = 0x01020304;
    config.encap = 0x05060708;
    config.user = 0x090A0B0C;
    config.src_ip = 0x0D0E0F10;
    config.dst_ip = 0x11121314;
    config.sport = 0x1516;
    config.dport = 0x1718;

    Bytes expected(1104);
    expected.fill(0, 1104, 0xEE).u32(0, 0x01020304).u32(48, 0x05060708).u32(52, 0x090A0B0C);
    expected.u32(68, 0x0D0E0F10).u32(88, 0x11121314).u16(104, 0x1516).u16(106, 0x1718);
    EXPECT_EQ(bytes_of(config), expected.bytes());
}

TEST(Records, AnEncodersInputIs56Bytes)
{
    sdn_encap_input input = {};
    input.flag_0 = 0xA0;
    input.flag_1 = 0xA1;
    input.flag_2 = 0xA2;
    input.flag_3 = 0xA3;
    input.protocol = 0xA4;
    input.src_ip = 0x01020304;
    input.dst_ip = 0x05060708;
    input.sport = 0x090A;
    input.dport = 0x0B0C;
    input.user_2_flags = 0xB0;
    input.is_user_4 = 0xB1;
    input.known_user_30 = 0xB2;
    input.known_user_36 = 0xB3;
    input.known_user_37 = 0xB4;

    Bytes expected(56);
    for (uint8_t place = 0; place < 5; ++place)
        expected.u8(place, static_cast<uint8_t>(0xA0 + place));
    expected.u32(8, 0x01020304).u32(12, 0x05060708).u16(16, 0x090A).u16(18, 0x0B0C);
    expected.u8(24, 0xB0).u8(25, 0xB1).u8(30, 0xB2).u8(36, 0xB3).u8(37, 0xB4);
    EXPECT_EQ(bytes_of(input), expected.bytes());
}

TEST(Records, AVrfsRecordIs128BytesWithItsTableFirst)
{
    vrf_record record;
    memset(&record, 0xEE, sizeof record);
    record.table_id = 0x01020304;
    Bytes expected(128);
    expected.fill(0, 128, 0xEE).u32(0, 0x01020304);
    EXPECT_EQ(bytes_of(record), expected.bytes());
}

TEST(Records, AClientsParametersAre784BytesThatNobodyReads)
{
    spp_client_params params;
    memset(&params, 0x5A, sizeof params);
    Bytes expected(784);
    expected.fill(0, 784, 0x5A);
    EXPECT_EQ(bytes_of(params), expected.bytes());
    EXPECT_EQ(alignof(spp_client_params), 1u);
}

TEST(Records, AGatherPieceIs16Bytes)
{
    const gather_piece piece = {pointer<const void *>(0x7EA000000123), 0x1122334455667788};
    Bytes expected(16);
    expected.u64(0, 0x7EA000000123).u64(8, 0x1122334455667788);
    EXPECT_EQ(bytes_of(piece), expected.bytes());
}

TEST(Records, TheErrorLogsRecordIs72Bytes)
{
    const zem_message_record record = {1,
                                       pointer<const char *>(2),
                                       3,
                                       pointer<const char *>(4),
                                       pointer<const char *>(5),
                                       pointer<const char *>(6),
                                       {7, 8, 9}};
    Bytes expected(72);
    for (uint64_t word = 0; word < 9; ++word)
        expected.u64(8 * word, word + 1);
    EXPECT_EQ(bytes_of(record), expected.bytes());
}

TEST(Records, ExportedObjectsHaveTheWidthsThatOtherProgramsExpect)
{
    EXPECT_EQ(sizeof pgbl_ptr, 8u);
    EXPECT_EQ(sizeof pshadow_db, 8u);
    EXPECT_EQ(sizeof NUM_LC_NPS, 2u);
    EXPECT_EQ(sizeof engine_conn_error, 1u);
    EXPECT_EQ(sizeof spp_ui_in_progress, 4u);
    EXPECT_EQ(sizeof spp_ui_retval, 8u);
    EXPECT_EQ(sizeof imp_cmd_codes, 4u);
    EXPECT_EQ(sizeof the_punt_decode_hash, 8u);
    EXPECT_EQ(sizeof u32x4_compare_word_mask_table, 256u);
    EXPECT_EQ(sizeof inutil_handler, 24u);
    EXPECT_EQ(sizeof zem_msg_rec_plat_error_log, 72u);
    EXPECT_EQ(sizeof ed_dummy_libinline_service_infra, 32u);
    EXPECT_EQ(sizeof ed_perf_dummy_libinline_service_infra, 32u);
}

} // namespace
