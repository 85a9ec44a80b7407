// What the tests of interface attributes share: a host without PRM, whose root has the attribute
// table, on a card that knows a few slots, interfaces and VRFs.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "card_fixture.h"
#include "inline_service_attributes.h"
#include "platform_card.h"

namespace test {

class AttributeTest : public CardTest {
protected:
    static constexpr uint16_t slot_with_infra = 3;
    static constexpr uint16_t other_slot = 4;
    static constexpr uint16_t unknown_slot = 5;
    static constexpr uint32_t known_interface = 0x100;
    static constexpr uint32_t known_vrf = 9;
    static constexpr size_t table_bytes = 65536;

    AttributeTest()
    {
        vlc::CardConfig with_rows = config;
        with_rows.slots = {
            {.number = slot_with_infra, .node = 0x31, .card_type = CARD_TYPE_INFRA_SLOTS},
            {.number = other_slot, .node = 0x41, .card_type = 0xD20001},
            {.number = 22, .node = 0x51, .card_type = CARD_TYPE_INFRA_SLOTS}};
        with_rows.interfaces = {{.handle = known_interface, .uidb = 7, .pic = 0x0A0B0C0D}};
        with_rows.vrfs = {{.id = known_vrf, .table = 0xABCDEF}};
        restart_card(with_rows);
        attach_context();
        set_context();
        root->uidb_attr_table =
            static_cast<uidb_attribute *>(inline_svc_shared_mem_alloc(table_bytes));
        services.forget();
        forget_log();
    }

    // The table's bytes, or one record's.
    std::string table() const
    {
        return {reinterpret_cast<const char *>(root->uidb_attr_table), table_bytes};
    }
    std::vector<uint8_t> record(uint16_t index) const
    {
        const auto *bytes = reinterpret_cast<const uint8_t *>(root->uidb_attr_table) + 16 * index;
        return {bytes, bytes + 16};
    }
};

} // namespace test
