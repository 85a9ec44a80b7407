#include "vlc/host_record.h"

#include <unistd.h>

#include <csignal>
#include <ctime>
#include <iterator>
#include <sstream>
#include <string>

#include "file_access.h"
#include "mapped_file.h"
#include "object_at.h"
#include "publish.h"

namespace vlc {

namespace {

constexpr FileKind host_kind{5, 1, "what a host tells of itself"};
constexpr const char *host_file = "host";

// Words of eight bytes behind the header. A process of 0 is none.
struct Words {
    uint64_t process;
    uint64_t process_start; // in the kernel's ticks: a number of a process is used again
    uint64_t started;
    uint64_t started_real;
    uint64_t changed_real;
    uint64_t ended_real;
    uint64_t card;
    uint64_t prm_is_up;
    uint64_t is_registered;
    uint64_t requests[table_kinds][3];
    uint64_t answered;
    uint64_t failed;
    uint64_t unanswered;
    uint64_t in_doubt;
    uint64_t unasked;
    uint64_t breaks;
    uint64_t in_flight_at_breaks;
};
constexpr uint64_t file_bytes = MappedFile::header_bytes + sizeof(Words);

uint64_t real_time()
{
    // Not clock_gettime(), which follows the card's clock where that is stepped.
    timespec time{};
    timespec_get(&time, TIME_UTC);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

uint64_t card_time()
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

// When a process that lives began; nothing for one that is gone, or that nobody has waited for.
std::optional<uint64_t> start_of(uint64_t process)
{
    std::string text;
    try {
        text = read_file("/proc/" + std::to_string(process) + "/stat");
    } catch (const StateError &) {
        return std::nullopt;
    }
    // Behind the program's name, which may hold anything: the state, and 18 words on, the start.
    std::istringstream rest(text.substr(std::min(text.rfind(')') + 1, text.size())));
    std::string state;
    std::string word;
    rest >> state;
    for (int skipped = 0; skipped < 19; ++skipped)
        rest >> word;
    if (!rest || state == "Z" || state == "X")
        return std::nullopt;
    return std::strtoull(word.c_str(), nullptr, 10);
}

HostLife life_of(const Words &words)
{
    if (words.ended_real != 0)
        return HostLife::stopped;
    const bool lives = words.process != 0 && start_of(words.process) == words.process_start;
    return lives ? HostLife::running : HostLife::killed;
}

// Every word of the sums, in one order for both directions.
template <typename Stored, typename Sums, typename Visit>
void for_each_sum(Stored &words, Sums &sums, const Visit &visit)
{
    for (uint32_t table = 0; table < table_kinds; ++table) {
        for (size_t operation = 0; operation < std::size(words.requests[table]); ++operation)
            visit(words.requests[table][operation], sums.requests[table][operation]);
    }
    visit(words.answered, sums.answered);
    visit(words.failed, sums.failed);
    visit(words.unanswered, sums.unanswered);
    visit(words.in_doubt, sums.in_doubt);
    visit(words.unasked, sums.unasked);
    visit(words.breaks, sums.breaks);
    visit(words.in_flight_at_breaks, sums.in_flight_at_breaks);
}

MappedFile opened_or_made(const std::filesystem::path &path)
{
    // Where one is, it is written over: a disk that is full by now has room for that.
    try {
        MappedFile file = MappedFile::open(path, host_kind, Access::read_write);
        if (file.bytes() == file_bytes)
            return file;
    } catch (const StateError &) {
        // Another takes its place.
    }
    return MappedFile::create(path, host_kind, {}, file_bytes, [](std::byte *) {});
}

} // namespace

struct HostRecord::File {
    MappedFile mapped;
    Words &words = *object_at<Words>(mapped.data(), MappedFile::header_bytes);
};

HostRecord::HostRecord(std::unique_ptr<File> file) : file_(std::move(file)) {}

std::unique_ptr<HostRecord> HostRecord::begin(const StateDirectory &directory)
{
    std::unique_ptr<File> file;
    try {
        file.reset(new File{opened_or_made(directory.file(host_file))});
    } catch (const StateError &) {
        return nullptr;
    }
    Words &words = file->words;
    std::unique_ptr<HostRecord> record(new HostRecord(std::move(file)));
    publish(words.process, uint64_t{0}); // nobody's until all is this one's
    record->tell({}, {});
    publish(words.started, card_time());
    publish(words.started_real, real_time());
    publish(words.ended_real, uint64_t{0});
    const auto process = static_cast<uint64_t>(getpid());
    publish(words.process_start, start_of(process).value_or(0));
    publish(words.process, process);
    return record;
}

HostRecord::~HostRecord()
{
    publish(file_->words.ended_real, real_time());
}

void HostRecord::tell(const HostConnection &connection, const PrmLedger::Sums &requests) noexcept
{
    Words &words = file_->words;
    publish(words.card, static_cast<uint64_t>(connection.card));
    publish(words.prm_is_up, uint64_t{connection.prm_is_up});
    publish(words.is_registered, uint64_t{connection.is_registered});
    for_each_sum(words, requests, [](uint64_t &word, uint64_t sum) { publish(word, sum); });
    publish(words.changed_real, real_time());
}

std::optional<HostState> host_state_in(const std::filesystem::path &state_directory)
{
    const std::filesystem::path path = state_directory / host_file;
    if (!MappedFile::exists(path))
        return std::nullopt;
    const MappedFile file = MappedFile::open(path, host_kind, Access::read_only);
    if (file.bytes() != file_bytes)
        file.fail("has a damaged header");
    const Words &words = *object_at<Words>(file.data(), MappedFile::header_bytes);
    HostState state;
    state.process = published(words.process);
    state.started = static_cast<int64_t>(published(words.started));
    state.started_real = static_cast<int64_t>(published(words.started_real));
    state.changed_real = static_cast<int64_t>(published(words.changed_real));
    const uint64_t card = published(words.card);
    if (card > static_cast<uint64_t>(CardReach::given_up))
        file.fail("names no place where a card can be");
    state.connection = {static_cast<CardReach>(card), published(words.prm_is_up) != 0,
                        published(words.is_registered) != 0};
    for_each_sum(words, state.requests,
                 [](const uint64_t &word, uint64_t &sum) { sum = published(word); });
    state.ended_real = static_cast<int64_t>(published(words.ended_real));
    state.life = life_of(words);
    return state;
}

} // namespace vlc
