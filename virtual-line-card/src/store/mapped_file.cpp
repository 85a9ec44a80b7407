#include "mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "file_access.h"
#include "object_at.h"
#include "publish.h"

namespace vlc {

namespace {

constexpr std::array<char, 8> file_magic = {'V', 'L', 'C', 'S', 'T', 'A', 'T', 'E'};

struct FileHeader {
    std::array<char, 8> magic;
    uint32_t kind;
    uint32_t version;
    MappedFile::Geometry geometry;
    uint64_t check;       // of all before it
    uint64_t total_bytes; // grows
};
static_assert(sizeof(FileHeader) <= MappedFile::kind_area);

uint64_t check_of(const FileHeader &header)
{
    uint64_t sum = 0xCBF29CE484222325;
    const auto *bytes = reinterpret_cast<const unsigned char *>(&header);
    for (size_t i = 0; i < offsetof(FileHeader, check); ++i) {
        sum = (sum ^ bytes[i]) * 0x100000001B3;
    }
    return sum;
}

std::string hexadecimal(uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

int reserve_range(int descriptor, uint64_t from, uint64_t to)
{
    int error = 0;
    do {
        error =
            posix_fallocate(descriptor, static_cast<off_t>(from), static_cast<off_t>(to - from));
    } while (error == EINTR);
    return error;
}

} // namespace

MappedFile::MappedFile(std::filesystem::path path, int descriptor)
    : path_(std::move(path)), descriptor_(descriptor)
{
}

MappedFile::MappedFile(MappedFile &&other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)),
      data_(std::exchange(other.data_, nullptr)), bytes_(std::exchange(other.bytes_, 0))
{
}

MappedFile::~MappedFile()
{
    if (data_ != nullptr) {
        munmap(data_, bytes_);
    }
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void MappedFile::fail(const std::string &why) const
{
    throw StateError(path_.string() + ": " + why);
}

bool MappedFile::exists(const std::filesystem::path &path)
{
    struct stat found;
    return lstat(path.c_str(), &found) == 0;
}

const MappedFile::Geometry &MappedFile::geometry() const
{
    return object_at<FileHeader>(data_, 0)->geometry;
}

void MappedFile::reserve(uint64_t total_bytes) const
{
    const int error = reserve_range(descriptor_, 0, total_bytes);
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) {
        fail("the file system has no room for its " + std::to_string(total_bytes) +
             " bytes: " + text_of(error));
    }
    if (error != 0) {
        fail("its " + std::to_string(total_bytes) + " bytes cannot be reserved: " + text_of(error));
    }
}

void MappedFile::map(uint64_t total_bytes, Access access, uintptr_t address)
{
    const int protection = access == Access::read_only ? PROT_READ : PROT_READ | PROT_WRITE;
    const int flags = MAP_SHARED | (address == 0 ? 0 : MAP_FIXED_NOREPLACE);
    void *wanted = reinterpret_cast<void *>(address);
    void *mapped = mmap(wanted, total_bytes, protection, flags, descriptor_, 0);
    const int error = errno;
    // A kernel that does not know the flag takes the address as a wish.
    const bool elsewhere = mapped != MAP_FAILED && address != 0 && mapped != wanted;
    if (elsewhere) {
        munmap(mapped, total_bytes);
    }
    if (elsewhere || (mapped == MAP_FAILED && error == EEXIST)) {
        fail("its address " + hexadecimal(address) + " is taken in this process");
    }
    if (mapped == MAP_FAILED) {
        fail("cannot be mapped: " + text_of(error));
    }
    data_ = static_cast<std::byte *>(mapped);
    bytes_ = total_bytes;
}

MappedFile MappedFile::create(const std::filesystem::path &path, const FileKind &kind,
                              const Geometry &geometry, uint64_t total_bytes,
                              const std::function<void(std::byte *data)> &fill, uintptr_t address)
{
    std::filesystem::path unfinished = path;
    unfinished += ".new";
    const int descriptor = open_file(unfinished, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW);
    const int error = errno;
    MappedFile file(path, descriptor);
    if (descriptor < 0) {
        file.fail("cannot be made: " + text_of(error));
    }
    try {
        file.reserve(total_bytes);
        file.map(total_bytes, Access::read_write, address);
        fill(file.data_);
        FileHeader header{file_magic, kind.number, kind.version, geometry, 0, total_bytes};
        header.check = check_of(header);
        std::memcpy(file.data_, &header, sizeof header);
        if (rename(unfinished.c_str(), path.c_str()) != 0) {
            file.fail("cannot be named: " + text_of(errno));
        }
    } catch (...) {
        unlink(unfinished.c_str());
        throw;
    }
    return file;
}

void MappedFile::check_header(const FileKind &kind) const
{
    FileHeader header;
    const ssize_t got = pread(descriptor_, &header, sizeof header, 0);
    if (got < 0) {
        fail("cannot be read: " + text_of(errno));
    }
    const auto length = static_cast<size_t>(got);
    if (length < sizeof header.magic) {
        fail("is truncated: it has " + std::to_string(length) + " bytes");
    }
    if (header.magic != file_magic) {
        fail("is no file of a virtual line card");
    }
    if (length < sizeof header) {
        fail("is truncated: it has " + std::to_string(length) + " bytes");
    }
    if (header.kind != kind.number) {
        fail(std::string("is a file of a virtual line card, but not ") + kind.what);
    }
    if (header.version != kind.version) {
        fail("is of version " + std::to_string(header.version) +
             ", and this program knows version " + std::to_string(kind.version));
    }
    if (header.check != check_of(header)) {
        fail("has a damaged header");
    }
}

MappedFile MappedFile::open(const std::filesystem::path &path, const FileKind &kind, Access access,
                            uintptr_t address)
{
    const int mode = access == Access::read_only ? O_RDONLY : O_RDWR;
    const int descriptor = open_file(path, mode | O_NONBLOCK);
    const int error = errno;
    MappedFile file(path, descriptor);
    struct stat found;
    if (descriptor < 0 || fstat(descriptor, &found) != 0) {
        file.fail("cannot be opened: " + text_of(descriptor < 0 ? error : errno));
    }
    if (!S_ISREG(found.st_mode)) {
        file.fail("is no regular file");
    }
    file.check_header(kind);
    uint64_t total = 0;
    if (pread(descriptor, &total, sizeof total, offsetof(FileHeader, total_bytes)) !=
        static_cast<ssize_t>(sizeof total)) {
        file.fail("cannot be read");
    }
    // Longer is fine: growing makes room before it is said in the header.
    const auto size = static_cast<uint64_t>(found.st_size);
    if (size < total) {
        file.fail("is truncated: it has " + std::to_string(size) + " bytes of " +
                  std::to_string(total));
    }
    if (total < header_bytes) {
        file.fail("has a damaged header");
    }
    // A copy that was made on the way may have holes.
    const bool has_holes = static_cast<uint64_t>(found.st_blocks) * 512 < total;
    if (access == Access::read_write && has_holes) {
        file.reserve(total);
    }
    file.map(total, access, address);
    return file;
}

bool MappedFile::grow(uint64_t total_bytes) noexcept
{
    if (reserve_range(descriptor_, bytes_, total_bytes) != 0) {
        // Some file systems keep what they got before they ran out.
        [[maybe_unused]] const int ignored = ftruncate(descriptor_, static_cast<off_t>(bytes_));
        return false;
    }
    void *moved = mremap(data_, bytes_, total_bytes, MREMAP_MAYMOVE);
    if (moved == MAP_FAILED) {
        return false;
    }
    data_ = static_cast<std::byte *>(moved);
    bytes_ = total_bytes;
    publish(object_at<FileHeader>(data_, 0)->total_bytes, total_bytes);
    return true;
}

} // namespace vlc
