// A file of the state directory, mapped for as long as the object lives.
//
// What is written to the mapping stands in the file when the process is killed at any moment. (It
// is not forced to the disk: a machine that loses power may lose the last seconds.)
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "vlc/state_directory.h"
#include "vlc/state_error.h"

namespace vlc {

// What a file says of itself in its first bytes.
struct FileKind {
    uint32_t number;
    uint32_t version;
    const char *what; // for messages: "a shared-memory window"
};

class MappedFile {
public:
    using Geometry = std::array<uint64_t, 4>; // what the kind wants to remember of its layout
    // The header has a page of its own. Its kind may use what lies behind `kind_area`.
    static constexpr uint64_t header_bytes = 4096;
    static constexpr uint64_t kind_area = 256;

    // Makes the file under another name, lets `fill` write into it (it begins as zeros) and gives
    // it its name at the end, so that half a file is never found. Its room on the disk is reserved.
    // Replaces a file of that name. Throws StateError, with nothing left behind.
    static MappedFile create(const std::filesystem::path &path, const FileKind &kind,
                             const Geometry &geometry, uint64_t total_bytes,
                             const std::function<void(std::byte *data)> &fill,
                             uintptr_t address = 0);
    // Throws StateError for a file that is missing, truncated, of another kind or version or not
    // ours, and when the address, if one is given, is taken.
    static MappedFile open(const std::filesystem::path &path, const FileKind &kind, Access access,
                           uintptr_t address = 0);
    static bool exists(const std::filesystem::path &path);

    ~MappedFile();
    MappedFile(MappedFile &&other) noexcept;
    MappedFile(const MappedFile &) = delete;
    MappedFile &operator=(const MappedFile &) = delete;
    MappedFile &operator=(MappedFile &&) = delete;

    std::byte *data() const { return data_; } // the header included
    uint64_t bytes() const { return bytes_; }
    const Geometry &geometry() const;
    const std::filesystem::path &path() const { return path_; }
    [[noreturn]] void fail(const std::string &why) const; // StateError "PATH: why"

    // Makes the file larger; data() may move. False, with nothing changed, when there is no room.
    bool grow(uint64_t total_bytes) noexcept;

private:
    MappedFile(std::filesystem::path path, int descriptor);
    void reserve(uint64_t total_bytes) const;
    void map(uint64_t total_bytes, Access access, uintptr_t address);
    void check_header(const FileKind &kind) const;

    std::filesystem::path path_;
    int descriptor_ = -1;
    std::byte *data_ = nullptr;
    uint64_t bytes_ = 0;
};

} // namespace vlc
