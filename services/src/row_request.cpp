#include "row_request.h"

#include <algorithm>
#include <cerrno>

#include "platform_prm.h"

namespace services {
namespace {

using RequestFunction = uint32_t (*)(void *handle, prm_config_record *record);

constexpr RequestFunction functions[][3] = {
    {prm_srh_service_config_add, prm_srh_service_config_mod, prm_srh_service_config_del},
    {prm_srh_ext_service_db_add, prm_srh_ext_service_db_mod, prm_srh_ext_service_db_del},
    {prm_srh_flow_db_add, prm_srh_flow_db_mod, prm_srh_flow_db_del},
};

// Requests for flows carry the ext conf table's.
uint32_t number_of(uint32_t table)
{
    return table == flow_table ? uint32_t{PRM_TABLE_EXT_CONF} : table;
}

} // namespace

uint32_t send(void *handle, const RowRequest &request)
{
    if (request.key.size() > PRM_KEY_BYTES || request.result.size() > PRM_RESULT_BYTES)
        return EINVAL;
    prm_config_record record{};
    record.np = request.np;
    record.kind = PRM_RECORD_KIND;
    record.refnum = request.operation << PRM_REFNUM_OP_SHIFT | number_of(request.table);
    record.key_len = static_cast<uint32_t>(request.key.size());
    std::ranges::copy(request.key, record.key);
    record.result_len = static_cast<uint32_t>(request.result.size());
    std::ranges::copy(request.result, record.result);
    return functions[request.table][request.operation](handle, &record);
}

} // namespace services
