#include "vlc/np_store.h"

#include <string>

#include "mapped_file.h"
#include "object_at.h"
#include "steady_look.h"

namespace vlc {

namespace {

constexpr FileKind np_kind{2, 2, "a network processor's"};
constexpr uint32_t most_nps = 8;
constexpr uint64_t counter_bytes = uint64_t{CounterBank::count} * sizeof(CountCell);

enum Geometry { geometry_nps, geometry_number, geometry_service_config, geometry_ext_conf };

std::filesystem::path np_file(const StateDirectory &directory, uint32_t number)
{
    return directory.file(("np" + std::to_string(number)).c_str());
}

uint32_t capacity_of(const CardConfig &config, uint32_t kind)
{
    return static_cast<TableKind>(kind) == TableKind::service_config
               ? config.service_config_capacity
               : config.ext_conf_capacity;
}

uint64_t aligned(uint64_t bytes)
{
    return (bytes + 63) / 64 * 64;
}

void check_range(const StateDirectory &directory, const char *what, uint64_t value, uint64_t most)
{
    if (value < 1 || value > most) {
        throw StateError(directory.path().string() + ": a card with " + std::to_string(value) +
                         " " + what + " cannot be; 1 to " + std::to_string(most) + " can");
    }
}

void check_same(const MappedFile &file, const char *what, Geometry field, uint64_t wanted)
{
    const uint64_t stored = file.geometry()[field];
    if (stored != wanted) {
        file.fail("was made for " + std::to_string(stored) + " " + what + ", and " +
                  std::to_string(wanted) + " are asked for");
    }
}

} // namespace

struct Np::File {
    MappedFile mapped;
};

namespace {

// Behind the header: the tables, the counters, and the counts of the tables' rows.
uint64_t np_file_bytes(uint64_t tables, uint64_t hits)
{
    return MappedFile::header_bytes + tables + counter_bytes + hits;
}

MappedFile open_np(const StateDirectory &directory, uint32_t number, const CardConfig &config,
                   uint64_t bytes)
{
    const std::filesystem::path path = np_file(directory, number);
    if (!MappedFile::exists(path) && directory.access() == Access::read_write) {
        const MappedFile::Geometry geometry{config.num_nps, number, config.service_config_capacity,
                                            config.ext_conf_capacity};
        return MappedFile::create(path, np_kind, geometry, bytes, [](std::byte *) {});
    }
    MappedFile file = MappedFile::open(path, np_kind, directory.access());
    check_same(file, "NPs", geometry_nps, config.num_nps);
    check_same(file, "service config rows", geometry_service_config,
               config.service_config_capacity);
    check_same(file, "ext conf rows", geometry_ext_conf, config.ext_conf_capacity);
    if (file.geometry()[geometry_number] != number) {
        file.fail("is the file of NP " + std::to_string(file.geometry()[geometry_number]));
    }
    if (file.bytes() != bytes) {
        file.fail("has a damaged header");
    }
    return file;
}

} // namespace

Np::Np(const StateDirectory &directory, uint32_t number, const CardConfig &config)
{
    check_range(directory, "service config rows", config.service_config_capacity,
                NpTable::largest_capacity);
    check_range(directory, "ext conf rows", config.ext_conf_capacity, NpTable::largest_capacity);
    uint64_t table_bytes = 0;
    uint64_t hit_bytes = 0;
    for (uint32_t kind = 0; kind < table_kinds; ++kind) {
        table_bytes += aligned(NpTable::bytes_for(capacity_of(config, kind)));
        hit_bytes += aligned(NpTable::hit_bytes_for(capacity_of(config, kind)));
    }
    file_ = std::make_unique<File>(
        File{open_np(directory, number, config, np_file_bytes(table_bytes, hit_bytes))});
    const MappedFile &file = file_->mapped;
    const char *wrong = steady_look(
        directory.access(), [&] { return attach(file.data() + MappedFile::header_bytes, config); });
    if (wrong != nullptr) {
        file.fail(wrong);
    }
}

const char *Np::attach(std::byte *memory, const CardConfig &config)
{
    std::byte *counters = memory;
    for (uint32_t kind = 0; kind < table_kinds; ++kind) {
        counters += aligned(NpTable::bytes_for(capacity_of(config, kind)));
    }
    std::byte *hits = counters + counter_bytes;
    for (uint32_t kind = 0; kind < table_kinds; ++kind) {
        const uint32_t capacity = capacity_of(config, kind);
        if (const char *wrong = tables_[kind].attach(memory, hits, capacity)) {
            return wrong;
        }
        memory += aligned(NpTable::bytes_for(capacity));
        hits += aligned(NpTable::hit_bytes_for(capacity));
    }
    counters_.counters_ = object_at<CountCell>(counters, 0);
    return nullptr;
}

Np::~Np() = default;

NpStore::NpStore(const StateDirectory &directory, const CardConfig &config)
{
    check_range(directory, "NPs", config.num_nps, most_nps);
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
