// Captures through libpcap.
#include "vlc/capture_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <pcap/pcap.h>
#include <sys/stat.h>

#include "vlc/state_error.h"

namespace vlc {
namespace {

constexpr size_t read_buffer_bytes = size_t{1} << 20;

struct CloseFile {
    void operator()(FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

struct ClosePcap {
    void operator()(pcap_t *pcap) const { pcap_close(pcap); }
};

[[noreturn]] void refuse(const std::filesystem::path &path, const std::string &why)
{
    throw StateError(path.string() + ": " + why);
}

// Fills in the size, 0 for what has none (a pipe).
File open_file(const std::filesystem::path &path, uint64_t *size)
{
    File file(std::fopen(path.c_str(), "rbe"));
    struct stat status;
    if (!file || fstat(fileno(file.get()), &status) != 0) {
        refuse(path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        refuse(path, "is a directory, not a capture");
    }
    if (S_ISREG(status.st_mode) && status.st_size == 0) {
        refuse(path, "is empty, not a capture");
    }
    *size = S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
    std::setvbuf(file.get(), nullptr, _IOFBF, read_buffer_bytes);
    return file;
}

LinkType link_type(const std::filesystem::path &path, pcap_t *pcap)
{
    const int number = pcap_datalink(pcap);
    if (number == DLT_EN10MB) {
        return LinkType::ethernet;
    }
    if (number == DLT_LINUX_SLL) {
        return LinkType::linux_sll;
    }
    const char *name = pcap_datalink_val_to_name(number);
    refuse(path, "link type " + (name ? std::string(name) : std::to_string(number)) +
                     " is not supported, only Ethernet (EN10MB) and LINUX_SLL are");
}

int64_t nanoseconds(const timeval &stamp)
{
    // Read with nanosecond precision; a damaged stamp may be too large and wraps.
    return static_cast<int64_t>(static_cast<uint64_t>(stamp.tv_sec) * 1'000'000'000u +
                                static_cast<uint64_t>(stamp.tv_usec));
}

} // namespace

struct CaptureReader::State {
    std::filesystem::path path;
    std::string name; // without the directory
    uint64_t size = 0;
    FILE *file = nullptr; // belongs to pcap
    std::unique_ptr<pcap_t, ClosePcap> pcap;
    LinkType link{};
    uint64_t packets = 0;
    bool at_end = false;
};

CaptureReader::CaptureReader(const std::filesystem::path &file) : state_(std::make_unique<State>())
{
    state_->path = file;
    state_->name = file.filename().string();
    File opened = open_file(file, &state_->size);
    char error[PCAP_ERRBUF_SIZE] = {};
    state_->pcap.reset(
        pcap_fopen_offline_with_tstamp_precision(opened.get(), PCAP_TSTAMP_PRECISION_NANO, error));
    if (!state_->pcap) {
        refuse(file, std::string("is no capture that can be read: ") + error);
    }
    state_->file = opened.release();
    state_->link = link_type(file, state_->pcap.get());
}

CaptureReader::~CaptureReader() = default;
CaptureReader::CaptureReader(CaptureReader &&) noexcept = default;

bool CaptureReader::next(CapturedPacket *packet)
{
    State &state = *state_;
    if (state.at_end) {
        return false;
    }
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    const int result = pcap_next_ex(state.pcap.get(), &header, &bytes);
    if (result == 1) {
        ++state.packets;
        *packet = {
            state.link, {bytes, header->caplen}, header->len, nanoseconds(header->ts), state.name};
        return true;
    }
    state.at_end = true;
    if (result == PCAP_ERROR_BREAK) { // libpcap's word for the end of the file
        return false;
    }
    refuse(state.path, "packet " + std::to_string(state.packets + 1) +
                           " cannot be read: " + pcap_geterr(state.pcap.get()));
}

double CaptureReader::progress() const
{
    if (state_->at_end) {
        return 1.0;
    }
    const off_t place = ftello(state_->file);
    if (state_->size == 0 || place < 0) {
        return 0.0;
    }
    return std::min(1.0, static_cast<double>(place) / static_cast<double>(state_->size));
}

} // namespace vlc
