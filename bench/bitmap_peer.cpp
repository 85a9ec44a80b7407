#include "bitmap_peer.h"

#include <cstdlib>
#include <stdexcept>

#include <rte_bitmap.h>

namespace bench {

void BitmapPeer::FreeMemory::operator()(uint8_t *memory) const
{
    std::free(memory);
}

BitmapPeer::BitmapPeer(size_t bits, size_t first_set)
{
    const auto count = static_cast<uint32_t>(bits);
    const uint32_t bytes = rte_bitmap_get_memory_footprint(count);
    memory_.reset(static_cast<uint8_t *>(std::aligned_alloc(RTE_CACHE_LINE_SIZE, bytes)));
    bitmap_ = rte_bitmap_init(count, memory_.get(), bytes);
    if (bitmap_ == nullptr)
        throw std::runtime_error("DPDK's bitmap could not be made");
    for (auto place = static_cast<uint32_t>(first_set); place < count; ++place)
        rte_bitmap_set(bitmap_, place);
}

uint64_t BitmapPeer::lowest() const
{
    __rte_bitmap_scan_init(bitmap_); // a scan goes on where the last one ended
    uint32_t place = 0;
    uint64_t slab = 0;
    return rte_bitmap_scan(bitmap_, &place, &slab) == 0
               ? UINT64_MAX
               : place + static_cast<uint64_t>(__builtin_ctzll(slab));
}

} // namespace bench
