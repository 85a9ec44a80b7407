// What the network processors hold, as an audit reads it: the rows of their tables and the answers
// that no host has read. A platform brings one; nothing of it changes the hardware.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace services {

using ByteSpan = std::span<const uint8_t>;

// The number of the flow table beside those of the shadow DB's.
inline constexpr uint32_t flow_table = 2;

class HardwareView {
public:
    virtual ~HardwareView() = default;

    virtual uint32_t nps() const = 0;

    // `table` is SHADOW_DB_SERVICE_CONFIG, SHADOW_DB_EXT_CONF or flow_table. The bytes are good for
    // the call.
    using VisitRow = std::function<void(ByteSpan key, ByteSpan result)>;
    virtual void for_each_row(uint32_t np, uint32_t table, const VisitRow &visit) const = 0;

    // `table` is that of the request, which a reference number does not tell of a flow.
    using VisitAnswer = std::function<void(uint32_t np, uint32_t table, uint32_t refnum,
                                           uint32_t status, ByteSpan key)>;
    virtual void for_each_unread_answer(const VisitAnswer &visit) const = 0;

    // Runs of dynamic counters that are in use, and where the NPs find a counter.
    using VisitRun = std::function<void(uint32_t first, uint32_t count)>;
    virtual void for_each_counter_run(uint32_t np, const VisitRun &visit) const = 0;
    virtual uint32_t address_of_counter(uint32_t counter) const = 0;
};

} // namespace services
