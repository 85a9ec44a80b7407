// A state as metrics: OpenMetrics text, as monitoring reads it.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>

#include "snapshot.h"
#include "vlc/host_record.h"

namespace inlinectl {

// `entries`: of so many, the busiest, the counts are told one by one.
void write_metrics(std::ostream &out, const Snapshot &state,
                   const std::optional<vlc::HostState> &host, size_t entries);

} // namespace inlinectl
