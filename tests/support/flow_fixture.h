// What the tests of flows share: a running card on which a stand-in answers for PRM's flow table,
// for its dynamic counters and for the flow service's encoders, and keeps what it was asked.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "inline_service_flowdb.h"
#include "inline_service_hash.h"
#include "platform_flow.h"
#include "platform_prm_stats.h"
#include "shadow_fixture.h"

namespace test {

// A request for the flow table, with the record as PRM was given it.
struct FlowRequest {
    std::string service;
    uint64_t handle;
    prm_config_record record;

    std::vector<uint8_t> result(size_t from, size_t count) const
    {
        return {record.result + from, record.result + from + count};
    }
};

// What prm_stats_cl_alloc was asked for.
struct CounterRun {
    uint64_t client;
    uint64_t table_id, first_word, second_word;
    uint32_t count;
    bool operator==(const CounterRun &) const = default;
};

// Answers what nobody else answers: it stands behind the recorder, whose forces and scripts come
// first. It sees every call all the same.
class FlowPlatform {
public:
    explicit FlowPlatform(ServiceRecorder &services)
        : tap_([this](const vlc::ServiceCall &call) { return answer(call); })
    {
        services.observe([this](const vlc::ServiceCall &call) { see(call); });
    }

    // How an NP's table of counters is numbered, and where PRM says that a counter lies: in more
    // than the 24 bits that an NP is told.
    static uint32_t table_id_of(uint32_t np) { return 0x7100 + np; }
    static uint32_t address_of(uint32_t counter) { return 0xFE000000 + counter * 0x1003; }

    std::set<uint32_t> nps_without_table;
    uint32_t next_counter = 0xA1B2C3;
    std::map<std::pair<uint32_t, uint32_t>, std::array<uint64_t, 2>> counts; // by NP and counter
    std::string key = "flow key", result = "flow result", user_data = "user data";
    uint32_t has_policer = 0;

    std::vector<FlowRequest> requests;
    std::vector<CounterRun> taken;
    std::vector<std::pair<uint64_t, uint64_t>> given_back; // table id and counter
    std::vector<std::vector<void *>> scanned;
    std::function<void(const vlc::ServiceCall &)> also; // sees each call too

private:
    void see(const vlc::ServiceCall &call)
    {
        const std::string service = call.service;
        if (service.rfind("prm_srh_flow_db_", 0) == 0)
            requests.push_back({service, call.args[0], record_of(call)});
        if (service == "prm_stats_cl_alloc")
            taken.push_back({call.args[0], call.args[1], call.args[2], call.args[3],
                             *reinterpret_cast<const uint32_t *>(call.args[4])});
        if (service == "prm_stats_cl_free")
            given_back.emplace_back(call.args[1], call.args[2]);
        if (also)
            also(call);
    }

    std::optional<uint64_t> answer(const vlc::ServiceCall &call)
    {
        const std::string service = call.service;
        if (service.rfind("prm_srh_flow_db_", 0) == 0 || service == "prm_stats_cl_free")
            return 0;
        if (service == "plm_dpss_get_stats_tbl_id")
            return table_of(static_cast<uint32_t>(call.args[0]));
        if (service == "prm_stats_cl_alloc")
            return take(call);
        if (service == "prm_stats_cl_get_phy_stats_ptr")
            return address_of(static_cast<uint32_t>(call.args[0]));
        if (service == "prm_stats_cl_read" && call.args[6] != PRM_STATS_READ_AND_CLEAR)
            return read(call);
        if (service.rfind("dpss_", 0) == 0)
            return serve_flow_service(service, call);
        return std::nullopt;
    }

    uint64_t table_of(uint32_t np)
    {
        table_ids_[np] = table_id_of(np);
        return nps_without_table.count(np) != 0 ? 0 : reinterpret_cast<uint64_t>(&table_ids_[np]);
    }

    uint64_t take(const vlc::ServiceCall &call)
    {
        *reinterpret_cast<uint32_t *>(call.args[5]) = next_counter;
        next_counter += 0x100;
        return 0;
    }

    // A read that fails writes its output too, which nobody may then use.
    uint64_t read(const vlc::ServiceCall &call) const
    {
        auto *words = reinterpret_cast<uint64_t *>(call.args[4]);
        const auto found =
            counts.find({static_cast<uint32_t>(call.args[2]), static_cast<uint32_t>(call.args[1])});
        const bool is_known = found != counts.end();
        words[0] = is_known ? found->second[0] : 0xBAD;
        words[1] = is_known ? found->second[1] : 0xBAD;
        return is_known ? 0 : 5;
    }

    uint64_t serve_flow_service(const std::string &service, const vlc::ServiceCall &call)
    {
        const auto write = [&](size_t output, const std::string &bytes) {
            memcpy(reinterpret_cast<void *>(call.args[output]), bytes.data(), bytes.size());
        };
        if (service == "dpss_flow_encoder_key") {
            write(1, key);
            *reinterpret_cast<uint8_t *>(call.args[2]) = static_cast<uint8_t>(key.size());
        } else if (service == "dpss_flow_encoder_result") {
            write(1, result);
        } else if (service == "dpss_flow_encoder_userdata") {
            write(1, user_data);
        } else if (service == "dpss_fill_flow_info_from_db") {
            memcpy(reinterpret_cast<void *>(call.args[1]),
                   reinterpret_cast<const void *>(call.args[0]), FLOW_USER_DATA_BYTES);
        } else if (service == "dpss_flow_scan_callback") {
            auto **first = reinterpret_cast<void **>(call.args[0]);
            scanned.emplace_back(first, first + call.args[1]);
        }
        return service == "dpss_flow_is_policer_enabled" ? has_policer : 0;
    }

    std::map<uint32_t, uint32_t> table_ids_;
    vlc::AddedServiceTap tap_; // last: what it calls is there before it
};

inline int32_t bucket_of_flow(const void *record)
{
    const auto buckets = pshadow_db->flow_db != nullptr ? pshadow_db->flow_db->num_buckets : 1;
    return static_cast<int32_t>(static_cast<const flow_record *>(record)->flow_key % buckets);
}

inline int32_t match_of_flows(const void *entry, const void *key_record)
{
    return static_cast<const flow_record *>(entry)->flow_key ==
                   static_cast<const flow_record *>(key_record)->flow_key
               ? 1
               : 0;
}

class FlowTest : public ShadowDbTest {
protected:
    static constexpr uint32_t buckets = 8;

    explicit FlowTest(uint16_t num_nps = 3) : ShadowDbTest(num_nps), platform(services)
    {
        root->flow_db = flowdb_init(buckets, bucket_of_flow, match_of_flows);
        table = root->flow_db;
        forget_history();
    }

    void forget()
    {
        forget_history();
        platform.requests.clear();
        platform.taken.clear();
        platform.given_back.clear();
        transcript_.clear();
        lines_seen_ = 0;
    }

    // From now on, log lines and platform calls are kept in the order in which they came.
    void start_transcript()
    {
        forget();
        platform.also = [this](const vlc::ServiceCall &call) {
            catch_up();
            transcript_.push_back(call.service);
        };
    }
    Lines transcript()
    {
        catch_up();
        return transcript_;
    }

    // A record that is in no table, with a key and a result of its own.
    static flow_record make(uint32_t flags, uint8_t np = 0, uint64_t flow_key = 1)
    {
        flow_record record = {};
        record.flow_key = flow_key;
        record.flags = flags;
        record.np = np;
        for (uint8_t i = 0; i < 5; ++i)
            record.key[i] = static_cast<uint8_t>(0xA0 + i);
        record.key_len = 5;
        for (uint8_t i = 0; i < FLOW_RESULT_LENGTH; ++i)
            record.result[i] = static_cast<uint8_t>(0x10 + i);
        record.result_len = FLOW_RESULT_LENGTH;
        return record;
    }
    // The first line of an update.
    static std::string begins(const flow_record &record, const std::string &action,
                              const std::string &first, const std::string &last)
    {
        char address[32];
        snprintf(address, sizeof address, "%p", static_cast<const void *>(&record));
        return std::string("prm_update: dbp ") + address + " act " + action + " startnp " + first +
               " endnp " + last + "\n";
    }
    std::vector<uint32_t> nps() const
    {
        std::vector<uint32_t> found;
        for (const FlowRequest &request : platform.requests)
            found.push_back(request.record.np);
        return found;
    }

    FlowPlatform platform;
    in_hash_table *table = nullptr;

private:
    void catch_up()
    {
        const Lines lines = log();
        transcript_.insert(transcript_.end(), lines.begin() + static_cast<ptrdiff_t>(lines_seen_),
                           lines.end());
        lines_seen_ = lines.size();
    }

    Lines transcript_;
    size_t lines_seen_ = 0;
};

} // namespace test
