#include "prm_table.h"

#include <algorithm>
#include <iterator>

namespace test {

const PrmTable service_config_table = {
    .name = "ServiceConfig",
    .table_type = 0,
    .update = inline_svc_prm_service_table_update,
    .add = {1, "prm_srh_service_config_add", 0x000, "SVC CONF add enter: \n",
            "SVC CONF add succesful: \n", "SVC CONF add failed:  rc=Input/output error (5)"},
    .modify = {2, "prm_srh_service_config_mod", 0x100, "SVC CONF modify enter: \n",
               "SVC CONF modify successful: \n",
               "SVC CONF modification failed:  rc=Input/output error (5)"},
    .remove = {3, "prm_srh_service_config_del", 0x200, "SVC CONF delete enter: \n",
               "SVC CONF delete successful: \n",
               "SVC CONF delete failed:  rc=Input/output error (5)"},
    .rx_taken = "SVC CONF ADD stat RX index ",
    .drop_taken = "SVC CONF ADD stat DROP index ",
    .rx_refused_with_12 = "SVC CONF ADD get stat failed:  rc=Cannot allocate memory (12)",
    .drop_refused_with_12 = "SVC CONF ADD get stat failed:  rc=Cannot allocate memory (12)",
    .rx_refused_with_22 = "SVC CONF ADD get stat failed:  rc=Invalid argument (22)",
    .drop_refused_with_22 = "SVC CONF ADD get stat failed:  rc=Invalid argument (22)",
    .free_refused_with_22 = "SVC CONF DEL free stat failed:  rc=Invalid argument (22)",
};

const PrmTable ext_conf_table = {
    .name = "ExtConf",
    .table_type = 1,
    .update = inline_svc_prm_ext_table_update,
    .add = {1, "prm_srh_ext_service_db_add", 0x001, "SVC EXT_DB add enter",
            "SVC EXT_DB add succesful: \n", "SVC EXT_DB add failed:  rc=Input/output error (5)"},
    .modify = {2, "prm_srh_ext_service_db_mod", 0x101, "SVC EXT_DB modify enter",
               "SVC EXT_DB modify successful: \n",
               "SVC EXT_DB modification failed:  rc=Input/output error (5)"},
    .remove = {3, "prm_srh_ext_service_db_del", 0x201, "SVC EXT_DB delete enter",
               "SVC EXT_DB delete successful: \n",
               "SVC EXT_DB delete failed:  rc=Input/output error (5)"},
    .rx_taken = "SVC EXT_DB ADD stat RX index ",
    .drop_taken = "SVC EXT_DB ADD stat DROP index ",
    .rx_refused_with_12 = "SVC EXT_DB ADD get rx stat failed:  rc=Cannot allocate memory (12)",
    .drop_refused_with_12 = "SVC EXT_DB ADD get drop stat failed:  rc=Cannot allocate memory (12)",
    .rx_refused_with_22 = "SVC EXT_DB ADD get rx stat failed:  rc=Invalid argument (22)",
    .drop_refused_with_22 = "SVC EXT_DB ADD get drop stat failed:  rc=Invalid argument (22)",
    .free_refused_with_22 = "SVC EXT_DB DEL free stat failed:  rc=Invalid argument (22)",
};

std::vector<PrmTable> prm_tables()
{
    return {service_config_table, ext_conf_table};
}

PrmRequests::PrmRequests(ServiceRecorder &services)
{
    for (const PrmTable &table : prm_tables()) {
        for (const PrmOperation &operation : table.operations())
            services.script(operation.service,
                            [this](const vlc::ServiceCall &call) { return on_request(call); });
    }
}

void PrmRequests::answer_all(uint32_t result)
{
    answer_ = result;
    only_np_.reset();
}

void PrmRequests::answer_np(uint32_t np, uint32_t result)
{
    answer_ = result;
    only_np_ = np;
}

std::vector<uint32_t> PrmRequests::nps() const
{
    std::vector<uint32_t> nps;
    std::transform(requests_.begin(), requests_.end(), std::back_inserter(nps),
                   [](const PrmRequest &request) { return request.record.np; });
    return nps;
}

std::optional<uint64_t> PrmRequests::on_request(const vlc::ServiceCall &call)
{
    const auto *record = reinterpret_cast<const prm_config_record *>(call.args[1]);
    requests_.push_back({call.service, reinterpret_cast<void *>(call.args[0]), *record});
    if (!answer_ || (only_np_ && *only_np_ != record->np))
        return std::nullopt;
    return *answer_;
}

} // namespace test
