// Makes chosen source files of the library log one message each, without a card: several streams
// on the one log file, in any order.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_cmdlist.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "inline_service_packet.h"
#include "inline_service_prm.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"
#include "inline_service_vservice.h"
#include "service_recorder.h"
#include "vlc/event_manager.h"

namespace test {

class LogSpeakers {
public:
    // The source files by what they are about; each has a stream of its own.
    enum Source {
        stat,
        prm,
        prm_table,
        prm_answer,
        context,
        shadow_db,
        app,
        log,
        attributes,
        cmdlist,
        vservice,
        hash,
        flowdb,
        flow_prm,
        packet,
        source_count
    };
    static constexpr size_t stamp_length = 20;
    static constexpr size_t shortest_stat_message = 46;

    LogSpeakers()
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        context_.shadow_db = &root_;
        pgbl_ptr = &context_;
        pshadow_db = &root_;
        NUM_LC_NPS = 1;
        root_.vservice_db = &table_of_vservices_;
        plm_vservice_init(0, 0, 0, 0);
        services.force("prm_stats_cl_read", 5);
        services.force("shmwin_malloc", 12);
        services.script("prm_stats_err_string", [this](const vlc::ServiceCall &) {
            return std::optional<uint64_t>(reinterpret_cast<uint64_t>(text_.c_str()));
        });
    }
    ~LogSpeakers()
    {
        root_.vservice_db = nullptr;
        plm_vservice_init(0, 0, 0, 0);
        pgbl_ptr = nullptr;
        pshadow_db = nullptr;
        NUM_LC_NPS = 0;
    }
    LogSpeakers(const LogSpeakers &) = delete;
    LogSpeakers &operator=(const LogSpeakers &) = delete;

    // Has the source log one message and returns it, as its format and arguments make it.
    std::string speak(Source source)
    {
        switch (source) {
        case stat:
            return speak_at_length(shortest_stat_message);
        case prm:
            inline_svc_log_prm_state(&root_);
            return " PRM NOT ready and conn down \n";
        case prm_table:
            inline_svc_prm_update(nullptr);
            return "node pass NUL in prm update \n";
        case prm_answer:
            inline_svc_catastrophic_recovery(&answer_);
            return "PRM connection error Error encountered while programming the hw. FIB will be "
                   "reset and routes will be reprogrammed.Error = 0x00000000, np_id = 0, ref_num = "
                   "0x00000000 vrf id = 0";
        case context: {
            void *out = nullptr;
            inline_svc_get_prm_conn_hdl(&out);
            return "pgbl_ptr->prm_conn is NULL, prm hdl not initialized";
        }
        case shadow_db:
            inline_svc_shared_mem_alloc(77);
            return "shared memory alloc failed c 77";
        case app:
            inline_svc_shadow_db_insert_action_array(nullptr);
            return " no update action is not present ";
        case log: // where refusals of null arguments are written
            inline_svc_list_create(nullptr);
            return "list is NULL in inline_svc_list_create";
        case attributes:
            inline_api_set_uidb_to_vqi(UIDB_ATTRIBUTES, 0);
            return "Invalid uidb_index 4096";
        case cmdlist: {
            command_input in{};
            in.key_len = 33;
            plm_inline_insert_cmd_to_list(0, 0, 0, &in, SHADOW_DB_CREATE, 0, nullptr);
            return "command too long: key 33 result 0";
        }
        case vservice: {
            const vservice_message of_no_known_type{0, 0, 9, 0};
            plm_vservice_msg_handler(&of_no_known_type);
            return "vmsg: type 9 count 0\n";
        }
        case hash: {
            in_hash_table without_hash{};
            in_hash_insert(&without_hash, &text_);
            std::array<char, 64> line{};
            const void *entry = &text_;
            snprintf(line.data(), line.size(), "hash of entry %p is outside the table", entry);
            return line.data();
        }
        case flowdb:
            flowdb_init(UINT32_MAX, nullptr, nullptr);
            return "flow table of 4294967295 buckets is too large";
        case flow_prm: {
            flow_record record{};
            record.key_len = 33;
            prm_config_record entry;
            inline_flow_make_prm_entry(&record, &entry);
            return "flow entry too long: key 33 result 0";
        }
        case packet:
            inline_register_inutil_callback(INUTIL_KINDS, nullptr);
            return "no utility messages of kind 3";
        case source_count:
            break;
        }
        abort();
    }

    // A message of exactly this many characters, the newline at its end among them.
    std::string speak_at_length(size_t length)
    {
        const std::string begin = " Cannot read stat  stats of chip 0 for , RC= ";
        text_.assign(length - begin.size() - 1, 'x');
        stats_sum sum = {};
        inline_svc_get_stat_per_np(0, 1, &sum);
        services.forget();
        return begin + text_ + "\n";
    }

    ServiceRecorder services;

private:
    inline_svc_global_cntx context_{};
    ::shadow_db root_{};
    prm_async_response answer_{};
    vservice_config table_of_vservices_{}; // never used, but there
    std::string text_;
};

} // namespace test
