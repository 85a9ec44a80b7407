// A platform of stand-ins, and a host on it: what a program links that measures the library alone.
#pragma once

#include <cstdint>

#include "inline_service_context.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"

namespace bench {

extern volatile uint32_t np_of_last_request; // of PRM
extern uint32_t counters_of_an_np;           // the size of each NP's region, for the next host

// The library's context and root, with nothing programmed. One at a time.
class StandInHost {
public:
    explicit StandInHost(uint16_t num_nps);
    StandInHost(const StandInHost &) = delete;
    StandInHost &operator=(const StandInHost &) = delete;

    inline_svc_global_cntx &context() { return context_; }
    shadow_db &root() { return root_; }
    uint32_t stored_under(uint32_t key, uint32_t table) const
    {
        return root_.main_table[key]->num_elements[table];
    }

private:
    inline_svc_global_cntx context_;
    shadow_db root_;
};

} // namespace bench
