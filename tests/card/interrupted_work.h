// Work that a host may be killed in: a few entries that are there before, one batch, and how to
// tell afterwards that nothing is lost and nothing is half done.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "killable_host.h"

namespace test {

// An entry as a service knows it.
struct KnownEntry {
    uint16_t main_key;
    uint32_t id;
    uint32_t table;
    std::string key;
    std::string result; // empty: the entry is not there
    uint32_t hw_index = 0;
};

struct Work {
    const char *name;
    std::vector<KnownEntry> before; // only what the work changes
    std::vector<KnownEntry> after;
    std::function<void()> perform; // does what of it is still to be done
};

std::vector<Work> all_works();
std::vector<Work> works_on_one_entry(); // the same, each on a single entry

// Programs the entries that every work begins with. The host ends in peace.
void prepare_work(const CardKind &kind, const std::filesystem::path &directory);

// In a started host after a kill: settles, and expects that the audit finds nothing, that another
// settlement has nothing to do, that entries the work does not touch are as they were, and each of
// the others as before or as after. Then finishes the work and looks again.
void expect_settled(KillableHost &host, const Work &work);

} // namespace test
