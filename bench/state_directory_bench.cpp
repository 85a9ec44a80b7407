// A state directory of 100,000 entries, 30,000 of them with counters: what a host's start and an
// audit cost, against reading once the bytes that are in its files.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "card_hardware.h"
#include "flow_audit.h"
#include "large_state.h"
#include "paired.h"
#include "shadow_audit.h"
#include "vlc/data_plane.h"
#include "vlc/virtual_line_card.h"

namespace {

namespace fs = std::filesystem;

// What is not written of a file costs nothing to read, and is not read.
uint64_t read_file(const fs::path &path)
{
    static std::vector<char> buffer(size_t{1} << 17);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        throw std::runtime_error(path.string() + " cannot be read");
    uint64_t bytes = 0;
    for (off_t begin = lseek(file, 0, SEEK_DATA); begin >= 0;) {
        const off_t end = lseek(file, begin, SEEK_HOLE);
        while (begin < end) {
            const size_t wanted = std::min(buffer.size(), static_cast<size_t>(end - begin));
            const ssize_t got = pread(file, buffer.data(), wanted, begin);
            if (got <= 0)
                throw std::runtime_error(path.string() + " cannot be read");
            begin += got;
            bytes += static_cast<uint64_t>(got);
        }
        begin = lseek(file, end, SEEK_DATA);
    }
    close(file);
    return bytes;
}

uint64_t read_directory(const fs::path &directory)
{
    uint64_t bytes = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory))
        if (entry.is_regular_file())
            bytes += read_file(entry.path());
    return bytes;
}

void start_host(const fs::path &directory)
{
    const vlc::VirtualLineCard card(*vlc::stored_card(directory), directory);
    benchmark::DoNotOptimize(card.data_path_statistics_started());
}

void audit(const fs::path &directory)
{
    const vlc::StateDirectory host(directory, vlc::Access::read_only);
    const auto card = vlc::look_into_directory(directory);
    const inlinectl::CardHardware hardware(*card);
    const vlc::Window window(host, 0);
    const services::AuditInput input{.root = static_cast<const shadow_db *>(window.root()),
                                     .in_shared_memory = inlinectl::in_window(window),
                                     .counters_unswapped =
                                         vlc::takes_counters_unswapped(card->config().card_type),
                                     .first_counter = vlc::CounterBank::first,
                                     .counter_count = vlc::CounterBank::count,
                                     .num_nps = card->config().num_nps,
                                     .hardware = &hardware};
    services::AuditReport report = services::audit(input);
    services::audit_flows(input, report);
    if (!report.clean())
        throw std::runtime_error("the audit found: " + report.findings.front().text);
}

} // namespace

int main(int argc, char **argv)
{
    std::string name = (fs::temp_directory_path() / "bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        std::fprintf(stderr, "state_directory_bench: no directory could be made: %s\n",
                     name.c_str());
        return 1;
    }
    const fs::path directory = name;
    test::make_large_state(directory, {.nps = 2, .rowless = 0});
    start_host(directory); // what a first start adds to the directory is there from now on
    benchmark::AddCustomContext("bytes", std::to_string(read_directory(directory)));
    const auto add = [&directory](const char *what, void (*work)(const fs::path &), double gate,
                                  double aim) {
        const auto times = [&directory](auto once) {
            return [&directory, once](size_t operations) {
                for (size_t i = 0; i < operations; ++i)
                    once(directory);
            };
        };
        bench::add_pair({.what = what,
                         .reference = "read(2) of its bytes",
                         .ours = times(work),
                         .other = times(read_directory),
                         .operations = 1,
                         .gate = gate,
                         .aim = aim,
                         .pairs = 51});
    };
    add("start of a host on 100,000 entries", start_host, 10, 3);
    add("audit of 100,000 entries", audit, 50, 20);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    fs::remove_all(directory);
    return 0;
}
