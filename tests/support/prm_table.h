// The two tables that the library programs into each NP: how each is reached and what is said of
// it.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "inline_service_prm.h"
#include "service_recorder.h"

namespace test {

// What one operation on a table is called and says. The failure is the line for PRM's code 5.
struct PrmOperation {
    uint32_t action;
    const char *service;
    uint32_t refnum;
    const char *entered;
    const char *succeeded;
    const char *failed_with_5;
};

struct PrmTable {
    const char *name; // as part of a test's name
    uint32_t table_type;
    uint32_t (*update)(shmem_node *);
    PrmOperation add, modify, remove;
    const char *rx_taken; // in front of the index
    const char *drop_taken;
    const char *rx_refused_with_12;
    const char *drop_refused_with_12;
    const char *rx_refused_with_22;
    const char *drop_refused_with_22;
    const char *free_refused_with_22;

    std::vector<PrmOperation> operations() const { return {add, modify, remove}; }
};

inline void PrintTo(const PrmTable &table, std::ostream *out)
{
    *out << table.name;
}

extern const PrmTable service_config_table;
extern const PrmTable ext_conf_table;
std::vector<PrmTable> prm_tables();

// A request for a table, with the record as PRM was given it.
struct PrmRequest {
    std::string service;
    void *handle;
    prm_config_record record;
};

// Copies every request for a table on its way to PRM, and answers in PRM's place where told to.
class PrmRequests {
public:
    explicit PrmRequests(ServiceRecorder &services);
    const std::vector<PrmRequest> &all() const { return requests_; }
    void forget() { requests_.clear(); }
    void answer_all(uint32_t result);             // PRM hears of none
    void answer_np(uint32_t np, uint32_t result); // PRM hears of those for the other NPs
    std::vector<uint32_t> nps() const;            // in the order of the requests

private:
    std::optional<uint64_t> on_request(const vlc::ServiceCall &call);

    std::vector<PrmRequest> requests_;
    std::optional<uint32_t> answer_;
    std::optional<uint32_t> only_np_;
};

} // namespace test
