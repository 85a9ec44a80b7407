// Twenty lines as the library writes them at its sites, 94 bytes with stamp and newline on average,
// as printf and as fmt have them. X(printf's, fmt's, arguments...)
#pragma once

#include <cstdint>

namespace bench::usual {

// What the lines say; volatile, so that no compiler knows it.
inline volatile int np = 3;
inline volatile int uidb_index = 257;
inline volatile int counters = 65536;
inline volatile uint32_t flags = 0x41;
inline volatile uint32_t refnum = 0x10007;
inline volatile int key_size = 12;
inline volatile int result_size = 32;
inline volatile int status = 22;
inline volatile uint32_t counter = 0xC00412;
inline volatile int action = 2;
inline volatile uint16_t source_port = 4500;
inline volatile uint16_t destination_port = 443;
inline volatile uint32_t source = 0xCB007114;
inline volatile uint32_t destination = 0xC0000211;
inline const void *volatile record = reinterpret_cast<const void *>(0x7ea000012ab0);
inline const char *volatile error = "PRM: table is full";
inline const char *volatile refusal = "PRM: key or result is wider than a row of the table";
inline const char *volatile table = "Service"; // of a table's name seven characters are shown
inline const char *volatile operation = "Modify";
inline const char *volatile key = "01000000cb00711400500006";
inline const char *volatile result =
    "0200000000000101c000021101bb00000000000000c0041200c004130000000000";
inline const char *volatile report =
    "Error encountered while programming the hw. FIB will be reset and routes will be "
    "reprogrammed.Error = 0x00a0d007, np_id = 3, ref_num = 0x00010007 vrf id = 0";

} // namespace bench::usual

#define USUAL_LINES(X)                                                                             \
    X("PRM async call failed(v4): np %d flags 0x%x refnum 0x%x key_size %d res_size %d Err:%s",    \
      "PRM async call failed(v4): np {} flags 0x{:x} refnum 0x{:x} key_size {} res_size {} "       \
      "Err:{}",                                                                                    \
      np, flags, refnum, key_size, result_size, refusal)                                           \
    X("Async Error on Service CONF: rc=%s (0x%x) on %s %s route NP%d",                             \
      "Async Error on Service CONF: rc={} (0x{:x}) on {} {} route NP{}", error, status, table,     \
      operation, np)                                                                               \
    X("Async Error on Ext Datadb CONF: rc=%s (0x%x) on %s %s route NP%d",                          \
      "Async Error on Ext Datadb CONF: rc={} (0x{:x}) on {} {} route NP{}", error, status, table,  \
      operation, np)                                                                               \
    X("Async Error: rc=%s (0x%x) on %s %s refnum 0x%08x NP%d",                                     \
      "Async Error: rc={} (0x{:x}) on {} {} refnum 0x{:08x} NP{}", error, status, table,           \
      operation, refnum, np)                                                                       \
    X("prm_srh_async_resp_data() error: rc=%#x(%s)",                                               \
      "prm_srh_async_resp_data() error: rc={:#x}({})", status, error)                              \
    X("PRM connection error %s", "PRM connection error {}", report)                                \
    X("Registeration to PRM failed,probably prm restarted or crashed\n",                           \
      "Registeration to PRM failed,probably prm restarted or crashed\n")                           \
    X("SVC EXT_DB ADD get rx stat failed:  rc=%s (%d)",                                            \
      "SVC EXT_DB ADD get rx stat failed:  rc={} ({})", error, status)                             \
    X("SVC CONF modification failed:  rc=%s (%d)", "SVC CONF modification failed:  rc={} ({})",    \
      error, status)                                                                               \
    X(" Cannot read stat  stats of chip %d for , RC= %s\n",                                        \
      " Cannot read stat  stats of chip {} for , RC= {}\n", np, error)                             \
    X("Failed to allocate dpss dynamic stats counter of chip %d, RC= %s\n",                        \
      "Failed to allocate dpss dynamic stats counter of chip {}, RC= {}\n", np, error)             \
    X(" stats ptr %d out of bounds, start:%d, max:%d",                                             \
      " stats ptr {} out of bounds, start:{}, max:{}", counter, counter, counters)                 \
    X("Total counters available for inline service on this LC%d",                                  \
      "Total counters available for inline service on this LC{}", counters)                        \
    X("Total node in shmem node %d is 0 so freeing thefreeing the shared memory",                  \
      "Total node in shmem node {} is 0 so freeing thefreeing the shared memory", uidb_index)      \
    X(" Query Main entry found for uidb_index %d", " Query Main entry found for uidb_index {}",    \
      uidb_index)                                                                                  \
    X("*******key %s\n", "*******key {}\n", key)                                                   \
    X("*******result %s\n", "*******result {}\n", result)                                          \
    X("prm_update: dbp %p act %d startnp %d endnp %d\n",                                           \
      "prm_update: dbp {} act {} startnp {} endnp {}\n", record, action, np, np)                   \
    X("vmsg:udp; sport %04x sip 0x%08x dport %04x dip 0x%08x",                                     \
      "vmsg:udp; sport {:04x} sip 0x{:08x} dport {:04x} dip 0x{:08x}", source_port, source,        \
      destination_port, destination)                                                               \
    X("spp_prep_bfd_pkt_and_xmt returned OK %d", "spp_prep_bfd_pkt_and_xmt returned OK {}",        \
      uidb_index)
