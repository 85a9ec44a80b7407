#include "vlc/np_store.h"

namespace vlc {

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
