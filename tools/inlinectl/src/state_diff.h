// What two states have apart.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "snapshot.h"

namespace inlinectl {

// A word of what a difference is about.
struct DiffLabel {
    const char *name;
    std::string text;
    bool is_number = false;
};
using DiffLabels = std::vector<DiffLabel>;

struct DiffField {
    std::string name;
    std::string first;
    std::string second;
};

class DiffSink {
public:
    virtual ~DiffSink() = default;
    virtual void begin(const char *section) = 0;
    virtual void only_in_first(const DiffLabels &labels) = 0;
    virtual void only_in_second(const DiffLabels &labels) = 0;
    virtual void changed(const DiffLabels &labels, const DiffField &field) = 0; // once a field
    virtual void end() = 0;                                                     // of the section
};

// "card", "keys", "entries", ...
std::vector<std::string> diff_sections();

struct DiffSelection {
    std::set<std::string> only; // sections; empty for all
    bool counts = false;        // packets, bytes and what else grows without anybody's change
};

void compare(const Snapshot &first, const Snapshot &second, const DiffSelection &selection,
             DiffSink &sink);

} // namespace inlinectl
