// A trace buffer in the state directory: the last events of a component, there after a kill.
//
// An event is filled in while its mark is zero, and one store of the mark makes it true. So a kill
// at any instruction leaves the events before it and at most one that is known to be unfinished.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vlc/state_directory.h"

namespace vlc {

// An event as it stands in a trace buffer, in memory and in the file.
struct TraceRecord {
    static constexpr size_t max_args = 8;
    static constexpr size_t max_text_bytes = 256; // of its string arguments together

    uint64_t mark;  // its sequence and one; zero while it is being written
    uint64_t check; // of all that follows, as far as it is used
    int64_t nanoseconds;
    uint64_t event_word;
    uint64_t sites; // which table of sites its number is of
    uint64_t order; // its place among the events of all buffers of the directory
    uint32_t arg_count;
    uint32_t strings;    // bit n: argument n is a string, whose text is the next one
    uint32_t text_bytes; // used of `texts`; behind them zeros up to a multiple of eight
    uint32_t reserved;
    std::array<uint64_t, max_args> args;
    std::array<char, max_text_bytes> texts; // each ends with a zero byte
};
static_assert(sizeof(TraceRecord) == 384);

// The texts by the places of their arguments, empty for an argument that is no string. What is
// damaged gives fewer.
std::vector<std::string> texts_of(const TraceRecord &record);

// The used part of a record as one word of letters and digits, to go where a file does not; and
// back, none for a word that is no record.
std::string text_of_record(const TraceRecord &record);
std::optional<TraceRecord> record_of_text(std::string_view text);

// The one writer of a file; a file that is there is gone on with.
class TraceFile {
public:
    // Throws StateError for a file that is damaged or no trace; one of another size is replaced.
    TraceFile(const std::filesystem::path &path, uint32_t entries);
    ~TraceFile();
    TraceFile(const TraceFile &) = delete;
    TraceFile &operator=(const TraceFile &) = delete;

    // Throws StateError for what the constructor would refuse; changes nothing.
    static void check(const std::filesystem::path &path);

    // The greatest of the events that are there; zero for none.
    uint64_t last_order() const;

    // Its mark and its check are made here. No allocation and no system call.
    void append(const TraceRecord &record) noexcept;

private:
    struct Ring;
    std::unique_ptr<Ring> ring_;
};

struct StoredTrace {
    std::vector<TraceRecord> events; // by their sequence, which is `mark - 1`
    uint32_t entries = 0;            // that the file has room for
    uint32_t unfinished = 0;         // a kill came while it was written
    uint32_t damaged = 0;            // and therefore left out
};

// Also while a host writes. Throws StateError for what is no trace.
StoredTrace read_trace(const std::filesystem::path &path);

// The file of a component's buffer, by short name and "event" or "error".
std::string trace_file_name(std::string_view component, std::string_view buffer);
std::string sites_file_name(std::string_view component);

// The names of the components that have a table of sites or a trace in the directory, in order.
std::vector<std::string> traced_components(const std::filesystem::path &directory);

} // namespace vlc
