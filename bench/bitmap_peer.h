// DPDK's bitmap, which keeps a second level above its bits: one for each cache line of them. What
// is free is set in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct rte_bitmap;

namespace bench {

class BitmapPeer {
public:
    BitmapPeer(size_t bits, size_t first_set); // all bits from there on
    uint64_t lowest() const;

private:
    struct FreeMemory {
        void operator()(uint8_t *memory) const;
    };
    std::unique_ptr<uint8_t, FreeMemory> memory_;
    rte_bitmap *bitmap_;
};

} // namespace bench
