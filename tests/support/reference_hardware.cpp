// The reference's entries in the hardware: requests, counters, statistics.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform_prm.h"
#include "reference_model.h"

namespace test {
namespace {

constexpr Service request_services[2][3] = {
    {Service::prm_srh_service_config_add, Service::prm_srh_service_config_mod,
     Service::prm_srh_service_config_del},
    {Service::prm_srh_ext_service_db_add, Service::prm_srh_ext_service_db_mod,
     Service::prm_srh_ext_service_db_del}};

bool has_counters(const app_node &content)
{
    return content.table_type == SHADOW_DB_EXT_CONF || content.hw_index != SHADOW_DB_NO_HW_INDEX;
}

} // namespace

uint32_t ReferenceModel::program(ModelNode &node)
{
    const app_node &content = node.content;
    if (content.key_len > SHADOW_DB_KEY_BYTES || content.result_len > SHADOW_DB_RESULT_BYTES)
        return EINVAL;
    const bool counted = has_counters(content);
    std::string result(reinterpret_cast<const char *>(content.result), SHADOW_DB_RESULT_BYTES);
    uint32_t rc = 0; // that of the last NP, whatever the others said
    for (uint32_t np = 0; np < rules_.nps; ++np) {
        if (content.action == SHADOW_DB_CREATE && counted) {
            take_counter(np, &node.rx[np]);
            take_counter(np, &node.drop[np]);
        }
        if (counted || content.action == SHADOW_DB_DELETE)
            encode(node.rx[np], &result);
        rc = request(np, content, result);
        if (content.action == SHADOW_DB_DELETE && counted) {
            give_back(node.rx[np], np);
            rc = give_back(node.drop[np], np); // hides what became of the request
        }
    }
    return rc;
}

// On most cards the number's outer bytes change places in the node with every use.
void ReferenceModel::encode(uint32_t &rx, std::string *result) const
{
    if (!turns_round_) {
        memcpy(result->data() + 1, reinterpret_cast<const char *>(&rx) + 1, 3);
        return;
    }
    rx = (rx & 0xFF00FF00) | (rx & 0xFF) << 16 | (rx >> 16 & 0xFF);
    memcpy(result->data() + 1, &rx, 3);
}

uint32_t ReferenceModel::request(uint32_t np, const app_node &content, const std::string &result)
{
    const uint32_t operation = content.action - SHADOW_DB_CREATE;
    const auto forced = call(request_services[content.table_type][operation], np);
    const uint32_t rc =
        forced ? static_cast<uint32_t>(*forced)
               : card.request(np, content.table_type, operation,
                              {reinterpret_cast<const char *>(content.key), content.key_len},
                              result.substr(0, content.result_len));
    if (rc != 0)
        call(Service::cerr_strerror);
    return rc;
}

void ReferenceModel::take_counter(uint32_t np, uint32_t *number)
{
    const uint32_t size =
        value_of(Service::prm_stats_cl_get_stateless_double_size, ModelCard::counter_count);
    const uint32_t start =
        value_of(Service::prm_stats_cl_get_stateless_double_start, ModelCard::first_counter);
    // One word of 32 more than the region.
    std::vector<bool> &bitmap = counters_in_use[np];
    const auto end = bitmap.begin() + static_cast<ptrdiff_t>(size / 32 * 32 + 32);
    const auto free = std::find(bitmap.begin(), end, false);
    if (free == end) {
        call(Service::cerr_strerror);
        return; // the entry goes on with the number that it had
    }
    *free = true;
    *number = start + static_cast<uint32_t>(free - bitmap.begin());
    if (call(Service::prm_stats_cl_read) || !card.read_and_clear(np, *number))
        call(Service::cerr_strerror); // the counter is taken all the same
}

uint32_t ReferenceModel::give_back(uint32_t number, uint32_t np)
{
    const uint32_t size =
        value_of(Service::prm_stats_cl_get_stateless_double_size, ModelCard::counter_count);
    const uint32_t start =
        value_of(Service::prm_stats_cl_get_stateless_double_start, ModelCard::first_counter);
    if (number < start || number > start + size) {
        call(Service::cerr_strerror);
        return EINVAL;
    }
    counters_in_use[np][number - start] = false;
    return 0;
}

std::vector<StatReport> ReferenceModel::collect()
{
    std::vector<StatReport> reports;
    for (auto &[key, entry] : entries) {
        if (!has_stats_callback[(key >> 8) + 1])
            continue;
        reports.push_back({key, 0, 1, 0, 0});
        for (const ModelTable &table : entry.tables) {
            for (const NodePointer &node : table.listed) {
                if (node->content.entry_id != SHADOW_DB_NO_ENTRY_ID)
                    report_node(*node, key, &reports);
            }
        }
        ++entry.stat_round;
        reports.push_back({key, 0, 2, entry.stat_round, 0});
    }
    return reports;
}

void ReferenceModel::report_node(const ModelNode &node, uint16_t key,
                                 std::vector<StatReport> *reports)
{
    StatReport report = {key, node.content.entry_id, 0, 0, 0};
    for (uint32_t np = 0; np < rules_.nps; ++np) {
        if (node.rx[np] == 0)
            continue;
        ModelCount count;
        if (call(Service::prm_stats_cl_read) || !card.read(np, node.rx[np], &count)) {
            call(Service::prm_stats_err_string);
            continue;
        }
        report.a += static_cast<uint32_t>(count.packets);
        report.b += static_cast<uint32_t>(count.bytes);
    }
    reports->push_back(report);
}

} // namespace test
