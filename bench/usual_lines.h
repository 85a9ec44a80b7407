// Twenty lines as the library writes them, as printf and as fmt have them. X(printf's, fmt's,
// arguments...)
#pragma once

#include <cstdint>

namespace bench::usual {

// What the lines say; volatile, so that no compiler knows it.
inline volatile int np = 3;
inline volatile int uidb_index = 257;
inline volatile int nodes = 12;
inline volatile int counters = 65536;
inline volatile uint32_t flags = 0x41;
inline volatile uint32_t refnum = 0x10007;
inline volatile int key_size = 12;
inline volatile int result_size = 32;
inline volatile int status = 22;
inline volatile uint32_t counter = 0xC00412;
inline volatile uint32_t word = 0x20;
inline volatile uint64_t address = 0x7ea000012ab0;
inline const char *volatile error = "PRM: table is full";
inline const char *volatile table = "service config";
inline const char *volatile operation = "add";

} // namespace bench::usual

#define USUAL_LINES(X)                                                                             \
    X("PRM async call failed(v4): np %d flags 0x%x refnum 0x%x key_size %d res_size %d Err:%s",    \
      "PRM async call failed(v4): np {} flags 0x{:x} refnum 0x{:x} key_size {} res_size {} "       \
      "Err:{}",                                                                                    \
      np, flags, refnum, key_size, result_size, error)                                             \
    X("Async Error on Service CONF: rc=%s (0x%x) on %s %s route NP%d",                             \
      "Async Error on Service CONF: rc={} (0x{:x}) on {} {} route NP{}", error, status, table,     \
      operation, np)                                                                               \
    X("Total node in shmem node %d is 0 so freeing thefreeing the shared memory",                  \
      "Total node in shmem node {} is 0 so freeing thefreeing the shared memory", uidb_index)      \
    X("Total counters available for inline service on this LC%d",                                  \
      "Total counters available for inline service on this LC{}", counters)                        \
    X(" app wants to delet the index %d num_node %d",                                              \
      " app wants to delet the index {} num_node {}", uidb_index, nodes)                           \
    X(" Query Main entry found for uidb_index %d", " Query Main entry found for uidb_index {}",    \
      uidb_index)                                                                                  \
    X("prm_update: dbp 0x%lx act %d startnp %d endnp %d",                                          \
      "prm_update: dbp 0x{:x} act {} startnp {} endnp {}", address, nodes, np, np)                 \
    X("SVC CONF ADD stat RX index %x", "SVC CONF ADD stat RX index {:x}", counter)                 \
    X("SVC CONF ADD stat DROP index %x", "SVC CONF ADD stat DROP index {:x}", counter)             \
    X("Found free counter at word %x", "Found free counter at word {:x}", word)                    \
    X("counter_start %x", "counter_start {:x}", counter)                                           \
    X(" stats ptr %d out of bounds, start:%d, max:%d",                                             \
      " stats ptr {} out of bounds, start:{}, max:{}", counter, counter, counters)                 \
    X(" Cannot read stat  stats of chip %d for , RC= %s\n",                                        \
      " Cannot read stat  stats of chip {} for , RC= {}\n", np, error)                             \
    X("Setting name for prm queue failed Verify handle passed in \n",                              \
      "Setting name for prm queue failed Verify handle passed in \n")                              \
    X("Registeration to PRM failed,probably prm restarted or crashed\n",                           \
      "Registeration to PRM failed,probably prm restarted or crashed\n")                           \
    X("SVC EXT_DB ADD get drop stat failed:  rc=%s (%d)",                                          \
      "SVC EXT_DB ADD get drop stat failed:  rc={} ({})", error, status)                           \
    X("SVC CONF modification failed:  rc=%s (%d)", "SVC CONF modification failed:  rc={} ({})",    \
      error, status)                                                                               \
    X("Failed to allocate dpss dynamic stats counter of chip %d, RC= %s\n",                        \
      "Failed to allocate dpss dynamic stats counter of chip {}, RC= {}\n", np, error)             \
    X("pgbl_ptr->prm_conn is NULL, prm hdl not initialized",                                       \
      "pgbl_ptr->prm_conn is NULL, prm hdl not initialized")                                       \
    X("shared memory alloc for element array failed rc %x",                                        \
      "shared memory alloc for element array failed rc {:x}", status)
