// The insert of one entry into eight NPs, with its lines of the log, against the least that it can
// be: the writes of the same ready lines, one by one, and the eight bare calls of PRM's function.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "inserted_entry.h"
#include "own_tmp.h"
#include "paired.h"
#include "platform_prm.h"

namespace {

constexpr const char *log_file = "/tmp/inline_svc_log";
constexpr const char *bare_file = "/tmp/bare_lines";
constexpr int64_t size_limit = 10000000;
constexpr size_t inserts_a_slice = 10;

// The lines of the insert that was last made, each with its end.
std::vector<std::string> last_lines(size_t count)
{
    std::ifstream log(log_file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);)
        lines.push_back(line + "\n");
    return {lines.end() - static_cast<ptrdiff_t>(count), lines.end()};
}

size_t lines_in_log()
{
    std::ifstream log(log_file);
    size_t count = 0;
    for (std::string line; std::getline(log, line);)
        ++count;
    return count;
}

// A line that ends in a line end of its own is one write, with the empty line after it.
std::vector<std::string> as_written(const std::vector<std::string> &lines)
{
    std::vector<std::string> written;
    for (const std::string &line : lines) {
        if (line == "\n" && !written.empty())
            written.back() += line;
        else
            written.push_back(line);
    }
    return written;
}

// One kind of entry: ours, and what it is held against.
class Inserts {
public:
    explicit Inserts(bool with_counters)
        : entries_(with_counters), descriptor_(open(bare_file, O_WRONLY | O_CREAT | O_APPEND, 0644))
    {
        const size_t before = lines_in_log();
        entries_.insert();
        lines_ = as_written(last_lines(lines_in_log() - before));
        if (entries_.stored() != 2 || lines_.size() < 20)
            throw std::logic_error("the entry was not inserted");
        record_.kind = PRM_RECORD_KIND;
    }

    void insert(size_t times)
    {
        for (size_t i = 0; i < times; ++i)
            entries_.insert();
    }

    void write_and_call(size_t times)
    {
        for (size_t i = 0; i < times; ++i) {
            for (const std::string &line : lines_)
                benchmark::DoNotOptimize(write(descriptor_, line.data(), line.size()));
            for (record_.np = 0; record_.np < bench::InsertedEntries::num_nps; ++record_.np)
                benchmark::DoNotOptimize(prm_srh_service_config_add(&record_, &record_));
        }
    }

    void tidy()
    {
        entries_.forget_others();
        if (lseek(descriptor_, 0, SEEK_END) > size_limit && ftruncate(descriptor_, 0) != 0)
            std::abort();
    }

    size_t lines() const { return lines_.size(); }

private:
    bench::InsertedEntries entries_;
    int descriptor_;
    std::vector<std::string> lines_;
    prm_config_record record_ = {};
};

// One host at a time, made when its row is measured.
Inserts &inserts_of(bool with_counters)
{
    static std::unique_ptr<Inserts> made;
    static bool made_with_counters = false;
    if (made == nullptr || made_with_counters != with_counters) {
        made.reset();
        made = std::make_unique<Inserts>(with_counters);
        made_with_counters = with_counters;
    }
    return *made;
}

void add_row(const std::string &what, bool with_counters, double gate, double aim)
{
    bench::add_pair(
        {.what = what,
         .reference = "its lines as raw writes, 8 bare calls",
         .ours = [=](size_t times) { inserts_of(with_counters).insert(times); },
         .other = [=](size_t times) { inserts_of(with_counters).write_and_call(times); },
         .operations = inserts_a_slice,
         .gate = gate,
         .aim = aim,
         .long_slices = true,
         .between = [=] { inserts_of(with_counters).tidy(); }});
}

} // namespace

// insert_bench DIRECTORY ext4|tmpfs [options of the benchmarks]
int main(int argc, char **argv)
{
    const std::string file_system = bench::enter_own_tmp_of(argc, argv);
    const bool in_memory = file_system == "tmpfs";
    const double gate = in_memory ? 1.25 : 1.2;
    const double aim = in_memory ? 1.16 : 1.13;
    add_row("insert, 8 NPs, " + file_system, false, gate, aim);
    add_row("insert with counters, 8 NPs, " + file_system, true, gate, aim);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
