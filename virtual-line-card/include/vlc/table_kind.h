// The tables of a network processor.
#pragma once

#include <cstdint>

namespace vlc {

enum class TableKind : uint8_t { service_config = 0, ext_conf = 1, flow = 2 };
inline constexpr uint32_t table_kinds = 3;

} // namespace vlc
