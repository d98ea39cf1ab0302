// The emulated VXLAN side of the platform: VXLAN ports, the VXLAN interaction work task, the
// ND library's suppression-host and remote-neighbour tables, and the memory-state switch.
// For the shell, the service and the tests; the plug-in sees only include/nd_platform.h.
#ifndef NDPLAT_VXLAN_H
#define NDPLAT_VXLAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ndplat {

// ---- VXLAN ports (VXLAN_GetVxportBasicInfo) -----------------------------------------------
// The 1612-byte port information holds the kind (16 bits) at offset 4, the port id (32 bits)
// at 8, the outer VLAN (16 bits) at 12 and the inner VLAN (16 bits) at 14. Kind 1 is a port
// attached to an interface.
constexpr size_t kVxportInfoSize = 1612;
struct Vxport {
    uint16_t kind = 1;
    int32_t portId = 0;
    uint16_t svlan = 0;
    uint16_t cvlan = 0;
};
void vxport_set(uint32_t portIndex, const Vxport &port); // what VXLAN_GetVxportBasicInfo answers
void vxport_remove(uint32_t portIndex);                  // the port is unknown again

// ---- memory state (gnl_mem_state) ----------------------------------------------------------
void mem_state_set(int32_t state); // non-zero: memory short

// ---- VXLAN interaction work task -----------------------------------------------------------
// One worker thread runs the queued jobs in queue order. The task is the handle that
// nsm_vxlan_interaction_mgmt_get_handle returns.
void *vxlan_work_task();
// Blocks until every job queued so far has run (also those queued by running jobs).
void vxlan_work_drain();
// Jobs run since the last reset.
uint64_t vxlan_work_jobs_run();
// Holds the worker before its next job until released (to observe a queue that is not empty).
void vxlan_work_pause(bool paused);
size_t vxlan_work_pending(); // jobs queued and not yet run

// ---- ND library tables -------------------------------------------------------------------
// Suppression hosts (52-byte records) keyed by VXLAN id and host address; remote neighbours
// (64-byte records) keyed by entry type, VXLAN id and ND address. Adding a present key
// replaces its record; deleting a missing key fails with 1.
using SuppressionRecord = std::array<uint8_t, 52>;
using RemoteNbrRecord = std::array<uint8_t, 64>;
std::vector<SuppressionRecord> nd_suppression_hosts(); // in key order
std::vector<RemoteNbrRecord> nd_remote_nbrs();         // in key order
size_t nd_suppression_host_count(); // entries now held
size_t nd_remote_nbr_count();
void nd_vxlan_tables_clear(); // empties both tables

// ---- files (__UMV2L_fopen, __UMV2L_unlink) -------------------------------------------------
// The directory that stands for "/" of the switch's file system; empty (the default and after
// a reset): the host's own. Lets tests and the service give each process a file system of its
// own, so that fixed names such as "/tmp/.nd_diagnose" do not collide.
void files_root_set(const std::string &root);
// Where the switch's absolute path lies on the host.
std::string file_path(const char *path);

} // namespace ndplat

#endif
