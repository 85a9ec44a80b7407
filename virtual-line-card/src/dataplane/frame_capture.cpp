#include "frame_capture.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <optional>
#include <string>

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "file_access.h"
#include "platform_packet_path.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr uint32_t magic_of_nanoseconds = 0xA1B23C4D;

// In front of each frame.
struct RecordHead {
    uint32_t seconds;
    uint32_t nanoseconds;
    uint32_t captured;
    uint32_t length;
};
static_assert(sizeof(RecordHead) == 16);

using FileHead = std::array<uint8_t, sizeof(pcap_file_header)>;
static_assert(sizeof(FileHead) == 24);

FileHead file_head()
{
    const pcap_file_header head = {.magic = magic_of_nanoseconds,
                                   .version_major = PCAP_VERSION_MAJOR,
                                   .version_minor = PCAP_VERSION_MINOR,
                                   .thiszone = 0,
                                   .sigfigs = 0,
                                   .snaplen = SPP_LONGEST_FRAME,
                                   .linktype = DLT_EN10MB};
    return std::bit_cast<FileHead>(head);
}

RecordHead record_head(size_t length, int64_t now)
{
    constexpr int64_t second = 1'000'000'000;
    const auto bytes = static_cast<uint32_t>(length);
    return {static_cast<uint32_t>(now / second), static_cast<uint32_t>(now % second), bytes, bytes};
}

iovec piece(const void *bytes, size_t size)
{
    return {.iov_base = const_cast<void *>(bytes), .iov_len = size};
}

class Reader {
public:
    explicit Reader(int file) : file_(file) {}

    // How much of it is there.
    size_t read_at(uint64_t place, void *bytes, size_t size)
    {
        const ssize_t got = pread(file_, bytes, size, static_cast<off_t>(place));
        if (got < 0)
            error_ = errno;
        return got < 0 ? 0 : static_cast<size_t>(got);
    }
    int error() const { return error_; } // of any read

private:
    int file_;
    int error_ = 0;
};

// The end of the last whole frame; nothing when this is no capture of a port.
std::optional<uint64_t> end_of_frames(Reader &reader, uint64_t size)
{
    const FileHead wanted = file_head();
    FileHead found;
    const size_t got = reader.read_at(0, found.data(), found.size());
    if (!std::equal(found.begin(), found.begin() + static_cast<ptrdiff_t>(got), wanted.begin()))
        return std::nullopt;
    if (got < found.size())
        return 0; // a kill cut its head off
    uint64_t end = found.size();
    RecordHead head;
    while (reader.read_at(end, &head, sizeof head) == sizeof head) {
        if (head.captured != head.length || head.length > SPP_LONGEST_FRAME)
            return std::nullopt;
        const uint64_t next = end + sizeof head + head.length;
        if (next > size)
            break;
        end = next;
    }
    return end;
}

} // namespace

FrameCapture::FrameCapture(const std::filesystem::path &file) : path_(file)
{
    const auto refuse = [&file](const std::string &why) {
        throw StateError(file.string() + ": " + why);
    };
    const Descriptor opened(open_file(file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (opened.number() < 0 && errno == ENOENT)
        return;
    struct stat status = {};
    if (opened.number() < 0 || fstat(opened.number(), &status) != 0)
        refuse("cannot be read: " + text_of(errno));
    if (!S_ISREG(status.st_mode))
        refuse("is no regular file");
    const auto size = static_cast<uint64_t>(status.st_size);
    Reader reader(opened.number());
    const std::optional<uint64_t> end = end_of_frames(reader, size);
    if (reader.error() != 0)
        refuse("cannot be read: " + text_of(reader.error()));
    if (!end)
        refuse("is no capture of a CPU port, or is damaged");
    good_bytes_ = *end;
    has_more_ = size > good_bytes_;
}

FrameCapture::~FrameCapture()
{
    if (file_ >= 0)
        close(file_);
}

void FrameCapture::mend()
{
    if (!has_more_)
        return;
    if (const uint32_t error = open(); error != 0)
        throw StateError(path_.string() +
                         ": cannot be written: " + text_of(static_cast<int>(error)));
    has_more_ = false;
}

// 0, with nothing behind the last whole frame, or an errno value.
uint32_t FrameCapture::open()
{
    if (file_ >= 0)
        return 0;
    const int opened = open_file(path_, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK);
    if (opened < 0)
        return static_cast<uint32_t>(errno);
    if (ftruncate(opened, static_cast<off_t>(good_bytes_)) != 0) {
        const int error = errno;
        close(opened);
        return static_cast<uint32_t>(error);
    }
    file_ = opened;
    return 0;
}

uint32_t FrameCapture::send(std::span<const uint8_t> frame, int64_t nanoseconds)
{
    if (const uint32_t error = open(); error != 0)
        return error;
    const FileHead file = file_head();
    const RecordHead record = record_head(frame.size(), nanoseconds);
    const iovec pieces[] = {piece(file.data(), file.size()), piece(&record, sizeof record),
                            piece(frame.data(), frame.size())};
    const int first = good_bytes_ == 0 ? 0 : 1;
    size_t wanted = 0;
    for (int i = first; i < 3; i++)
        wanted += pieces[i].iov_len;
    const ssize_t written =
        pwritev(file_, pieces + first, 3 - first, static_cast<off_t>(good_bytes_));
    if (written == static_cast<ssize_t>(wanted)) {
        good_bytes_ += wanted;
        return 0;
    }
    const int error = written < 0 ? errno : ENOSPC; // what a short write means
    has_more_ = ftruncate(file_, static_cast<off_t>(good_bytes_)) != 0;
    return error == ENOMEM ? uint32_t{ENOBUFS} : static_cast<uint32_t>(error);
}

} // namespace vlc
