#include "capture_scan.h"

#include <algorithm>
#include <unordered_set>

#include "exit_code.h"
#include "interrupt.h"
#include "vlc/capture_reader.h"

namespace inlinectl {
namespace {

constexpr uint64_t packets_between_looks = 4096;

class Scanner {
public:
    explicit Scanner(Progress &progress) : progress_(progress) {}

    void read(const std::filesystem::path &file, size_t place, size_t files)
    {
        std::error_code ignored;
        if (std::filesystem::exists(file, ignored) &&
            !std::filesystem::is_regular_file(file, ignored))
            throw UsageError(file.string() + ": not a regular file, and captures are read twice");
        vlc::CaptureReader reader(file);
        vlc::CapturedPacket packet{};
        while (!interrupted() && reader.next(&packet)) {
            take(packet);
            if (++packets_ % packets_between_looks == 0)
                progress_.show("reading", share(place, files, reader.progress()), packets_,
                               "packets");
        }
    }

    CaptureScan result() const
    {
        CaptureScan scan{.destinations = {}, .packets = packets_};
        for (const uint64_t packed : seen_)
            scan.destinations.push_back({static_cast<uint8_t>(packed >> 48),
                                         static_cast<uint32_t>(packed >> 16),
                                         static_cast<uint16_t>(packed)});
        std::ranges::sort(scan.destinations);
        return scan;
    }

private:
    static double share(size_t place, size_t files, double of_this)
    {
        return (static_cast<double>(place) + of_this) / static_cast<double>(files);
    }

    void take(const vlc::CapturedPacket &packet)
    {
        const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
        if (parsed.unreadable != vlc::Unreadable::none)
            return;
        const vlc::FiveTuple &tuple = parsed.tuple;
        seen_.insert(uint64_t{tuple.protocol} << 48 | uint64_t{tuple.destination} << 16 |
                     tuple.destination_port);
    }

    Progress &progress_;
    std::unordered_set<uint64_t> seen_;
    uint64_t packets_ = 0;
};

} // namespace

CaptureScan scan_captures(const std::vector<std::filesystem::path> &files, Progress &progress)
{
    Scanner scanner(progress);
    for (size_t place = 0; place < files.size(); ++place)
        scanner.read(files[place], place, files.size());
    progress.clear();
    return scanner.result();
}

} // namespace inlinectl
