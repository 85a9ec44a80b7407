// What an audit found, and how it is shown.
#pragma once

#include <filesystem>
#include <ostream>

#include "shadow_audit.h"
#include "terminal.h"
#include "vlc/card_config.h"

namespace inlinectl {

struct AuditOutcome {
    std::filesystem::path state_directory;
    vlc::CardConfig card;
    services::AuditReport report;
};

void write_text(std::ostream &out, const AuditOutcome &outcome, const Style &style);
void write_json(std::ostream &out, const AuditOutcome &outcome);

} // namespace inlinectl
