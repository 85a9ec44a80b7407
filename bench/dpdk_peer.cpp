// DPDK's hash, which keeps a pointer beside each key; ours is where it leads.
#include "hash_peers.h"

#include <sched.h>

#include <iterator>
#include <stdexcept>

#include <rte_eal.h>
#include <rte_hash.h>
#include <rte_hash_crc.h>

namespace bench {

namespace {

// Its environment, in ordinary memory. It binds the thread to a processor, which is undone.
void start_dpdk()
{
    static bool started = false;
    if (started)
        return;
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    const char *arguments[] = {
        "hash_table_bench", "--no-huge", "--no-shconf", "--no-pci", "--no-telemetry", "-m", "512",
        "--log-level",      "error"};
    const int count = std::ssize(arguments);
    if (rte_eal_init(count, const_cast<char **>(arguments)) < 0)
        throw std::runtime_error("DPDK does not start without huge pages here");
    sched_setaffinity(0, sizeof allowed, &allowed);
    started = true;
}

class DpdkHash {
public:
    explicit DpdkHash(FilledTable &filled)
    {
        start_dpdk();
        rte_hash_parameters parameters{};
        parameters.name = "flows";
        parameters.entries = static_cast<uint32_t>(filled.flows.size());
        parameters.key_len = sizeof(uint64_t);
        parameters.hash_func = rte_hash_crc;
        // Where its buckets find no place for all, longer ones do.
        parameters.extra_flag = RTE_HASH_EXTRA_FLAGS_EXT_TABLE;
        hash_ = rte_hash_create(&parameters);
        if (hash_ == nullptr)
            throw std::runtime_error("DPDK's hash cannot be made");
        for (size_t number = 0; number < filled.flows.size(); ++number) {
            Flow &flow = filled.flows.at(number).flow;
            if (rte_hash_add_key_data(hash_, &flow.key, &flow) != 0)
                throw std::runtime_error("DPDK's hash has no room");
        }
    }
    ~DpdkHash() { rte_hash_free(hash_); }
    DpdkHash(const DpdkHash &) = delete;
    DpdkHash &operator=(const DpdkHash &) = delete;

    const Flow *find(uint64_t key)
    {
        void *flow = nullptr;
        rte_hash_lookup_data(hash_, &key, &flow);
        return static_cast<const Flow *>(flow);
    }

private:
    rte_hash *hash_ = nullptr;
};

} // namespace

std::unique_ptr<LookupPeer> make_dpdk_peer(FilledTable &filled)
{
    return std::make_unique<LookupPeerOf<DpdkHash>>(filled);
}

} // namespace bench
