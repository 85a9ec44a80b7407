#include "vlc/site_table.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <string_view>

#include "mapped_file.h"
#include "object_at.h"

namespace vlc {

namespace {

constexpr FileKind sites_kind{6, 1, "a table of debug points"};
constexpr uint64_t most_sites = uint64_t{1} << ED_EVENT_NUMBER_BITS;

enum Geometry { geometry_sites, geometry_text_bytes, geometry_check };

// A text of the file, by its place among the texts.
struct TextPlace {
    uint32_t at;
    uint32_t bytes;
};

// First what never changes, then what follows the debug point.
struct SiteRecord {
    uint32_t is_site; // 0: no debug point has this number
    uint32_t line;
    uint32_t arg_count;
    uint8_t level;
    uint8_t trace_buffer;
    uint16_t reserved;
    TextPlace file;
    TextPlace function;
    TextPlace format;
    TextPlace arg_names; // each behind its length and a blank

    uint16_t flags;
    uint16_t reserved2;
    uint32_t line_filter;
    uint64_t hits;
};
static_assert(sizeof(SiteRecord) == 64);
constexpr size_t lasting_bytes = offsetof(SiteRecord, flags);

// What the file says of its component, before the sites.
struct ComponentRecord {
    TextPlace name;
    TextPlace short_name;
};
constexpr uint64_t sites_begin = MappedFile::header_bytes + sizeof(ComponentRecord);

uint64_t mixed(uint64_t sum, const void *data, size_t bytes)
{
    const auto *place = static_cast<const unsigned char *>(data);
    for (size_t i = 0; i < bytes; ++i) {
        sum = (sum ^ place[i]) * 0x100000001B3;
    }
    return sum;
}

uint64_t check_of(const ComponentRecord &component, std::span<const SiteRecord> sites,
                  std::string_view texts)
{
    uint64_t sum = mixed(0xCBF29CE484222325, &component, sizeof component);
    for (const SiteRecord &site : sites) {
        sum = mixed(sum, &site, lasting_bytes);
    }
    return mixed(sum, texts.data(), texts.size());
}

// What a table is made from, before it is a file.
struct Contents {
    ComponentRecord component{};
    std::vector<SiteRecord> sites;
    std::string texts;

    TextPlace keep(std::string_view text)
    {
        const TextPlace place{static_cast<uint32_t>(texts.size()),
                              static_cast<uint32_t>(text.size())};
        texts += text;
        return place;
    }
    TextPlace keep(const char *text) { return keep(std::string_view(text ? text : "")); }
};

std::string names_of(const ed_debug_point &point)
{
    std::string names;
    for (uint32_t i = 0; point.arg_names && i < point.arg_count; ++i) {
        const std::string name = point.arg_names[i] ? point.arg_names[i] : "";
        names += std::to_string(name.size()) + ' ' + name;
    }
    return names;
}

SiteRecord record_of(const ed_debug_point &point, Contents &contents)
{
    SiteRecord record{};
    record.is_site = 1;
    record.line = point.line_filter & ED_LINE_ID_MASK;
    record.arg_count = point.arg_count;
    record.level = point.level;
    record.trace_buffer = point.trace_buffer;
    record.file = contents.keep(point.file);
    record.function = contents.keep(point.function);
    record.format = contents.keep(point.format);
    record.arg_names = contents.keep(names_of(point));
    record.flags = point.flags;
    record.line_filter = point.line_filter;
    return record;
}

Contents contents_of(const ed_component &component,
                     std::span<const ed_debug_point *const> point_of_number)
{
    Contents contents;
    contents.component.name = contents.keep(component.name);
    contents.component.short_name = contents.keep(std::string_view(
        component.short_name, strnlen(component.short_name, sizeof component.short_name)));
    for (const ed_debug_point *point : point_of_number) {
        contents.sites.push_back(point ? record_of(*point, contents) : SiteRecord{});
    }
    return contents;
}

// Reads a file that may hold anything: whatever it says is held against its bytes first.
class TableReader {
public:
    explicit TableReader(const MappedFile &file) : file_(file)
    {
        const uint64_t count = file.geometry()[geometry_sites];
        const uint64_t text_bytes = file.geometry()[geometry_text_bytes];
        const uint64_t sites_bytes = count * sizeof(SiteRecord);
        if (count > most_sites || text_bytes > std::numeric_limits<uint32_t>::max() ||
            file.bytes() < sites_begin + sites_bytes + text_bytes) {
            file.fail("has a damaged header");
        }
        std::memcpy(&component_, file.data() + MappedFile::header_bytes, sizeof component_);
        const SiteRecord *sites = object_at<SiteRecord>(file.data(), sites_begin);
        sites_.assign(sites, sites + count);
        texts_.assign(object_at<char>(file.data(), sites_begin + sites_bytes), text_bytes);
        if (check_of(component_, sites_, texts_) != file.geometry()[geometry_check]) {
            file.fail("is damaged");
        }
    }

    StoredSites read() const
    {
        StoredSites read{std::string(text(component_.name)),
                         std::string(text(component_.short_name)),
                         file_.geometry()[geometry_check],
                         {}};
        for (uint32_t number = 0; number < sites_.size(); ++number) {
            if (sites_[number].is_site != 0) {
                read.sites.push_back(site(number));
            }
        }
        return read;
    }

private:
    std::string_view text(TextPlace place) const
    {
        if (place.at > texts_.size() || place.bytes > texts_.size() - place.at) {
            file_.fail("is damaged");
        }
        return std::string_view(texts_).substr(place.at, place.bytes);
    }

    std::vector<std::string> names(TextPlace place) const
    {
        std::vector<std::string> names;
        std::string_view left = text(place);
        while (!left.empty()) {
            size_t length = 0;
            size_t digits = 0;
            while (digits < left.size() && digits < 6 && left[digits] >= '0' &&
                   left[digits] <= '9') {
                length = length * 10 + static_cast<size_t>(left[digits++] - '0');
            }
            if (digits == 0 || left.size() - digits <= length) {
                file_.fail("is damaged");
            }
            names.emplace_back(left.substr(digits + 1, length));
            left.remove_prefix(digits + 1 + length);
        }
        return names;
    }

    StoredSite site(uint32_t number) const
    {
        const SiteRecord &record = sites_[number];
        StoredSite site{.number = number,
                        .line = record.line,
                        .level = record.level,
                        .trace_buffer = record.trace_buffer,
                        .flags = record.flags,
                        .line_filter = record.line_filter,
                        .hits = record.hits,
                        .file = std::string(text(record.file)),
                        .function = std::string(text(record.function)),
                        .format = std::string(text(record.format)),
                        .arg_names = names(record.arg_names)};
        if (!site.arg_names.empty() && site.arg_names.size() != record.arg_count) {
            file_.fail("is damaged");
        }
        return site;
    }

    const MappedFile &file_;
    ComponentRecord component_{};
    std::vector<SiteRecord> sites_;
    std::string texts_;
};

template <typename Word>
void follow_word(Word &place, Word value) noexcept
{
    std::atomic_ref<Word>(place).store(value, std::memory_order_relaxed);
}

MappedFile made(const std::filesystem::path &path, const Contents &contents, uint64_t check)
{
    const uint64_t sites_bytes = contents.sites.size() * sizeof(SiteRecord);
    return MappedFile::create(
        path, sites_kind, {contents.sites.size(), contents.texts.size(), check},
        sites_begin + sites_bytes + contents.texts.size(), [&](std::byte *data) {
            std::memcpy(data + MappedFile::header_bytes, &contents.component,
                        sizeof contents.component);
            std::copy(contents.sites.begin(), contents.sites.end(),
                      object_at<SiteRecord>(data, sites_begin));
            std::ranges::transform(contents.texts, data + sites_begin + sites_bytes,
                                   [](char letter) { return static_cast<std::byte>(letter); });
        });
}

// A file that says the same of the same sites stays, for whoever looks at it or has it mapped; what
// follows the sites begins anew.
MappedFile opened_or_made(const std::filesystem::path &path, const Contents &contents)
{
    const uint64_t check = check_of(contents.component, contents.sites, contents.texts);
    try {
        MappedFile file = MappedFile::open(path, sites_kind, Access::read_write);
        if (TableReader(file).read().check == check) {
            SiteRecord *records = object_at<SiteRecord>(file.data(), sites_begin);
            for (size_t number = 0; number < contents.sites.size(); ++number) {
                follow_word(records[number].flags, contents.sites[number].flags);
                follow_word(records[number].line_filter, contents.sites[number].line_filter);
                follow_word(records[number].hits, uint64_t{0});
            }
            return file;
        }
    } catch (const StateError &) {
        // One that is missing or damaged is made.
    }
    return made(path, contents, check);
}

} // namespace

StoredSite site_of(const ed_debug_point &point)
{
    const auto text = [](const char *from) { return std::string(from ? from : ""); };
    StoredSite site{.number = point.number,
                    .line = point.line_filter & ED_LINE_ID_MASK,
                    .level = point.level,
                    .trace_buffer = point.trace_buffer,
                    .flags = point.flags,
                    .line_filter = point.line_filter,
                    .hits = 0,
                    .file = text(point.file),
                    .function = text(point.function),
                    .format = text(point.format),
                    .arg_names = {}};
    for (uint32_t i = 0; point.arg_names && i < point.arg_count; ++i)
        site.arg_names.push_back(text(point.arg_names[i]));
    return site;
}

const StoredSite *StoredSites::site(uint32_t number) const
{
    const auto found = std::ranges::lower_bound(sites, number, {}, &StoredSite::number);
    return found != sites.end() && found->number == number ? &*found : nullptr;
}

StoredSites read_sites(const std::filesystem::path &path)
{
    const MappedFile file = MappedFile::open(path, sites_kind, Access::read_only);
    return TableReader(file).read();
}

struct SiteTable::Table {
    MappedFile file;
    uint64_t count;

    explicit Table(MappedFile made) : file(std::move(made)), count(file.geometry()[geometry_sites])
    {
    }
    // Null for a number that is no site's.
    SiteRecord *record(const ed_debug_point &point) const
    {
        SiteRecord *records = object_at<SiteRecord>(file.data(), sites_begin);
        return point.number < count ? records + point.number : nullptr;
    }
};

SiteTable::SiteTable(const std::filesystem::path &path, const ed_component &component,
                     std::span<const ed_debug_point *const> point_of_number)
    : table_(std::make_unique<Table>(opened_or_made(path, contents_of(component, point_of_number))))
{
}

SiteTable::~SiteTable() = default;

uint64_t SiteTable::check() const
{
    return table_->file.geometry()[geometry_check];
}

void SiteTable::hit(const ed_debug_point &point) noexcept
{
    if (SiteRecord *record = table_->record(point)) {
        follow_word(record->hits, record->hits + 1);
        follow(point);
    }
}

void SiteTable::follow(const ed_debug_point &point) noexcept
{
    if (SiteRecord *record = table_->record(point)) {
        follow_word(record->flags, point.flags);
        follow_word(record->line_filter, point.line_filter);
    }
}

} // namespace vlc
