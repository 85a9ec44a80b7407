// The host's context, the handles in it, and the library's small exported objects.

#include "inline_service_context.h"

#include <cerrno>

#include <unistd.h>

#include "inline_service_log.h"
#include "inline_service_shadowdb.h"

inline_svc_global_cntx *pgbl_ptr = nullptr;
shadow_db *pshadow_db = nullptr;
uint16_t NUM_LC_NPS = 0;
uint8_t engine_conn_error = 0;

uint32_t spp_ui_in_progress = 0;
uint64_t spp_ui_retval = 0;
uint32_t imp_cmd_codes = 0;
void *the_punt_decode_hash = nullptr;
uint8_t u32x4_compare_word_mask_table[256] = {};

uint64_t ed_dummy_libinline_service_infra[4] = {};
uint64_t ed_perf_dummy_libinline_service_infra[4] = {};

using namespace inline_service;

namespace {

constexpr unsigned dummy_init_seconds = 20;

uint32_t hand_out(void *handle, void **out, const char *getter = __builtin_FUNCTION())
{
    if (out == nullptr)
        return refuse_null("out", getter);
    *out = handle;
    return 0;
}

} // namespace

uint32_t inline_svc_set_global_cntx(inline_svc_global_cntx *context)
{
    pgbl_ptr = context; // Kept: also when the call is refused below
    inline_svc_trace(" set the global context \n");
    if (context == nullptr || context->shadow_db == nullptr)
        return ENOMEM;
    pshadow_db = context->shadow_db;
    inline_svc_trace(" finish set the global context \n");
    return 0;
}

uint32_t inline_svc_dummy_init(void)
{
    sleep(dummy_init_seconds); // Kept: the pause is what the host calls it for
    return 0;
}

uint32_t inline_svc_get_prm_conn_hdl(void **out)
{
    if (pgbl_ptr == nullptr) {
        inline_svc_trace_error("pgbl_ptr is NULL");
        return EINVAL;
    }
    if (pgbl_ptr->prm_conn == nullptr) {
        inline_svc_trace_error("pgbl_ptr->prm_conn is NULL, prm hdl not initialized");
        return EINVAL;
    }
    return hand_out(pgbl_ptr->prm_conn, out);
}

uint32_t inline_svc_get_inline_evm(void **out)
{
    if (pgbl_ptr == nullptr) {
        inline_svc_trace_error("pgbl_ptr is NULL");
        return EINVAL;
    }
    if (pgbl_ptr->inline_evm == nullptr) {
        inline_svc_trace_error("pgbl_ptr->inline_evm is NULL, evm not initialized");
        return EINVAL;
    }
    return hand_out(pgbl_ptr->inline_evm, out);
}

uint32_t inline_svc_get_uidb_conn_hdl(void **out)
{
    if (pgbl_ptr == nullptr)
        return refuse_null("pgbl_ptr");
    if (pgbl_ptr->uidb_conn == nullptr) {
        // Kept: the text names the other handle; operators search for it as it is.
        inline_svc_trace_error("pgbl_ptr->uidb_conn is NULL, prm hdl not initialized");
        return EINVAL;
    }
    return hand_out(pgbl_ptr->uidb_conn, out);
}
