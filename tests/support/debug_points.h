// The library's log sites as the event-debug facility sees them: through the component record.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform_event_debug.h"
#include "vlc/event_debug.h"

namespace test {

// The record that the library registered; null before it did.
inline ed_component *library_component()
{
    return vlc::EventDebug::instance().component("inlc");
}

inline std::span<ed_debug_point> debug_points()
{
    const ed_component *component = library_component();
    if (component == nullptr)
        return {};
    return {component->debug_points, component->debug_point_count};
}

// The site of a message; the function tells sites of one text apart.
inline ed_debug_point &debug_point(const std::string &format, const std::string &function = "")
{
    for (ed_debug_point &point : debug_points()) {
        if (format == point.format && (function.empty() || function == point.function))
            return point;
    }
    throw std::runtime_error("no log site has the format \"" + format + "\"");
}

inline std::vector<std::string> argument_names(const ed_debug_point &point)
{
    return {point.arg_names, point.arg_names + point.arg_count};
}

inline std::string file_name(const ed_debug_point &point)
{
    const std::string path = point.file;
    return path.substr(path.rfind('/') + 1);
}

} // namespace test
