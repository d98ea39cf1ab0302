// The emulated VXLAN side of the platform: VXLAN ports (vxports.cpp), the VXLAN interaction work task, the
// ND library's suppression-host and remote-neighbour tables, and the memory-state switch.
// For the shell, the service and the tests; the plug-in sees only include/nd_platform.h.
#ifndef NDPLAT_VXLAN_H
#define NDPLAT_VXLAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nd_platform.h"

namespace ndplat {

// ---- VXLAN ports (VXLAN_GetVxportBasicInfo) -----------------------------------------------
// The port information's layout is ND_VXPORT_INFO_* of nd_platform.h; kind 1
// (ND_VXPORT_KIND_ATTACHED) is a port attached to an interface.
//
// The port table belongs to the platform and is shared by every process of the state
// directory: on the SQLite storage each change is one committed transaction in the database
// kVxportDb, and a reader takes up other processes' changes when SQLite's data version says
// the database changed (a lookup asks at most once a millisecond; the process's own changes
// are seen at once). On the memory storage (unit tests, the cross build) it lives in the
// process. A port is configured by the operator (the shell's `vxlan-port`) or comes from the
// service's seed file; a configured port hides a seed port of the same index.
constexpr const char *kVxportDb = "ndplat_vxports";
enum class VxportOrigin : uint32_t {
    Configured = 1,
    Seed = 2,
};
struct Vxport {
    uint16_t kind = ND_VXPORT_KIND_ATTACHED;
    int32_t portId = 0;
    uint16_t svlan = 0; // 0: none
    uint16_t cvlan = 0; // 0: none
    uint32_t vxlan = 0; // the VXLAN instance it belongs to
    VxportOrigin origin = VxportOrigin::Configured;
};
bool operator==(const Vxport &a, const Vxport &b);

// One view of the port table, as one process holds it: tests open two to play two processes.
class VxportTable {
public:
    VxportTable();
    ~VxportTable();
    VxportTable(const VxportTable &) = delete;
    VxportTable &operator=(const VxportTable &) = delete;

    // The port in force at an index; nothing when there is none.
    std::optional<Vxport> find(uint32_t portIndex);
    // Every port in force, by ascending index.
    std::map<uint32_t, Vxport> all();
    // The ports of one origin, hidden or not, by ascending index.
    std::map<uint32_t, Vxport> of(VxportOrigin origin);
    // Stores a port under its origin, replacing the one of that origin and index. False with
    // the storage's reason when it could not be stored; then nothing changed.
    bool set(uint32_t portIndex, const Vxport &port, std::string &error);
    // Removes the port of that origin and index; removing what is not there stores nothing.
    bool remove(uint32_t portIndex, VxportOrigin origin, std::string &error);
    // Lets go of the database (before its file is set aside); the next use opens it again.
    void close();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The process's own view, which VXLAN_GetVxportBasicInfo answers from. It follows the storage
// and state directory in force, and a reset empties it.
std::optional<Vxport> vxport_find(uint32_t portIndex);
std::map<uint32_t, Vxport> vxports(); // in force, by ascending index
std::map<uint32_t, Vxport> vxports(VxportOrigin origin);
bool vxport_set(uint32_t portIndex, const Vxport &port, std::string *error = nullptr);
// The port is unknown again (unless a port of the other origin has the index).
bool vxport_remove(uint32_t portIndex, VxportOrigin origin = VxportOrigin::Configured, std::string *error = nullptr);
// Removes every port of an origin (of one VXLAN instance, or of all when vxlan is 0).
bool vxport_remove_all(VxportOrigin origin, uint32_t vxlan, std::string *error = nullptr);
void vxport_store_close();

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
size_t nd_suppression_host_count();                    // entries now held
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
