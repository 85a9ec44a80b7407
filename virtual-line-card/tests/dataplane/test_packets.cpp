#include "test_packets.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace test_packets {

Frame from_hex(std::string_view text)
{
    std::string digits;
    std::ranges::copy_if(text, std::back_inserter(digits), [](char c) { return c != ' '; });
    Frame frame(digits.size() / 2);
    for (size_t i = 0; i < frame.size(); ++i) {
        const char *pair = digits.data() + 2 * i;
        if (std::from_chars(pair, pair + 2, frame[i], 16).ptr != pair + 2) {
            throw std::invalid_argument("not hexadecimal: " + digits.substr(2 * i, 2));
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("half a byte: " + digits);
    }
    return frame;
}

uint32_t address(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
    return uint32_t{a} << 24 | uint32_t{b} << 16 | uint32_t{c} << 8 | d;
}

GuardedBytes::GuardedBytes(size_t capacity) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE)))
{
    readable_ = (capacity + page_ - 1) / page_ * page_;
    void *memory = mmap(nullptr, readable_ + page_, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    memory_ = static_cast<uint8_t *>(memory);
    mprotect(memory_ + readable_, page_, PROT_NONE);
}

GuardedBytes::~GuardedBytes()
{
    munmap(memory_, readable_ + page_);
}

std::span<const uint8_t> GuardedBytes::hold(std::span<const uint8_t> bytes)
{
    uint8_t *begin = memory_ + readable_ - bytes.size();
    std::ranges::copy(bytes, begin);
    return {begin, bytes.size()};
}

namespace {

void append_32(Frame &file, uint32_t number)
{
    for (uint32_t shift = 0; shift < 32; shift += 8) {
        file.push_back(static_cast<uint8_t>(number >> shift));
    }
}

} // namespace

Frame pcap_bytes(uint32_t link, const std::vector<Record> &records)
{
    Frame file = from_hex("d4c3b2a1 0200 0400 00000000 00000000 00000400"); // little endian, µs
    append_32(file, link);
    uint32_t microseconds = 0;
    for (const Record &record : records) {
        append_32(file, 1'700'000'000);
        append_32(file, ++microseconds);
        append_32(file, static_cast<uint32_t>(record.bytes.size()));
        append_32(file, record.wire_length);
        file.insert(file.end(), record.bytes.begin(), record.bytes.end());
    }
    return file;
}

void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

vlc::CapturedPacket captured(vlc::LinkType link, std::span<const uint8_t> bytes)
{
    return {link, bytes, static_cast<uint32_t>(bytes.size()), 0};
}

TemporaryDirectory::TemporaryDirectory()
{
    std::string path = std::filesystem::temp_directory_path() / "dataplane-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("no temporary directory: " + std::string(std::strerror(errno)));
    }
    path_ = path;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace test_packets
