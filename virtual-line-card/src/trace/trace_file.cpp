#include "vlc/trace_file.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "mapped_file.h"
#include "object_at.h"
#include "publish.h"
#include "steady_look.h"

namespace vlc {

namespace {

constexpr FileKind trace_kind{7, 1, "a trace buffer's"};
constexpr uint64_t most_entries = 1 << 20;

enum Geometry { geometry_entries, geometry_entry_bytes };

uint64_t file_bytes(uint64_t entries)
{
    return MappedFile::header_bytes + entries * sizeof(TraceRecord);
}

// How many bytes behind the check are used, a multiple of eight.
size_t used_bytes(const TraceRecord &record)
{
    constexpr size_t without_texts =
        offsetof(TraceRecord, texts) - offsetof(TraceRecord, nanoseconds);
    return without_texts + (size_t{record.text_bytes} + 7) / 8 * 8;
}

bool is_in_bounds(const TraceRecord &record)
{
    return record.arg_count <= TraceRecord::max_args &&
           record.text_bytes <= TraceRecord::max_text_bytes;
}

uint64_t check_of(uint64_t mark, const TraceRecord &record)
{
    uint64_t sum = mark * 0x9E3779B97F4A7C15;
    const auto *words = reinterpret_cast<const unsigned char *>(&record.nanoseconds);
    for (size_t at = 0; at < used_bytes(record); at += sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, words + at, sizeof word);
        sum = (sum ^ word) * 0xFF51AFD7ED558CCD;
        sum ^= sum >> 32;
    }
    return sum;
}

void require_trace(const MappedFile &file)
{
    const uint64_t entries = file.geometry()[geometry_entries];
    if (entries == 0 || entries > most_entries ||
        file.geometry()[geometry_entry_bytes] != sizeof(TraceRecord) ||
        file.bytes() < file_bytes(entries)) {
        file.fail("has a damaged header");
    }
}

TraceRecord *records_of(const MappedFile &file)
{
    return object_at<TraceRecord>(file.data(), MappedFile::header_bytes);
}

// A look at one place of a ring that may be written meanwhile.
struct Look {
    TraceRecord record{};
    enum { empty, whole, unfinished, damaged } state = empty;
};

bool was_begun(const TraceRecord &record)
{
    return (static_cast<uint64_t>(record.nanoseconds) | record.event_word | record.check) != 0;
}

Look look_at(const TraceRecord &place, uint64_t index, uint64_t entries)
{
    Look look;
    const uint64_t mark = published(place.mark);
    std::memcpy(&look.record, &place, sizeof place);
    std::atomic_thread_fence(std::memory_order_acquire);
    const bool moved = published(place.mark) != mark;
    look.record.mark = mark;
    if (mark == 0 && !moved) {
        look.state = was_begun(look.record) ? Look::unfinished : Look::empty;
    } else if (moved || (mark - 1) % entries != index || !is_in_bounds(look.record) ||
               look.record.check != check_of(mark, look.record)) {
        look.state = Look::damaged;
    } else {
        look.state = Look::whole;
    }
    return look;
}

StoredTrace look_at(const MappedFile &file)
{
    StoredTrace trace;
    trace.entries = static_cast<uint32_t>(file.geometry()[geometry_entries]);
    const TraceRecord *records = records_of(file);
    for (uint64_t index = 0; index < trace.entries; ++index) {
        const Look look = look_at(records[index], index, trace.entries);
        trace.unfinished += look.state == Look::unfinished ? 1U : 0U;
        trace.damaged += look.state == Look::damaged ? 1U : 0U;
        if (look.state == Look::whole) {
            trace.events.push_back(look.record);
        }
    }
    std::ranges::sort(trace.events, {}, &TraceRecord::mark);
    return trace;
}

} // namespace

struct TraceFile::Ring {
    MappedFile file;
    uint64_t entries;
    uint64_t next = 0; // sequence
    uint64_t last_order = 0;

    explicit Ring(MappedFile opened)
        : file(std::move(opened)), entries(file.geometry()[geometry_entries])
    {
        const StoredTrace kept = look_at(file);
        if (!kept.events.empty()) {
            next = kept.events.back().mark;
            last_order = kept.events.back().order;
        }
    }
};

void TraceFile::check(const std::filesystem::path &path)
{
    require_trace(MappedFile::open(path, trace_kind, Access::read_only));
}

namespace {

MappedFile opened(const std::filesystem::path &path, uint32_t entries)
{
    if (MappedFile::exists(path)) {
        MappedFile file = MappedFile::open(path, trace_kind, Access::read_write);
        require_trace(file);
        if (file.geometry()[geometry_entries] == entries) {
            return file;
        }
    }
    return MappedFile::create(path, trace_kind, {entries, sizeof(TraceRecord)}, file_bytes(entries),
                              [](std::byte *) {});
}

} // namespace

TraceFile::TraceFile(const std::filesystem::path &path, uint32_t entries)
    : ring_(std::make_unique<Ring>(opened(path, entries)))
{
}

TraceFile::~TraceFile() = default;

uint64_t TraceFile::last_order() const
{
    return ring_->last_order;
}

void TraceFile::append(const TraceRecord &record) noexcept
{
    TraceRecord &place = records_of(ring_->file)[ring_->next % ring_->entries];
    const uint64_t mark = ++ring_->next;
    publish(place.mark, uint64_t{0});
    std::memcpy(&place.nanoseconds, &record.nanoseconds, used_bytes(record));
    place.check = check_of(mark, place);
    publish(place.mark, mark);
}

StoredTrace read_trace(const std::filesystem::path &path)
{
    const MappedFile file = MappedFile::open(path, trace_kind, Access::read_only);
    require_trace(file);
    StoredTrace trace;
    steady_look(Access::read_only, [&] {
        trace = look_at(file);
        return trace.damaged + trace.unfinished != 0;
    });
    return trace;
}

std::string text_of_record(const TraceRecord &record)
{
    static constexpr std::string_view digits = "0123456789abcdef";
    const auto *bytes = reinterpret_cast<const unsigned char *>(&record.nanoseconds);
    std::string text;
    for (size_t at = 0; at < used_bytes(record); ++at) {
        text += digits[bytes[at] >> 4];
        text += digits[bytes[at] & 15];
    }
    return text;
}

std::optional<TraceRecord> record_of_text(std::string_view text)
{
    TraceRecord record{};
    auto *bytes = reinterpret_cast<unsigned char *>(&record.nanoseconds);
    constexpr size_t most = sizeof record - offsetof(TraceRecord, nanoseconds);
    if (text.size() / 2 > most) {
        return std::nullopt;
    }
    for (size_t at = 0; at < text.size() / 2; ++at) {
        const char *digits = text.data() + 2 * at;
        if (std::from_chars(digits, digits + 2, bytes[at], 16).ptr != digits + 2) {
            return std::nullopt;
        }
    }
    const bool is_whole = is_in_bounds(record) && text.size() == 2 * used_bytes(record);
    return is_whole ? std::optional(record) : std::nullopt;
}

std::vector<std::string> texts_of(const TraceRecord &record)
{
    std::vector<std::string> texts(std::min<size_t>(record.arg_count, TraceRecord::max_args));
    const char *text = record.texts.data();
    const char *end = text + std::min<size_t>(record.text_bytes, TraceRecord::max_text_bytes);
    for (size_t place = 0; place < texts.size(); ++place) {
        if ((record.strings >> place & 1) == 0) {
            continue;
        }
        const char *zero = std::find(text, end, '\0');
        texts[place].assign(text, zero);
        text = zero == end ? end : zero + 1;
    }
    return texts;
}

} // namespace vlc
