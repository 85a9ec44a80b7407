#include "vlc/window.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "block_heap.h"
#include "mapped_file.h"
#include "object_at.h"
#include "steady_look.h"

namespace vlc {

namespace {

constexpr FileKind window_kind{1, 1, "a shared-memory window"};
constexpr const char *window_file = "window";
constexpr uint64_t page_bytes = 4096;
constexpr uint64_t smallest_window = 2 * page_bytes;
constexpr uint64_t largest_window = uint64_t{64} << 30;

// The first block's word ends with the header's page and the last 8 bytes stay unused, so that
// blocks are aligned to 16.
constexpr uint64_t first_word = MappedFile::header_bytes - BlockWord::bytes;
constexpr uint64_t end_of_blocks(uint64_t total_bytes)
{
    return total_bytes - BlockWord::bytes;
}

struct WindowHead {
    uint64_t root;      // an address
    uint64_t resetting; // 1: all is gone, though the words may not say so yet
};

WindowHead &head_of(const MappedFile &file)
{
    return *object_at<WindowHead>(file.data(), MappedFile::kind_area);
}

uint64_t whole_pages(uint64_t bytes)
{
    return (bytes + page_bytes - 1) / page_bytes * page_bytes;
}

void check_size(const StateDirectory &directory, const MappedFile &file, uint64_t bytes)
{
    const uint64_t asked = whole_pages(bytes);
    if (!directory.is_complete() || directory.access() == Access::read_only ||
        file.bytes() == asked) {
        return;
    }
    const bool whole = (file.bytes() | asked) % (uint64_t{1} << 20) == 0;
    const unsigned unit = whole ? 20 : 0;
    throw StateError("the window of " + directory.path().string() + " has " +
                     std::to_string(file.bytes() >> unit) + (whole ? " MiB" : " bytes") + ", and " +
                     std::to_string(asked >> unit) + " are asked for");
}

MappedFile open_or_make(const StateDirectory &directory, uint64_t bytes)
{
    const std::filesystem::path path = directory.file(window_file);
    if (MappedFile::exists(path) || directory.is_complete() ||
        directory.access() == Access::read_only) {
        MappedFile file = MappedFile::open(path, window_kind, directory.access(), Window::address);
        check_size(directory, file, bytes);
        return file;
    }
    if (bytes < smallest_window || bytes > largest_window) {
        throw StateError(path.string() + ": a window of " + std::to_string(bytes) +
                         " bytes cannot be made; it takes " + std::to_string(smallest_window) +
                         " to " + std::to_string(largest_window));
    }
    const uint64_t total = whole_pages(bytes);
    const auto fill = [total](std::byte *data) {
        BlockHeap(data, first_word, end_of_blocks(total)).format();
    };
    return MappedFile::create(path, window_kind, {Window::address}, total, fill, Window::address);
}

// Before the heap takes the size for granted.
MappedFile &checked(MappedFile &file)
{
    if (file.geometry()[0] != Window::address || file.bytes() < smallest_window ||
        file.bytes() > largest_window || file.bytes() % page_bytes != 0) {
        file.fail("has a damaged header");
    }
    return file;
}

} // namespace

struct Window::State {
    State(const StateDirectory &directory, uint64_t bytes)
        : file(open_or_make(directory, bytes)), head(head_of(checked(file))),
          heap(file.data(), first_word, end_of_blocks(file.bytes()))
    {
        if (head.resetting == 0 && head.root != 0 && !contains(head.root)) {
            file.fail("has a root outside the window");
        }
        if (head.resetting != 0) {
            gone = directory.access() == Access::read_only;
            if (!gone) {
                finish_reset();
            }
        } else {
            load(directory.access());
        }
    }

    void load(Access access)
    {
        const auto broken =
            steady_look(access, [&] { return heap.load(access == Access::read_write); });
        if (broken) {
            fail_chain(*broken);
        }
    }

    [[noreturn]] void fail_chain(uint64_t place) const
    {
        char offset[32];
        std::snprintf(offset, sizeof offset, "0x%" PRIx64, place);
        file.fail(std::string("its chain of blocks breaks at offset ") + offset);
    }

    void finish_reset()
    {
        publish(head.root, uint64_t{0});
        heap.format();
        publish(head.resetting, uint64_t{0});
    }

    bool contains(uintptr_t where) const
    {
        return where >= address + MappedFile::header_bytes && where < address + file.bytes();
    }

    MappedFile file;
    WindowHead &head;
    BlockHeap heap;
    bool gone = false; // opened for reading in the middle of a reset
};

Window::Window(const StateDirectory &directory, uint64_t bytes)
    : state_(std::make_unique<State>(directory, bytes))
{
}

Window::~Window() = default;

uint32_t Window::allocate(int64_t size, void **block)
{
    if (size < 1 || block == nullptr) {
        return EINVAL;
    }
    const uint64_t offset = state_->heap.allocate(static_cast<uint64_t>(size));
    if (offset == 0) {
        return ENOMEM;
    }
    *block = state_->file.data() + offset;
    return 0;
}

uint32_t Window::release(void *block)
{
    return contains(block) && state_->heap.release(reinterpret_cast<uintptr_t>(block) - address)
               ? 0
               : EINVAL;
}

void Window::reset()
{
    // From this store on everything is gone; an opening finishes what a kill cuts off here.
    publish(state_->head.resetting, uint64_t{1});
    state_->finish_reset();
}

void *Window::root() const
{
    return state_->gone ? nullptr
                        : reinterpret_cast<void *>(uintptr_t{published(state_->head.root)});
}

void Window::set_root(void *block)
{
    if (block != nullptr && !contains(block)) {
        throw std::invalid_argument("the root of a window lies inside it");
    }
    publish(state_->head.root, uint64_t{reinterpret_cast<uintptr_t>(block)});
}

Window::Usage Window::usage() const
{
    const BlockHeap &heap = state_->heap;
    return {heap.blocks_in_use(), heap.bytes_in_use(), heap.bytes_total()};
}

bool Window::contains(const void *where) const
{
    return state_->contains(reinterpret_cast<uintptr_t>(where));
}

} // namespace vlc
