// What PRM remembers across the life of its clients: service-request handles by name, and for each
// the answers that nobody has read.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "vlc/np_store.h"
#include "vlc/state_directory.h"

namespace vlc {

// An answer as it is stored; the client's record is made from it when it is read.
struct StoredAnswer {
    uint32_t np;
    uint32_t flags;
    uint32_t status;
    uint32_t refnum;
    uint32_t vrf_id;
    uint16_t key_len;
    uint16_t result_len;
    uint8_t key[104];
    uint8_t result[120]; // longer results are cut; result_len is what is kept
};
static_assert(sizeof(StoredAnswer) == 248);

// The table of the request that an answer is of; nothing for one of the delay queue or unknown.
// Its reference number alone does not tell a flow from an entry of the ext conf table.
std::optional<TableKind> table_of_answer(uint32_t refnum, uint32_t flags) noexcept;

class PrmStore {
public:
    static constexpr uint32_t max_handles = 16;
    static constexpr size_t name_bytes = 48;

    explicit PrmStore(const StateDirectory &directory); // throws StateError
    ~PrmStore();
    PrmStore(const PrmStore &) = delete;
    PrmStore &operator=(const PrmStore &) = delete;

    // Handles are numbers from 1; 0 means none.
    uint32_t make_handle(); // 0 when all are taken
    bool is_handle(uint32_t handle) const;
    bool set_name(uint32_t handle, std::string_view name); // false: bad handle, empty or too long;
                                                           // another handle of that name loses it
    uint32_t find_handle(std::string_view name) const;
    void forget_handles(); // as a PRM that lost everything

    // A queue per handle, first in first out, growing as needed.
    bool push_answer(uint32_t handle, const StoredAnswer &answer); // false: no room on the disk
    bool pop_answer(uint32_t handle, StoredAnswer *answer);        // false: none left
    uint64_t unread(uint32_t handle) const;
    // Every unread answer, handle by handle, the oldest first.
    void
    for_each_unread(const std::function<void(uint32_t handle, const StoredAnswer &)> &visit) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
