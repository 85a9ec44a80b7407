// PRM's statistics client.
#include <cerrno>

#include "card_services.h"
#include "error_text.h"
#include "platform_prm_stats.h"
#include "prm_client.h"
#include "statistics_tables.h"
#include "tap_words.h"

using vlc::CardServices;
using vlc::forced_as;
using vlc::PrmClient;
using vlc::tapped_call;

uint32_t prm_stats_cl_pre_init(void)
{
    if (auto forced = tapped_call("prm_stats_cl_pre_init"))
        return forced_as<uint32_t>(*forced);
    const PrmClient *prm = CardServices::prm_client();
    return prm ? prm->prepare_statistics() : EINVAL;
}

uint32_t prm_stats_cl_get_stateless_double_start(void)
{
    if (auto forced = tapped_call("prm_stats_cl_get_stateless_double_start"))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->counter_region().start : 0;
}

uint32_t prm_stats_cl_get_stateless_double_size(void)
{
    if (auto forced = tapped_call("prm_stats_cl_get_stateless_double_size"))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->counter_region().size : 0;
}

uint32_t prm_stats_cl_read(void *client, uint32_t counter, uint32_t np, uint32_t *mode,
                           uint64_t double_counter[2], void *unused, uint32_t option)
{
    if (auto forced = tapped_call("prm_stats_cl_read", client, counter, np, mode, double_counter,
                                  unused, option))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    if (!prm || !mode || *mode != PRM_STATS_MODE)
        return EINVAL;
    return prm->read_counter(np, counter, option, double_counter);
}

uint32_t prm_stats_cl_alloc(void *client, uint32_t table_id, uint32_t client_kind, uint32_t kind,
                            uint32_t *count, uint32_t *counter)
{
    if (auto forced =
            tapped_call("prm_stats_cl_alloc", client, table_id, client_kind, kind, count, counter))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    if (!prm || client_kind != PRM_STATS_DPSS_CLIENT || kind != PRM_STATS_DPSS_KIND || !count ||
        !counter)
        return EINVAL;
    const std::optional<uint32_t> np = vlc::np_of_statistics_table(table_id);
    return np ? prm->take_counters(*np, *count, counter) : uint32_t{vlc::prm_bad_statistics_table};
}

uint32_t prm_stats_cl_free(void *client, uint32_t table_id, uint32_t counter)
{
    if (auto forced = tapped_call("prm_stats_cl_free", client, table_id, counter))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    if (!prm)
        return EINVAL;
    const std::optional<uint32_t> np = vlc::np_of_statistics_table(table_id);
    return np ? prm->give_counters_back(*np, counter) : uint32_t{vlc::prm_bad_statistics_table};
}

uint32_t prm_stats_cl_get_phy_stats_ptr(uint32_t counter)
{
    if (auto forced = tapped_call("prm_stats_cl_get_phy_stats_ptr", counter))
        return forced_as<uint32_t>(*forced);
    return vlc::DynamicCounters::address_of(counter);
}

const char *prm_stats_err_string(uint32_t code)
{
    if (auto forced = tapped_call("prm_stats_err_string", code))
        return forced_as<const char *>(*forced);
    return vlc::error_text(code);
}
