#include "flow_worker.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench_card.h"
#include "flow_layout.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "numbered_flows.h"
#include "own_tmp.h"

namespace bench {

namespace {

constexpr uint64_t record_block = 320; // a record with its block's word, in units of 16
constexpr uint64_t window_rest = uint64_t{64} << 20;
constexpr uint64_t np_bytes_a_flow = 220; // row, count, cell, counter and index
constexpr uint32_t requests_before_answers = 256;

struct Order {
    FlowWork work;
    uint32_t flows;
};

struct Report {
    bool good;
    double spent; // time of the processor, in nanoseconds
};

double processor_time()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

vlc::CardConfig card_for(uint32_t flows)
{
    vlc::CardConfig config;
    config.num_nps = FlowWorker::nps;
    config.flow_capacity = flows / FlowWorker::nps;
    config.dynamic_counters = flows / FlowWorker::nps;
    config.window_bytes = flows * (record_block + sizeof(void *)) + window_rest;
    return config;
}

// What the worker's process holds.
class FlowsOfCard {
public:
    explicit FlowsOfCard(uint32_t flows) : card_(card_for(flows)), leaving_(flows)
    {
        bench::flow_buckets = flows;
        pshadow_db->flow_db = flowdb_init(flows, bench::bucket_of_flow, bench::has_flow_key);
        dpss_flow_table_init(0, 0, 0, 0);
        std::iota(leaving_.begin(), leaving_.end(), 0);
        std::shuffle(leaving_.begin(), leaving_.end(), std::mt19937(1));
    }

    bool carry_out(const Order &order)
    {
        bool good = true;
        for (uint32_t i = 0; i < order.flows; ++i) {
            good = (order.work == FlowWork::add ? add_next() : remove_next()) && good;
            if (++requests_ % requests_before_answers == 0)
                card_.run_events();
        }
        return good;
    }

private:
    bool add_next()
    {
        const uint32_t number = added_;
        added_ = (added_ + 1) % bench::flow_buckets;
        flow_layout::FlowInfo info;
        info.tuple.source = number;
        return dpss_flow_add_modify(bench::flow_key_of(number), number % FlowWorker::nps, 1,
                                    &info) == 0;
    }
    bool remove_next()
    {
        const uint32_t number = leaving_[removed_];
        removed_ = (removed_ + 1) % bench::flow_buckets;
        return dpss_flow_delete(bench::flow_key_of(number)) == 0;
    }

    BenchCard card_;
    std::vector<uint32_t> leaving_; // the order in which they go
    uint32_t added_ = 0;
    uint32_t removed_ = 0;
    uint32_t requests_ = 0;
};

// Serves orders until the other end is gone.
void serve(int connection, const std::filesystem::path &directory, uint32_t flows)
{
    enter_own_tmp(directory);
    FlowsOfCard card(flows);
    Report report{pshadow_db->flow_db != nullptr, 0};
    while (write(connection, &report, sizeof report) == sizeof report) {
        Order order{};
        if (read(connection, &order, sizeof order) != sizeof order)
            return;
        const double begin = processor_time();
        report.good = card.carry_out(order);
        report.spent += processor_time() - begin;
    }
}

std::filesystem::path made_directory(const std::filesystem::path &parent)
{
    std::string name = (parent / "flows-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error(name + " cannot be made");
    return name;
}

} // namespace

FlowWorker::FlowWorker(const std::filesystem::path &parent, uint32_t flows)
    : directory_(made_directory(parent)), most_(flows)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("no pair of sockets can be made");
    fflush(nullptr);
    process_ = fork();
    if (process_ < 0)
        throw std::runtime_error("no process can be made");
    if (process_ == 0) {
        close(ends[0]);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        try {
            serve(ends[1], directory_, flows);
        } catch (const std::exception &error) {
            fprintf(stderr, "%s\n", error.what());
        }
        _exit(0);
    }
    close(ends[1]);
    connection_ = ends[0];
    read_report();
}

FlowWorker::~FlowWorker()
{
    shutdown(connection_, SHUT_RDWR); // other workers hold this end too, as of their fork
    close(connection_);
    waitpid(process_, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

void FlowWorker::work(FlowWork work, uint32_t flows)
{
    const Order order{work, flows};
    if (write(connection_, &order, sizeof order) != sizeof order)
        throw std::runtime_error("a card has ended");
    read_report();
    held_ = work == FlowWork::add ? held_ + flows : held_ - flows;
}

void FlowWorker::read_report()
{
    Report report{};
    if (read(connection_, &report, sizeof report) != sizeof report || !report.good)
        throw std::runtime_error("a card refuses a flow, or has ended");
    spent_ = report.spent;
}

uint64_t FlowWorker::bytes_for(uint32_t flows)
{
    return card_for(flows).window_bytes + flows * np_bytes_a_flow;
}

} // namespace bench
