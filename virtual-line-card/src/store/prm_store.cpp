#include "vlc/prm_store.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>

#include "answer_queue.h"
#include "mapped_file.h"
#include "object_at.h"
#include "platform_prm.h"
#include "publish.h"

namespace vlc {

std::optional<TableKind> table_of_answer(uint32_t refnum, uint32_t flags) noexcept
{
    switch (refnum & PRM_REFNUM_TABLE_MASK) {
    case PRM_TABLE_SERVICE_CONFIG:
        return TableKind::service_config;
    case PRM_TABLE_EXT_CONF:
        return (flags & PRM_ANSWER_OF_FLOW_TABLE) != 0 ? TableKind::flow : TableKind::ext_conf;
    default:
        return std::nullopt;
    }
}

namespace {

constexpr FileKind prm_kind{3, 1, "PRM's handles"};

struct Handles {
    uint32_t used;                                           // bit h - 1: handle h
    char names[PrmStore::max_handles][PrmStore::name_bytes]; // ended by zero; "" for none

    std::string_view name(uint32_t handle) const { return names[handle - 1]; }
    bool is_used(uint32_t handle) const
    {
        return handle >= 1 && handle <= PrmStore::max_handles && (used >> (handle - 1) & 1) != 0;
    }
    void rename(uint32_t handle, std::string_view name)
    {
        std::memset(names[handle - 1], 0, PrmStore::name_bytes);
        std::memcpy(names[handle - 1], name.data(), name.size());
    }
};

// Two copies, of which one is in force: a change is made in the other, and then that one is put
// into force by one store.
struct HandleFile {
    uint32_t in_force;
    Handles copies[2];
};

constexpr uint64_t prm_file_bytes = MappedFile::header_bytes + sizeof(HandleFile);

MappedFile open_handles(const StateDirectory &directory)
{
    const std::filesystem::path path = directory.file("prm");
    if (!MappedFile::exists(path) && !directory.is_complete() &&
        directory.access() == Access::read_write) {
        return MappedFile::create(path, prm_kind, {}, prm_file_bytes, [](std::byte *) {});
    }
    return MappedFile::open(path, prm_kind, directory.access());
}

void check_handles(const MappedFile &file)
{
    if (file.bytes() != prm_file_bytes) {
        file.fail("has a damaged header");
    }
    const HandleFile &handles = *object_at<HandleFile>(file.data(), MappedFile::header_bytes);
    const uint32_t in_force = published(handles.in_force);
    bool good = in_force <= 1 && handles.copies[in_force].used >> PrmStore::max_handles == 0;
    for (uint32_t h = 0; good && h < PrmStore::max_handles; ++h) {
        const char *name = handles.copies[in_force].names[h];
        good = std::find(name, name + PrmStore::name_bytes, '\0') != name + PrmStore::name_bytes;
    }
    if (!good) {
        file.fail("holds handles that cannot be");
    }
}

} // namespace

struct PrmStore::State {
    explicit State(const StateDirectory &directory)
        : directory_path(directory.path()), file(open_handles(directory))
    {
        check_handles(file);
        for (uint32_t handle = 1; handle <= max_handles; ++handle) {
            if (handles().is_used(handle) && MappedFile::exists(queue_path(handle))) {
                queues[handle - 1].emplace(
                    AnswerQueue::open(queue_path(handle), directory.access()));
            }
        }
    }

    std::filesystem::path queue_path(uint32_t handle) const
    {
        return directory_path / ("answers" + std::to_string(handle));
    }

    HandleFile &stored() const
    {
        return *object_at<HandleFile>(file.data(), MappedFile::header_bytes);
    }
    const Handles &handles() const { return stored().copies[published(stored().in_force)]; }

    template <typename Change>
    void change_handles(const Change &change)
    {
        const uint32_t other = stored().in_force ^ 1;
        stored().copies[other] = stored().copies[other ^ 1];
        change(stored().copies[other]);
        publish(stored().in_force, other);
    }

    std::optional<AnswerQueue> &queue(uint32_t handle) { return queues[handle - 1]; }

    std::filesystem::path directory_path;
    MappedFile file;
    std::array<std::optional<AnswerQueue>, max_handles> queues; // made at the first answer
};

PrmStore::PrmStore(const StateDirectory &directory) : state_(std::make_unique<State>(directory)) {}

PrmStore::~PrmStore() = default;

uint32_t PrmStore::make_handle()
{
    const auto handle = static_cast<uint32_t>(std::countr_one(state_->handles().used)) + 1;
    if (handle > max_handles) {
        return 0;
    }
    // A handle of that number may have been forgotten with answers left.
    state_->queue(handle).reset();
    std::error_code error;
    std::filesystem::remove(state_->queue_path(handle), error);
    if (error) {
        return 0;
    }
    state_->change_handles([handle](Handles &handles) {
        handles.used |= uint32_t{1} << (handle - 1);
        handles.rename(handle, "");
    });
    return handle;
}

bool PrmStore::is_handle(uint32_t handle) const
{
    return state_->handles().is_used(handle);
}

bool PrmStore::set_name(uint32_t handle, std::string_view name)
{
    if (!is_handle(handle) || name.empty() || name.size() >= name_bytes ||
        name.find('\0') != std::string_view::npos) {
        return false;
    }
    const uint32_t before = find_handle(name);
    state_->change_handles([handle, name, before](Handles &handles) {
        if (before != 0) {
            handles.rename(before, "");
        }
        handles.rename(handle, name);
    });
    return true;
}

uint32_t PrmStore::find_handle(std::string_view name) const
{
    const Handles &handles = state_->handles();
    for (uint32_t handle = 1; handle <= max_handles && !name.empty(); ++handle) {
        if (handles.is_used(handle) && handles.name(handle) == name) {
            return handle;
        }
    }
    return 0;
}

void PrmStore::forget_handles()
{
    state_->change_handles([](Handles &handles) { handles = Handles{}; });
    for (std::optional<AnswerQueue> &queue : state_->queues) {
        queue.reset();
    }
}

bool PrmStore::push_answer(uint32_t handle, const StoredAnswer &answer)
{
    if (!is_handle(handle)) {
        return false;
    }
    std::optional<AnswerQueue> &queue = state_->queue(handle);
    if (!queue) {
        try {
            queue.emplace(AnswerQueue::create(state_->queue_path(handle)));
        } catch (const StateError &) {
            return false;
        }
    }
    return queue->push(answer);
}

bool PrmStore::pop_answer(uint32_t handle, StoredAnswer *answer)
{
    return is_handle(handle) && state_->queue(handle) && state_->queue(handle)->pop(answer);
}

uint64_t PrmStore::unread(uint32_t handle) const
{
    return is_handle(handle) && state_->queue(handle) ? state_->queue(handle)->unread() : 0;
}

void PrmStore::for_each_unread(
    const std::function<void(uint32_t handle, const StoredAnswer &)> &visit) const
{
    for (uint32_t handle = 1; handle <= max_handles; ++handle) {
        if (is_handle(handle) && state_->queue(handle)) {
            for (const StoredAnswer &answer : state_->queue(handle)->all_unread()) {
                visit(handle, answer);
            }
        }
    }
}

} // namespace vlc
