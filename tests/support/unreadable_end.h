// Bytes whose end is the end of what can be read: the next one is on a page without any access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include <sys/mman.h>
#include <unistd.h>

namespace test {

class UnreadableEnd {
public:
    explicit UnreadableEnd(size_t capacity)
        : page_(static_cast<size_t>(getpagesize())),
          readable_((capacity + page_ - 1) / page_ * page_)
    {
        void *pages = mmap(nullptr, readable_ + page_, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            abort();
        pages_ = static_cast<uint8_t *>(pages);
        memset(pages_, 0xAB, readable_);
        if (mprotect(pages_ + readable_, page_, PROT_NONE) != 0)
            abort();
    }
    ~UnreadableEnd() { munmap(pages_, readable_ + page_); }
    UnreadableEnd(const UnreadableEnd &) = delete;
    UnreadableEnd &operator=(const UnreadableEnd &) = delete;

    size_t capacity() const { return readable_; }
    // The last `length` bytes that can be read.
    uint8_t *last(size_t length) const { return pages_ + readable_ - length; }
    uint8_t *place(std::span<const uint8_t> bytes) const
    {
        return static_cast<uint8_t *>(memcpy(last(bytes.size()), bytes.data(), bytes.size()));
    }

private:
    size_t page_;
    size_t readable_;
    uint8_t *pages_ = nullptr;
};

} // namespace test
