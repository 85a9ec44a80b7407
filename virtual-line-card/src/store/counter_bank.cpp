#include "vlc/np_store.h"

namespace vlc {

int64_t CounterBank::place(uint32_t number) noexcept
{
    if (number >> 24 != 0) {
        return -1;
    }
    const uint32_t exchanged = (number & 0xFF) << 16 | (number & 0xFF00) | number >> 16;
    for (const uint32_t reading : {number, exchanged}) {
        if (reading >= first && reading - first < count) {
            return reading - first;
        }
    }
    return -1;
}

std::vector<PacketCount> CounterBank::read_all() const
{
    std::vector<PacketCount> counts;
    counts.reserve(count);
    for (uint32_t place = 0; place < count; ++place) {
        counts.push_back(read(place));
    }
    return counts;
}

PacketCount CounterBank::read_and_clear(uint32_t place) noexcept
{
    const PacketCount counted = read(place);
    counters_[place].clear();
    return counted;
}

void CounterBank::clear()
{
    for (uint32_t place = 0; place < count; ++place) {
        counters_[place].clear();
    }
}

} // namespace vlc
