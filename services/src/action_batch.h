// A batch of table entries for one key, as inline_svc_shadow_db_insert_action_array takes it.
#pragma once

#include <cstdint>
#include <span>

#include "inline_service_app.h"

namespace services {

struct NewEntry {
    uint32_t entry_id;
    uint32_t table;
    std::span<const uint8_t> key;
    std::span<const uint8_t> result;
};

class ActionBatch {
public:
    ActionBatch(uint32_t key, uint32_t app_id, uint32_t version); // throws ServiceError
    ~ActionBatch();
    ActionBatch(const ActionBatch &) = delete;
    ActionBatch &operator=(const ActionBatch &) = delete;

    void create(const NewEntry &entry); // throws ServiceError
    uint32_t size() const { return batch_.num_node; }

    // The library's code. 0 does not say that the entries are stored: a failed insertion clears
    // the key and gives the clear's code.
    uint32_t insert() { return inline_svc_shadow_db_insert_action_array(&batch_); }

private:
    action_array batch_{};
};

} // namespace services
