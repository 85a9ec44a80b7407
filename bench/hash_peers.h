// Hash tables that hold the same flows behind one face, so that one loop measures them all.
//
// A flow has 296 bytes here; a table whose records carry their own link has it in front, which
// makes 304 bytes, a record of the library's. Flows lie in the order in which they came and are met
// in another one, as packets would.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "inline_service_hash.h"

namespace bench {

struct Flow {
    uint64_t key;
    uint64_t next_key; // of the flow that is met after this one
    std::array<uint8_t, 280> rest;
};

struct LinkedFlow {
    LinkedFlow *next;
    Flow flow;
};
static_assert(sizeof(LinkedFlow) == 304);

// Flows as blocks of the window lie, 320 bytes apart.
class Flows {
public:
    Flows(uint64_t first_number, size_t count);

    size_t size() const { return places_.size(); }
    LinkedFlow &at(size_t number) { return places_[number].record; }
    const LinkedFlow &at(size_t number) const { return places_[number].record; }
    // Their keys in the order in which they are met; the last leads to the first.
    const std::vector<uint64_t> &met() const { return met_; }

private:
    struct alignas(64) Place {
        LinkedFlow record;
    };
    static_assert(sizeof(Place) == 320);
    std::vector<Place> places_;
    std::vector<uint64_t> met_;
};

[[noreturn]] void no_such_flow();

// The library's table, with as many buckets as its flows. One at a time: the owner's hash function
// knows the number of buckets of the last one.
class LibraryTable {
public:
    explicit LibraryTable(Flows &flows);

    in_hash_table *get() const { return table_.get(); }
    LinkedFlow *const *buckets() const
    {
        return reinterpret_cast<LinkedFlow *const *>(table_.get() + 1);
    }
    const Flow *find(uint64_t key)
    {
        key_record_.flow.key = key;
        const void *found = in_hash_lookup(table_.get(), &key_record_);
        if (found == nullptr)
            no_such_flow();
        return &static_cast<const LinkedFlow *>(found)->flow;
    }
    void insert(LinkedFlow &record) { in_hash_insert(table_.get(), &record); }
    void erase(uint64_t key)
    {
        key_record_.flow.key = key;
        in_hash_delete(table_.get(), &key_record_);
    }

private:
    struct Free {
        void operator()(in_hash_table *table) const { free(table); }
    };
    std::unique_ptr<in_hash_table, Free> table_;
    LinkedFlow key_record_{};
};

// So many flows, in the library's table. Peers that keep no flows of their own lead to these.
struct FilledTable {
    explicit FilledTable(size_t count) : flows(0, count), table(flows) {}
    Flows flows;
    LibraryTable table;
};

class LookupPeer {
public:
    virtual ~LookupPeer() = default;
    // So many lookups, each for the flow that the one before leads to. Returns the next one's key.
    virtual uint64_t follow(uint64_t key, size_t steps) = 0;
    // Lookups that do not wait for each other. Returns something that depends on all of them.
    virtual uint64_t look_up(std::span<const uint64_t> keys) = 0;
};

// Of a table with `const Flow *find(uint64_t key)`, which it inlines as far as that can be.
template <typename Table>
class LookupPeerOf final : public LookupPeer {
public:
    explicit LookupPeerOf(FilledTable &filled) : table_(filled) {}

    uint64_t follow(uint64_t key, size_t steps) override
    {
        for (size_t i = 0; i < steps; ++i)
            key = table_.find(key)->next_key;
        return key;
    }
    uint64_t look_up(std::span<const uint64_t> keys) override
    {
        uint64_t sum = 0;
        for (const uint64_t key : keys)
            sum += table_.find(key)->next_key;
        return sum;
    }

private:
    Table table_;
};

struct PeerKind {
    const char *name;
    // Null when this program was built without the peer.
    std::unique_ptr<LookupPeer> (*make)(FilledTable &filled);
};

// The first one is ours.
std::span<const PeerKind> peer_kinds();
const PeerKind &peer_kind(std::string_view name);

std::unique_ptr<LookupPeer> make_dpdk_peer(FilledTable &filled);

} // namespace bench
