#include "answer_queue.h"

#include <algorithm>
#include <bit>

#include "object_at.h"
#include "publish.h"

namespace vlc {

namespace {

constexpr FileKind queue_kind{4, 1, "a queue of answers"};
constexpr uint32_t first_places = 64;
constexpr uint32_t most_places = uint32_t{1} << 30;
constexpr uint64_t ring_bytes = 64; // a cache line for the numbers

struct Numbers {
    uint32_t oldest;
    uint32_t next;

    static Numbers of(uint64_t word)
    {
        return {static_cast<uint32_t>(word >> 32), static_cast<uint32_t>(word)};
    }
    uint64_t word() const { return uint64_t{oldest} << 32 | next; }
    uint32_t unread() const { return next - oldest; } // the numbers wrap, the difference does not
};

} // namespace

struct AnswerQueue::Ring {
    uint64_t numbers;
    uint32_t places;
};

uint64_t AnswerQueue::bytes_for(uint64_t places)
{
    return MappedFile::header_bytes + ring_bytes + places * sizeof(StoredAnswer);
}

AnswerQueue::Ring &AnswerQueue::ring() const
{
    return *object_at<Ring>(file_.data(), MappedFile::header_bytes);
}

StoredAnswer &AnswerQueue::at(uint32_t number, uint32_t places) const
{
    return object_at<StoredAnswer>(file_.data(),
                                   MappedFile::header_bytes + ring_bytes)[number & (places - 1)];
}

AnswerQueue AnswerQueue::create(const std::filesystem::path &path)
{
    const auto fill = [](std::byte *data) {
        object_at<Ring>(data, MappedFile::header_bytes)->places = first_places;
    };
    return AnswerQueue(MappedFile::create(path, queue_kind, {}, bytes_for(first_places), fill));
}

AnswerQueue AnswerQueue::open(const std::filesystem::path &path, Access access)
{
    AnswerQueue queue(MappedFile::open(path, queue_kind, access));
    queue.check();
    return queue;
}

void AnswerQueue::check() const
{
    if (file_.bytes() < bytes_for(first_places)) {
        file_.fail("has a damaged header");
    }
    const uint32_t places = published(ring().places);
    const Numbers numbers = Numbers::of(published(ring().numbers));
    if (!std::has_single_bit(places) || bytes_for(places) > file_.bytes() ||
        numbers.unread() > places) {
        file_.fail("holds more answers than it has room for");
    }
    for (uint32_t number = numbers.oldest; number != numbers.next; ++number) {
        const StoredAnswer &answer = at(number, places);
        if (answer.key_len > sizeof answer.key || answer.result_len > sizeof answer.result) {
            file_.fail("holds an answer that is wider than an answer can be");
        }
    }
}

uint32_t AnswerQueue::unread() const
{
    return Numbers::of(published(ring().numbers)).unread();
}

std::vector<StoredAnswer> AnswerQueue::all_unread() const
{
    const uint32_t places = published(ring().places);
    const Numbers numbers = Numbers::of(published(ring().numbers));
    if (bytes_for(places) > file_.bytes() || numbers.unread() > places) {
        file_.fail("grew while it was read");
    }
    std::vector<StoredAnswer> answers;
    for (uint32_t number = numbers.oldest; number != numbers.next; ++number) {
        answers.push_back(at(number, places));
    }
    // An answer that was read has left its place to a later one.
    const uint32_t gone = Numbers::of(published(ring().numbers)).oldest - numbers.oldest;
    answers.erase(answers.begin(), answers.begin() + std::min(gone, numbers.unread()));
    return answers;
}

// In a ring of twice the places an answer lies where it lay or one old ring further on; the latter
// are copied there before the new size is published. Both sizes are good for what they say.
bool AnswerQueue::make_room()
{
    const uint32_t places = ring().places;
    if (places >= most_places) {
        return false;
    }
    // A kill after the file had grown leaves it larger than its ring.
    const uint64_t wanted = bytes_for(uint64_t{places} * 2);
    if (file_.bytes() < wanted && !file_.grow(wanted)) {
        return false;
    }
    const Numbers numbers = Numbers::of(ring().numbers);
    for (uint32_t number = numbers.oldest; number != numbers.next; ++number) {
        if ((number & places) != 0) {
            at(number, places * 2) = at(number, places);
        }
    }
    publish(ring().places, places * 2);
    return true;
}

bool AnswerQueue::push(const StoredAnswer &answer)
{
    Numbers numbers = Numbers::of(ring().numbers);
    if (numbers.unread() == ring().places && !make_room()) {
        return false;
    }
    at(numbers.next, ring().places) = answer;
    ++numbers.next;
    publish(ring().numbers, numbers.word());
    return true;
}

bool AnswerQueue::pop(StoredAnswer *answer)
{
    Numbers numbers = Numbers::of(ring().numbers);
    if (numbers.unread() == 0) {
        return false;
    }
    *answer = at(numbers.oldest, ring().places);
    ++numbers.oldest;
    publish(ring().numbers, numbers.word());
    return true;
}

} // namespace vlc
