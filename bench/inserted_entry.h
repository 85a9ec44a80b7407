// Inserts of one entry under a key that holds others, on a card of eight NPs with a platform of
// stand-ins.
#pragma once

#include <cstdint>
#include <cstring>

#include "inline_service_app.h"
#include "stand_in_platform.h"

namespace bench {

class InsertedEntries {
public:
    static constexpr uint16_t num_nps = 8;

    explicit InsertedEntries(bool with_counters)
    {
        app_node &entry = element_.app_node;
        std::memcpy(entry.key, "\x0a\x01\x02\x03\x00\x50\x06", 7);
        entry.key_len = 12;
        std::memcpy(entry.result, "\x01\x00\x00\x00\x02\x03", 6);
        entry.result_len = 32;
        entry.hw_index = with_counters ? 0 : SHADOW_DB_NO_HW_INDEX;
        entry.entry_id = 7;
        entry.action = SHADOW_DB_CREATE;
        batch_.uidb_index = key;
        batch_.app_ID = 17;
        batch_.app_param = 1;
        batch_.num_node = 1;
        list_enqueue_default(&batch_.node_list, &element_, &element_);
        insert(); // the key's own record, and its list
    }

    void insert() { inline_shadow_db_insert_main(&batch_); }

    // All but the first go, with their counters, and nothing is said of it.
    void forget_others()
    {
        main_entry &main = *host_.root().main_table[key];
        list_record &list = main.table_array[SHADOW_DB_SERVICE_CONFIG];
        while (list.last != list.first) {
            void *node = list.last->data;
            list_remove_default(&list, node, node);
            inline_svc_shared_mem_free(node);
            --main.num_elements[SHADOW_DB_SERVICE_CONFIG];
        }
        for (uint32_t np = 0; np < num_nps; ++np)
            host_.root().counters[np][0] = 0xC0000000;
    }

    uint32_t stored() const { return host_.stored_under(key, SHADOW_DB_SERVICE_CONFIG); }

private:
    static constexpr uint16_t key = 5;
    StandInHost host_{num_nps};
    app_node_element element_{};
    action_array batch_{};
};

} // namespace bench
