#include "event_registration.h"

#include "vlc/trace_file.h"

namespace vlc {

// A point may get its number as late as with its first message, so a number that is not known yet
// is looked for once more.
const ed_debug_point *Registration::point(uint64_t number)
{
    if (number >= component->debug_point_count)
        return nullptr;
    if (number >= point_of_number.size() || !point_of_number[number] ||
        point_of_number[number]->number != number)
        number_points();
    return point_of_number[number];
}

void Registration::number_points()
{
    const std::vector<const ed_debug_point *> before = point_of_number;
    point_of_number.assign(component->debug_point_count, nullptr);
    for (uint64_t i = 0; i < component->debug_point_count; i++) {
        const ed_debug_point &point = component->debug_points[i];
        if (point.number < point_of_number.size())
            point_of_number[point.number] = &point;
    }
    if (point_of_number != before)
        kept_for = 0; // the table of sites is made anew
}

uint64_t Registration::keep_in(const std::filesystem::path &directory)
{
    number_points();
    uint64_t order = 0;
    std::unique_ptr<TraceFile> files[ED_TRACE_BUFFERS];
    for (size_t i = 0; i < ED_TRACE_BUFFERS; i++) {
        files[i] = std::make_unique<TraceFile>(
            directory / trace_file_name(short_name, trace_buffer_names[i]), rings[i]->size());
        order = std::max(order, files[i]->last_order());
    }
    sites = std::make_unique<SiteTable>(directory / sites_file_name(short_name), *component,
                                        point_of_number);
    for (size_t i = 0; i < ED_TRACE_BUFFERS; i++)
        rings[i]->write_to(std::move(files[i]));
    return order;
}

void Registration::keep_in_memory()
{
    sites.reset();
    for (const auto &ring : rings) {
        if (ring)
            ring->write_to(nullptr);
    }
}

} // namespace vlc
