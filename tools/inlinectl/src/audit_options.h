// What `inlinectl audit` was asked for.
#pragma once

#include <filesystem>
#include <optional>

namespace CLI {
class App;
}

namespace inlinectl {

struct AuditOptions {
    std::optional<std::filesystem::path> state_directory; // the host's
    std::optional<std::filesystem::path> card_directory;  // the card's, where it is another
    std::optional<std::filesystem::path> card_socket;     // of a card that runs
    bool json = false;
};

// Declares the options, which must outlive the parsing.
void declare_audit_options(CLI::App &audit, AuditOptions &options);

// Throws UsageError for what is missing or cannot be asked for together.
void check_audit_options(const AuditOptions &options);

} // namespace inlinectl
