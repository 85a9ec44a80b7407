#include "private_card.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace test {
namespace {

struct Mapping {
    uintptr_t begin;
    uintptr_t end;
    std::string path;
};

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

std::vector<Mapping> mappings_of(const std::string &directory)
{
    std::vector<Mapping> found;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const size_t path = line.find(directory + "/");
        Mapping mapping = {};
        if (path != std::string::npos && std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR,
                                                     &mapping.begin, &mapping.end) == 2) {
            mapping.path = line.substr(path);
            found.push_back(mapping);
        }
    }
    return found;
}

void map_over(const Mapping &mapping, int descriptor, int flags)
{
    void *wanted = reinterpret_cast<void *>(mapping.begin);
    const size_t bytes = mapping.end - mapping.begin;
    if (mmap(wanted, bytes, PROT_READ | PROT_WRITE, flags | MAP_FIXED, descriptor, 0) != wanted)
        fail("mmap " + mapping.path);
}

// A file that grows is grown through its descriptor, so the copy takes the descriptor's place too.
void put_in_place_of(const std::string &path, int copy)
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored; // the iterator's own descriptor is listed too
        if (std::filesystem::read_symlink(entry.path(), ignored) == path &&
            dup2(copy, std::stoi(entry.path().filename())) < 0)
            fail("dup2 " + path);
    }
}

void copy_over(const Mapping &mapping)
{
    const int from = open(mapping.path.c_str(), O_RDONLY | O_CLOEXEC);
    const int copy = memfd_create("copy", MFD_CLOEXEC);
    struct stat status = {};
    if (from < 0 || copy < 0 || fstat(from, &status) != 0)
        fail("copy " + mapping.path);
    const auto bytes = static_cast<size_t>(status.st_size);
    for (size_t done = 0; done < bytes;) {
        const ssize_t sent = sendfile(copy, from, nullptr, bytes - done);
        if (sent <= 0)
            fail("copy " + mapping.path);
        done += static_cast<size_t>(sent);
    }
    close(from);
    map_over(mapping, copy, MAP_SHARED);
    put_in_place_of(mapping.path, copy);
    close(copy);
}

} // namespace

void make_card_private(const std::filesystem::path &state_directory)
{
    const std::string queues = state_directory.string() + "/answers";
    for (const Mapping &mapping : mappings_of(state_directory.string())) {
        if (mapping.path.starts_with(queues)) {
            copy_over(mapping);
            continue;
        }
        const int file = open(mapping.path.c_str(), O_RDWR | O_CLOEXEC);
        if (file < 0)
            fail("open " + mapping.path);
        map_over(mapping, file, MAP_PRIVATE);
        close(file);
    }
}

} // namespace test
