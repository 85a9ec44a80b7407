#include "flow_run.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "exit_code.h"

namespace inlinectl {

namespace {

constexpr int64_t events_in_idle_time = 64; // a few to an interval of the walker

flow_layout::Tuple tuple_of(const vlc::FiveTuple &tuple)
{
    return {.source = tuple.source,
            .destination = tuple.destination,
            .source_port = tuple.source_port,
            .destination_port = tuple.destination_port,
            .protocol = tuple.protocol};
}

} // namespace

// One line a flow, as flows end.
class FlowRun::Export {
public:
    explicit Export(const std::filesystem::path &file) : path_(file), out_(file, std::ios::trunc)
    {
        if (!out_)
            throw UsageError(file.string() + ": cannot be written: " + std::strerror(errno));
    }
    void write(const services::FlowAccount &account) { out_ << export_line(account) << "\n"; }
    // Empty, or what is wrong.
    std::string finish()
    {
        out_.close();
        return out_ ? "" : path_.string() + ": not all flows could be written";
    }

private:
    std::filesystem::path path_;
    std::ofstream out_;
};

FlowRun::FlowRun(const FlowChoice &choice, vlc::VirtualLineCard &card, CardSession &session,
                 std::function<void()> look)
    : card_(card), session_(session), look_(std::move(look)),
      between_events_(choice.options.idle_time.count() / events_in_idle_time),
      export_(choice.export_file ? std::make_unique<Export>(*choice.export_file) : nullptr),
      service_(
          choice.options,
          {.now = [this] { return now_; },
           .after =
               [this](std::chrono::nanoseconds delay, std::function<void()> task) {
                   card_.events().after(delay, std::move(task));
               },
           .last_packet = [this](const flow_layout::Tuple &flow) { return last_packet_of(flow); }},
          [this](const services::FlowAccount &account) { account_for(account); })
{
    card_.on_flow_scan([this](std::span<void *const> records) { service_.look_at(records); });
    card_.access().on_flow_miss([this](const vlc::FlowMiss &miss) {
        service_.add(tuple_of(miss.tuple), miss.np, miss.nanoseconds);
        note_change();
    });
    service_.start_walking();
}

FlowRun::~FlowRun()
{
    card_.access().on_flow_miss({});
    card_.on_flow_scan({});
}

void FlowRun::pass_time_to(const vlc::CapturedPacket &packet)
{
    if (now_ == 0)
        events_ran_at_ = packet.nanoseconds;
    else if (packet.nanoseconds > now_)
        vlc::CardClock::advance(std::chrono::nanoseconds(packet.nanoseconds - now_));
    now_ = std::max(now_, packet.nanoseconds);
    if (now_ - events_ran_at_ < between_events_)
        return;
    events_ran_at_ = now_;
    card_.access().settle(); // the walker looks at flows with all their packets
    session_.run_what_is_ready();
}

// Packets of a flow come to one NP, on however many it is programmed.
std::optional<int64_t> FlowRun::last_packet_of(const flow_layout::Tuple &flow)
{
    std::optional<int64_t> last;
    const flow_layout::Key key = flow_layout::key_of(flow);
    for (uint32_t np = 0; np < card_.config().num_nps; ++np) {
        const auto activity = card_.access().flow_activity(np, key);
        if (activity && activity->last_packet != 0)
            last = std::max(last.value_or(activity->last_packet), activity->last_packet);
    }
    return last;
}

void FlowRun::account_for(const services::FlowAccount &account)
{
    report_.take(account);
    if (export_)
        export_->write(account);
    note_change();
}

void FlowRun::note_change()
{
    constexpr uint32_t changes_between_looks = 64;
    if (++changes_ < changes_between_looks)
        return;
    changes_ = 0;
    look_();
}

FlowReport FlowRun::finish()
{
    for (const services::FlowAccount &account : service_.active())
        account_for(account);
    report_.active = service_.flows();
    report_.sums = service_.sums();
    if (export_) {
        if (std::string unwritten = export_->finish(); !unwritten.empty())
            report_.problems.push_back(std::move(unwritten));
    }
    return std::move(report_);
}

} // namespace inlinectl
