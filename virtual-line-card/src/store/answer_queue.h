// The unread answers of one service-request handle, in a file of their own.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "mapped_file.h"
#include "vlc/prm_store.h"

namespace vlc {

// A ring of a power of two of places. An answer lies at its number modulo the ring's size, and one
// word holds the numbers of the oldest answer and of the next one, so a push or a pop is one store.
class AnswerQueue {
public:
    static AnswerQueue create(const std::filesystem::path &path); // throws StateError
    static AnswerQueue open(const std::filesystem::path &path, Access access);

    bool push(const StoredAnswer &answer); // false: no room on the disk
    bool pop(StoredAnswer *answer);        // false: none left
    uint32_t unread() const;
    // A copy, the oldest first; without what was read while it was made.
    std::vector<StoredAnswer> all_unread() const;

private:
    struct Ring;
    explicit AnswerQueue(MappedFile file) : file_(std::move(file)) {}
    static uint64_t bytes_for(uint64_t places);
    Ring &ring() const;
    StoredAnswer &at(uint32_t number, uint32_t places) const;
    bool make_room();
    void check() const;

    MappedFile file_;
};

} // namespace vlc
