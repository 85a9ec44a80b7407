#include "vlc/np_store.h"

#include <string>

#include "mapped_file.h"
#include "object_at.h"
#include "steady_look.h"

namespace vlc {

namespace {

constexpr FileKind np_kind{2, 4, "a network processor's"};
constexpr uint32_t most_nps = 8;
constexpr uint64_t counter_bytes = uint64_t{CounterBank::count} * sizeof(CountCell);

// The words of a file's geometry; the last two hold two numbers each.
enum Geometry { geometry_nps, geometry_number, geometry_tables, geometry_flows };

uint64_t both(uint32_t low, uint32_t high)
{
    return uint64_t{high} << 32 | low;
}

std::filesystem::path np_file(const StateDirectory &directory, uint32_t number)
{
    return directory.file(("np" + std::to_string(number)).c_str());
}

uint32_t capacity_of(const CardConfig &config, TableKind kind)
{
    switch (kind) {
    case TableKind::service_config:
        return config.service_config_capacity;
    case TableKind::ext_conf:
        return config.ext_conf_capacity;
    case TableKind::flow:
        break;
    }
    return config.flow_capacity;
}

uint64_t aligned(uint64_t bytes)
{
    return (bytes + 63) / 64 * 64;
}

void check_range(const StateDirectory &directory, const char *what, uint64_t value, uint64_t least,
                 uint64_t most)
{
    if (value < least || value > most) {
        throw StateError(directory.path().string() + ": a card with " + std::to_string(value) +
                         " " + what + " cannot be; " + std::to_string(least) + " to " +
                         std::to_string(most) + " can");
    }
}

void check_same(const MappedFile &file, const char *what, uint64_t stored, uint64_t wanted)
{
    if (stored != wanted) {
        file.fail("was made for " + std::to_string(stored) + " " + what + ", and " +
                  std::to_string(wanted) + " are asked for");
    }
}

void check_geometry(const MappedFile &file, const CardConfig &config)
{
    const MappedFile::Geometry &stored = file.geometry();
    const auto low = [](uint64_t word) { return word & UINT32_MAX; };
    const auto high = [](uint64_t word) { return word >> 32; };
    check_same(file, "NPs", stored[geometry_nps], config.num_nps);
    check_same(file, "service config rows", low(stored[geometry_tables]),
               config.service_config_capacity);
    check_same(file, "ext conf rows", high(stored[geometry_tables]), config.ext_conf_capacity);
    check_same(file, "flow rows", low(stored[geometry_flows]), config.flow_capacity);
    check_same(file, "dynamic counters", high(stored[geometry_flows]), config.dynamic_counters);
}

} // namespace

struct Np::File {
    MappedFile mapped;
};

namespace {

MappedFile open_np(const StateDirectory &directory, uint32_t number, const CardConfig &config,
                   uint64_t bytes)
{
    const std::filesystem::path path = np_file(directory, number);
    if (!MappedFile::exists(path) && directory.access() == Access::read_write) {
        const MappedFile::Geometry geometry{
            config.num_nps, number, both(config.service_config_capacity, config.ext_conf_capacity),
            both(config.flow_capacity, config.dynamic_counters)};
        return MappedFile::create(path, np_kind, geometry, bytes, [](std::byte *) {});
    }
    MappedFile file = MappedFile::open(path, np_kind, directory.access());
    check_geometry(file, config);
    if (file.geometry()[geometry_number] != number) {
        file.fail("is the file of NP " + std::to_string(file.geometry()[geometry_number]));
    }
    if (file.bytes() != bytes) {
        file.fail("has a damaged header");
    }
    return file;
}

} // namespace

// Where everything lies in the file.
struct Np::Layout {
    uint64_t tables[table_kinds] = {};
    uint64_t hits[table_kinds] = {};
    uint64_t counters = 0;
    uint64_t totals = 0;
    uint64_t flow_cells = 0;
    uint64_t dynamic_cells = 0;
    uint64_t dynamic_marks = 0;
    uint64_t end = MappedFile::header_bytes;

    explicit Layout(const CardConfig &config)
    {
        const auto put_table = [&](TableKind kind) {
            tables[static_cast<size_t>(kind)] = put(NpTable::bytes_for(capacity_of(config, kind)));
        };
        const auto put_hits = [&](TableKind kind) {
            hits[static_cast<size_t>(kind)] =
                put(NpTable::hit_bytes_for(capacity_of(config, kind)));
        };
        put_table(TableKind::service_config);
        put_table(TableKind::ext_conf);
        counters = put(counter_bytes);
        put_hits(TableKind::service_config);
        put_hits(TableKind::ext_conf);
        put_table(TableKind::flow);
        put_hits(TableKind::flow);
        totals = put(sizeof(KeptNpTotals));
        flow_cells = put(NpTable::flow_bytes_for(config.flow_capacity));
        dynamic_cells = put(DynamicCounters::cell_bytes_for(config.dynamic_counters));
        dynamic_marks = put(DynamicCounters::mark_bytes_for(config.dynamic_counters));
    }

private:
    uint64_t put(uint64_t bytes)
    {
        const uint64_t place = end;
        end += aligned(bytes);
        return place;
    }
};

Np::Np(const StateDirectory &directory, uint32_t number, const CardConfig &config)
{
    check_range(directory, "service config rows", config.service_config_capacity, 1,
                NpTable::largest_capacity);
    check_range(directory, "ext conf rows", config.ext_conf_capacity, 1, NpTable::largest_capacity);
    check_range(directory, "flow rows", config.flow_capacity, 1, NpTable::largest_capacity);
    check_range(directory, "dynamic counters", config.dynamic_counters, 0, DynamicCounters::most);
    const Layout layout(config);
    file_ = std::make_unique<File>(File{open_np(directory, number, config, layout.end)});
    const MappedFile &file = file_->mapped;
    const char *wrong =
        steady_look(directory.access(), [&] { return attach(file.data(), layout, config); });
    if (wrong != nullptr) {
        file.fail(wrong);
    }
}

const char *Np::attach(std::byte *file, const Layout &layout, const CardConfig &config)
{
    for (uint32_t kind = 0; kind < table_kinds; ++kind) {
        const bool is_flow = static_cast<TableKind>(kind) == TableKind::flow;
        const NpTable::Memory memory{file + layout.tables[kind], file + layout.hits[kind],
                                     is_flow ? file + layout.flow_cells : nullptr};
        const uint32_t capacity = capacity_of(config, static_cast<TableKind>(kind));
        if (const char *wrong = tables_[kind].attach(memory, capacity)) {
            return wrong;
        }
    }
    counters_.counters_ = object_at<CountCell>(file, layout.counters);
    totals_ = object_at<KeptNpTotals>(file, layout.totals);
    return dynamic_counters_.attach(file + layout.dynamic_cells, file + layout.dynamic_marks,
                                    config.dynamic_counters);
}

Np::~Np() = default;

NpStore::NpStore(const StateDirectory &directory, const CardConfig &config)
{
    check_range(directory, "NPs", config.num_nps, 1, most_nps);
    // The first NP's file is made last: without it, what is there was left by a process that was
    // killed before it had made them all, and nothing was ever kept in them.
    const bool complete = directory.is_complete() || MappedFile::exists(np_file(directory, 0));
    nps_.resize(config.num_nps);
    for (uint32_t i = 0; i < config.num_nps; ++i) {
        const uint32_t np = complete ? i : config.num_nps - 1 - i;
        const std::filesystem::path path = np_file(directory, np);
        if (directory.access() == Access::read_write && MappedFile::exists(path) != complete) {
            if (complete) {
                throw StateError(path.string() + ": is missing");
            }
            std::filesystem::remove(path);
        }
        nps_[np] = std::make_unique<Np>(directory, np, config);
    }
}

} // namespace vlc
