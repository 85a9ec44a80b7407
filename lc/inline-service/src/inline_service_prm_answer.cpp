// PRM's late answers: read until none is left, and said in the log when they failed.

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "inline_service_log.h"
#include "inline_service_prm.h"
#include "platform_error_text.h"

using namespace inline_service;

namespace {

constexpr int report_buffer_bytes = 256;

// What a reference number names. Kept: a name shows at most seven characters.
constexpr int shown_name_bytes = 8;
constexpr const char *table_names[] = {"Service conf Table", "Ext Conf Table", "Unknown"};
constexpr const char *operation_names[] = {"Add",  "Modify", "Delete", "Del_all",
                                           "Info", "Get",    "Unknown"};
static_assert(std::size(table_names) == 3 && std::size(operation_names) == 7);

class ShownName {
public:
    template <size_t Count>
    ShownName(const char *const (&names)[Count], uint32_t number)
    {
        snprintf(text_, sizeof text_, "%s", names[std::min<size_t>(number, Count - 1)]);
    }
    const char *text() const { return text_; }

private:
    char text_[shown_name_bytes];
};

uint32_t table_of(uint32_t refnum)
{
    return refnum & PRM_REFNUM_TABLE_MASK;
}

uint32_t operation_of(uint32_t refnum)
{
    return refnum >> PRM_REFNUM_OP_SHIFT & 0xFF;
}

void log_summary(const prm_async_response &response)
{
    static constexpr char on_service_config[] =
        "Async Error on Service CONF: rc=%s (0x%x) on %s %s route NP%d";
    static constexpr char on_ext_conf[] =
        "Async Error on Ext Datadb CONF: rc=%s (0x%x) on %s %s route NP%d";
    static constexpr char on_other[] = "Async Error: rc=%s (0x%x) on %s %s refnum 0x%08x NP%d";
    const ShownName table_name(table_names, table_of(response.refnum));
    const ShownName operation_name(operation_names, operation_of(response.refnum));
    const char *table = table_name.text();
    const char *operation = operation_name.text();
    const uint32_t status = response.status;
    const uint32_t refnum = response.refnum;
    const uint32_t np = response.np;
    const char *error = cerr_strerror(status);
    switch (table_of(refnum)) {
    case PRM_TABLE_SERVICE_CONFIG:
        inline_svc_trace_error(on_service_config, error, status, table, operation, np);
        break;
    case PRM_TABLE_EXT_CONF:
        inline_svc_trace_error(on_ext_conf, error, status, table, operation, np);
        break;
    default:
        inline_svc_trace_error(on_other, error, status, table, operation, refnum, np);
        break;
    }
}

void log_failure(const prm_async_response &response)
{
    static constexpr char text[] =
        "PRM async call failed(v4): np %d flags 0x%x refnum 0x%x key_size %d "
        "res_size %d Err:%s";
    const auto &[np, flags, status, refnum, vrf_id, key_size, unused, key, result_size, result] =
        response;
    const char *error = cerr_strerror(status);
    inline_svc_trace_error(text, np, flags, refnum, key_size, result_size, error);
}

// Reads answers until the queue is empty, the delay queue's turn comes or a read fails. The first
// failed answer stays in `first`; all after it go through `later`.
bool drain(void *handle, prm_async_response *first, prm_async_response *later)
{
    bool failure_seen = false;
    for (;;) {
        prm_async_response *response = failure_seen ? later : first;
        const uint32_t rc = prm_srh_async_resp_data(handle, response);
        if (rc == PRM_RESPONSE_QUEUE_EMPTY)
            return failure_seen;
        if (table_of(response->refnum) == PRM_REFNUM_DELAY_QUEUE) {
            prm_srh_delay_queue_process(response->refnum);
            return failure_seen; // PRM calls again for what is left
        }
        if (rc != 0) {
            const char *error = cerr_strerror(rc);
            inline_svc_trace_error("prm_srh_async_resp_data() error: rc=%#x(%s)", rc, error);
            return failure_seen;
        }
        if (response->status != 0) {
            log_failure(*response);
            failure_seen = true;
        }
    }
}

} // namespace

void inline_svc_prm_async_resp_handler(void)
{
    prm_async_response first = {};
    prm_async_response later = {};
    if (pgbl_ptr == nullptr || pgbl_ptr->shadow_db == nullptr) {
        inline_svc_trace_error("global context  missing \n");
        return;
    }
    if (drain(pgbl_ptr->shadow_db->prm_srh_hdl, &first, &later))
        inline_svc_catastrophic_recovery(&first);
    // Kept: a summary ends every drain, of what came after the first failure, so also of nothing.
    log_summary(later);
}

void inline_svc_catastrophic_recovery(const prm_async_response *response)
{
    if (response == nullptr)
        return;
    char text[report_buffer_bytes];
    snprintf(text, sizeof text,
             "Error encountered while programming the hw. FIB will be reset and routes will be "
             "reprogrammed.Error = 0x%08x, np_id = %d, ref_num = 0x%08x vrf id = %d",
             response->status, response->np, response->refnum, response->vrf_id);
    inline_svc_trace_error("PRM connection error %s", text);

    // What the buffer holds of a key or result lies inside the record, whatever its size claims.
    const auto *bytes = reinterpret_cast<const uint8_t *>(response);
    static_assert(offsetof(prm_async_response, result) + report_buffer_bytes / 2 <=
                  sizeof(prm_async_response));
    if (response->key_size != 0) {
        inline_svc_format_hex(text, sizeof text, bytes + offsetof(prm_async_response, key),
                              static_cast<int32_t>(response->key_size), "key");
        inline_svc_trace_error("key %s", text);
    }
    if (response->result_size == 0)
        return;
    inline_svc_format_hex(text, sizeof text, bytes + offsetof(prm_async_response, result),
                          static_cast<int32_t>(response->result_size), "result");
    inline_svc_trace_error("result %s", text);
}

void inline_svc_format_hex(char *buffer, int32_t size, const void *bytes, int32_t length,
                           const char *label)
{
    if (buffer == nullptr || size <= 0)
        return;
    const int header = snprintf(buffer, static_cast<size_t>(size),
                                "%s <len %d>: ", label != nullptr ? label : "", length);
    if (bytes == nullptr)
        return;
    const auto *byte = static_cast<const uint8_t *>(bytes);
    int used = header; // past the end when the header was cut, and then no byte fits
    for (int32_t i = 0; i < length && size - used >= 3; ++i, used += 2)
        snprintf(buffer + used, 3, "%02x", byte[i]);
}
