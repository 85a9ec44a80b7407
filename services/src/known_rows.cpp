#include "known_rows.h"

namespace services {

void KnownRows::read(const HardwareView &hardware)
{
    nps_ = hardware.nps();
    for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
        auto &wanted = wanted_[table];
        for (auto &[key, results] : wanted)
            results.assign(nps_, std::nullopt);
        for (uint32_t np = 0; np < nps_ && !wanted.empty(); ++np) {
            hardware.for_each_row(np, table, [&wanted, np](ByteSpan key, ByteSpan result) {
                if (const auto place = wanted.find(text(key)); place != wanted.end())
                    place->second[np].emplace(result.begin(), result.end());
            });
        }
    }
}

const std::vector<uint8_t> *KnownRows::find(uint32_t np, uint32_t table, ByteSpan key) const
{
    const auto place = wanted_[table].find(text(key));
    if (place == wanted_[table].end() || np >= place->second.size() || !place->second[np])
        return nullptr;
    return &*place->second[np];
}

} // namespace services
