/* A host in C: starts the library, programs one entry if it is not there, reads its counts. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host_platform.h"
#include "inline_service_app.h"
#include "inline_service_context.h"
#include "inline_service_prm.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"
#include "platform_shared_window.h"

static inline_svc_global_cntx context; /* the library keeps its address */

static int connected(void)
{
    return NUM_LC_NPS == context.num_nps && (context.shadow_db->conn_state & SHADOW_DB_READY) != 0;
}

static uint32_t start(const platform_handles *platform)
{
    shadow_db *root = platform->root;
    void *block = NULL;
    uint32_t code = 0;
    if (root == NULL) {
        if ((code = shmwin_malloc(platform->window_id, sizeof *root, &block)) != 0)
            return code;
        root = memset(block, 0, sizeof *root);
        platform_publish_root(root); /* once it is zeroed, not before */
    }
    context.inline_evm = platform->event_manager;
    context.shadow_db = root;
    context.shmwin_id = platform->window_id;
    context.num_nps = platform->num_nps;
    if ((code = inline_svc_set_global_cntx(&context)) != 0 ||
        (code = inline_svc_shadow_db_initialized(0, 0, 0, 0)) != 0)
        return code;
    root->initialized = 1;
    if ((code = inline_svc_prm_init()) != 0)
        return code;
    if (!platform_run_until(connected))
        return 22;
    root->stats_state = 1;
    return 0;
}

/* phase 1 begins an interface, 0 is one entry, 2 ends an interface. */
static void on_statistics(uint32_t key, uint32_t entry_id, uint32_t phase, uint32_t a, uint32_t b)
{
    if (phase == 0)
        printf("key %u entry %u: %u packets, %u bytes\n", key, entry_id, a, b);
}

static uint32_t program(uint32_t key, uint32_t entry_id)
{
    /* UDP to 192.0.2.1 port 53; a result that counts, on a counter that the library puts in */
    static const uint8_t lookup[] = {0x11, 17, 192, 0, 2, 1, 0, 53};
    static const uint8_t result[] = {1, 0, 0, 0, 0, 0, 0, 7};
    action_array batch = {.uidb_index = (uint16_t)key, .app_ID = 1, .num_node = 1};
    app_node_element request = {.app_node = {.key_len = sizeof lookup,
                                             .result_len = sizeof result,
                                             .entry_id = entry_id,
                                             .table_type = SHADOW_DB_SERVICE_CONFIG,
                                             .action = SHADOW_DB_CREATE}};
    list_link *element;
    uint32_t code;
    memcpy(request.app_node.key, lookup, sizeof lookup);
    memcpy(request.app_node.result, result, sizeof result);
    if ((code = inline_svc_list_create(&batch.node_list)) != 0 ||
        (code = inline_svc_app_node_insert(&batch.node_list, request)) != 0)
        return code;
    element = batch.node_list.first; /* the library's copy is the caller's to free */
    code = inline_svc_shadow_db_insert_action_array(&batch);
    inline_svc_list_destroy(&batch.node_list);
    free(element);
    /* A failed insertion clears the key and may return 0: look whether the entry is there. */
    if (code == 0 && inline_svc_shadow_db_query_main(key) == NULL)
        code = 12;
    return code;
}

int main(int argc, char **argv)
{
    const app_registration service = {.app_type = 1, .stats_handler = on_statistics};
    const uint32_t key = inline_shadow_db_appid_to_key(1, 1);
    platform_handles platform;
    uint32_t code;
    if (argc != 2 || platform_open(argv[1], &platform) != 0)
        return 2;
    if ((code = start(&platform)) == 0 && (code = inline_svc_app_register(&service)) == 0) {
        if (inline_svc_shadow_db_query_main(key) != NULL)
            puts("the entry is there");
        else if ((code = program(key, 7)) == 0)
            puts("the entry is programmed");
    }
    if (code == 0)
        code = inline_svc_stats_collection();
    platform_close();
    if (code != 0)
        fprintf(stderr, "host: failed with code %u\n", code);
    return code == 0 ? 0 : 1;
}
