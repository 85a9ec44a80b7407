// Walks the flow table without trusting it, as the shadow DB is walked.
#pragma once

#include <unordered_set>
#include <vector>

#include "inline_service_flowdb.h"
#include "shadow_audit.h"

namespace services {

// A flow in a chain, as it was when the walk came by.
struct StoredFlow {
    const flow_record *address;
    flow_record content;

    bool has_row() const; // its lengths are such as a row can have
    bool is_on(uint32_t np) const;
    bool has_stats() const { return (content.flags & FLOW_HAS_STATS) != 0; }
};

// Fills in the findings of kinds count_wrong and list_broken.
class FlowWalk {
public:
    FlowWalk(const AuditInput &input, AuditReport &report) : input_(input), report_(report) {}
    // Of the root's table; nothing without one.
    std::vector<StoredFlow> run();

private:
    const in_hash_table *table_of_root() const;
    void walk_chain(uint32_t bucket, const void *head);
    bool readable(const void *address, size_t bytes) const;
    void broken(const std::string &text);

    const AuditInput &input_;
    AuditReport &report_;
    std::unordered_set<const void *> seen_; // of every chain
    std::vector<StoredFlow> flows_;
};

// "flow 00000000000004d2 (4f0a...)"
std::string text_of(const StoredFlow &flow);

} // namespace services
