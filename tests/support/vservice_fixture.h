// What the tests of virtual services share: a running card with the services' table, and messages
// that end where nothing can be read any more.
#pragma once

#include "inline_service_cmdlist.h"
#include "inline_service_vservice.h"
#include "shadow_fixture.h"
#include "unreadable_end.h"
#include "vservice_message.h"

namespace test {

class VserviceTest : public ShadowDbTest {
protected:
    static constexpr uint32_t no_hw_index = 0xFFFFFFFF;
    static constexpr size_t table_bytes = 256 * vservice_record_bytes;

    VserviceTest()
    {
        root->vservice_db = vservice_table_init();
        plm_vservice_init(0, 0, 0, 0);
        forget_history();
    }

    // Hands a message over, with nothing recorded but what that does.
    void handle(const VserviceMessage &message)
    {
        services.forget();
        forget_log();
        plm_vservice_msg_handler(room_.place(message.bytes()));
    }
    void add(const Vservice &service) { handle(add_message().record(service)); }

    static uint16_t key_of(uint32_t index) { return static_cast<uint16_t>(0x300 + index); }
    shmem_node *node_of(uint32_t index) const { return stored_node(key_of(index), 0); }

    std::vector<uint8_t> table() const
    {
        const auto *bytes = static_cast<const uint8_t *>(root->vservice_db);
        return {bytes, bytes + table_bytes};
    }
    std::vector<uint8_t> stored_record(uint32_t index) const
    {
        const auto *bytes =
            static_cast<const uint8_t *>(root->vservice_db) + index * vservice_record_bytes;
        return {bytes, bytes + vservice_record_bytes};
    }

private:
    UnreadableEnd room_{VserviceMessage::head_bytes + 300 * vservice_record_bytes};
};

} // namespace test
