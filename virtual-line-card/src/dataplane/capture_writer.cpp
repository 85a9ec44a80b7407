// Captures through libpcap.
#include "vlc/capture_writer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <pcap/pcap.h>

#include "vlc/state_error.h"

namespace vlc {
namespace {

constexpr int longest_packet = 65535;

struct CloseFile {
    void operator()(FILE *file) const { std::fclose(file); }
};
struct ClosePcap {
    void operator()(pcap_t *pcap) const { pcap_close(pcap); }
};

} // namespace

struct CaptureWriter::State {
    std::filesystem::path path;
    std::unique_ptr<pcap_t, ClosePcap> pcap;
    pcap_dumper_t *dumper = nullptr;
    int error = 0;

    [[noreturn]] void refuse(const std::string &why) const
    {
        throw StateError(path.string() + ": cannot be written: " + why);
    }
    void remember_error()
    {
        if (error == 0 && std::ferror(pcap_dump_file(dumper)) != 0) {
            error = errno != 0 ? errno : EIO;
        }
    }
    ~State()
    {
        if (dumper != nullptr) {
            pcap_dump_close(dumper);
        }
    }
};

CaptureWriter::CaptureWriter(const std::filesystem::path &file) : state_(std::make_unique<State>())
{
    State &state = *state_;
    state.path = file;
    std::unique_ptr<FILE, CloseFile> opened(std::fopen(file.c_str(), "wbe"));
    if (!opened) {
        state.refuse(std::strerror(errno));
    }
    state.pcap.reset(
        pcap_open_dead_with_tstamp_precision(DLT_IPV4, longest_packet, PCAP_TSTAMP_PRECISION_NANO));
    if (state.pcap) {
        state.dumper = pcap_dump_fopen(state.pcap.get(), opened.get());
    }
    if (state.dumper == nullptr) {
        state.refuse(state.pcap ? pcap_geterr(state.pcap.get()) : std::strerror(ENOMEM));
    }
    opened.release(); // the dumper's now
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(const EncapsulatedPacket &packet) noexcept
{
    constexpr int64_t second = 1'000'000'000;
    std::array<uint8_t, longest_packet> bytes;
    const size_t inner = std::min(packet.inner.size(), bytes.size() - packet.headers.size());
    std::copy_n(packet.headers.begin(), packet.headers.size(), bytes.begin());
    std::copy_n(packet.inner.begin(), inner, bytes.begin() + packet.headers.size());
    pcap_pkthdr header{};
    header.ts.tv_sec = packet.nanoseconds / second;
    header.ts.tv_usec = packet.nanoseconds % second; // nanoseconds, as the file says
    if (header.ts.tv_usec < 0) {
        header.ts.tv_usec += second;
        --header.ts.tv_sec;
    }
    header.caplen = static_cast<uint32_t>(packet.headers.size() + inner);
    header.len = packet.wire_length;
    pcap_dump(reinterpret_cast<u_char *>(state_->dumper), &header, bytes.data());
    state_->remember_error();
}

void CaptureWriter::finish()
{
    State &state = *state_;
    if (pcap_dump_flush(state.dumper) != 0 && state.error == 0) {
        state.error = errno;
    }
    if (state.error != 0) {
        state.refuse(std::strerror(state.error));
    }
}

} // namespace vlc
