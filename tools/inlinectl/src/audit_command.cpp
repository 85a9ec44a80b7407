#include "audit_command.h"

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

#include "audit_options.h"
#include "audit_report.h"
#include "card_hardware.h"
#include "exit_code.h"
#include "flow_audit.h"
#include "standard_streams.h"
#include "vlc/card_access.h"
#include "vlc/data_plane.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"
#include "vlc/window.h"

namespace inlinectl {
namespace {

// A host's window and the hardware under it, for looking alone.
class AuditedState {
public:
    explicit AuditedState(const AuditOptions &options)
        : host_(opened(*options.state_directory)), card_(card_of(options)), hardware_(*card_)
    {
        const vlc::CardConfig &card = card_->config();
        if (card.num_nps != host_.card()->num_nps || card.card_type != host_.card()->card_type)
            throw UsageError(options.state_directory->string() + ": is the host of another card");
    }

    const vlc::CardConfig &card() const { return card_->config(); }

    // The window is opened anew for each look, since that is what checks it.
    services::AuditReport look() const
    {
        const vlc::Window window(host_, 0);
        const services::AuditInput input{.root = static_cast<const shadow_db *>(window.root()),
                                         .in_shared_memory = in_window(window),
                                         .counters_unswapped =
                                             vlc::takes_counters_unswapped(card().card_type),
                                         .first_counter = vlc::CounterBank::first,
                                         .counter_count = vlc::CounterBank::count,
                                         .num_nps = card().num_nps,
                                         .hardware = &hardware_};
        services::AuditReport report = services::audit(input);
        services::audit_flows(input, report);
        return report;
    }

private:
    static vlc::StateDirectory opened(const std::filesystem::path &path)
    {
        vlc::StateDirectory directory(path, vlc::Access::read_only);
        directory.require(vlc::Holdings::host);
        if (!directory.card())
            throw UsageError(path.string() + ": is not complete: its card was never up");
        return directory;
    }

    std::unique_ptr<vlc::CardAccess> card_of(const AuditOptions &options) const
    {
        if (options.card_socket)
            return vlc::look_into_card(*options.card_socket);
        if (options.card_directory)
            return vlc::look_into_directory(*options.card_directory);
        if (host_.holdings() == vlc::Holdings::host)
            throw UsageError(host_.path().string() +
                             ": is a host's alone; say where its card is with --card-state or "
                             "--connect");
        return vlc::look_into_directory(host_.path());
    }

    vlc::StateDirectory host_;
    std::unique_ptr<vlc::CardAccess> card_;
    CardHardware hardware_;
};

// A host that is at work meanwhile changes one after the other, so a look may find between what is
// no difference a moment later. What two looks find is one.
services::AuditReport steady_look(const AuditedState &state)
{
    services::AuditReport report = state.look();
    constexpr int more_looks = 2;
    for (int i = 0; i < more_looks && !report.clean(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::set<std::string> before;
        for (services::Finding &finding : report.findings)
            before.insert(std::move(finding.text));
        report = state.look();
        std::erase_if(report.findings, [&before](const services::Finding &finding) {
            return !before.contains(finding.text);
        });
    }
    return report;
}

int perform_audit(const AuditOptions &options)
{
    const AuditedState state(options);
    const AuditOutcome outcome{*options.state_directory, state.card(), steady_look(state)};
    if (options.json)
        write_json(std::cout, outcome);
    else
        write_text(std::cout, outcome, standard_output_style());
    return exit_code_of_report(outcome.report.clean() ? exit_fine : exit_failed);
}

int audit(const AuditOptions &options)
{
    try {
        return perform_audit(options);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

} // namespace

Command audit_command()
{
    const auto options = std::make_shared<AuditOptions>();
    return {.name = "audit",
            .summary = "Compare a host's shadow DB with the hardware",
            .words_hint = "the state is given with --state",
            .declare = [options](CLI::App &app) { declare_audit_options(app, *options); },
            .check = [options] { check_audit_options(*options); },
            .perform = [options] { return audit(*options); }};
}

} // namespace inlinectl
