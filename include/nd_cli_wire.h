// The wire between the ND plug-in and the ND service, named once for both sides: the item
// types of the requests, the response codes that pick a renderer, the framework statuses that
// steer an exchange, and the layout of every record that one side writes and the other reads
// (the answers' records and the values of the "ec_nd" configuration database).
//
// It lives beside nd_cli_types.h because include/ is the one folder that both the plug-in and
// the emulated switch build against; unlike nd_cli.h it is not part of the plug-in's exported
// interface (C++ only, nothing here has linkage). Every record is read and written byte-wise
// at these offsets; a static_assert ties each record's size to its last field.
#ifndef ND_CLI_WIRE_H
#define ND_CLI_WIRE_H

#include <cstddef>
#include <cstdint>

#include "nd_cli_types.h"

namespace ndwire {

// ---- framework statuses ------------------------------------------------------------------------

constexpr uint32_t kCmfOk = 0;          // done; as the status of a response: another one follows
constexpr uint32_t kCmfOutOfMemory = 5; // sending failed for want of memory
constexpr uint32_t kCmfNotSet = 6;      // undoing a VXLAN setting that is not set
constexpr uint32_t kCmfNoMore = 13;     // the last response; no item left to decode

// ---- command codes the shared enum leaves as a range --------------------------------------------

constexpr uint32_t kCmdVxlanTimeout = ND_CMD_VXLAN_FIRST;         // 19: host timeout
constexpr uint32_t kCmdVxlanLimit = ND_CMD_VXLAN_FIRST + 1;       // 20: host limit
constexpr uint32_t kCmdVxlanAdvertise = ND_CMD_VXLAN_FIRST + 2;   // 21: local host advertisement
constexpr uint32_t kCmdVxlanSuppression = ND_CMD_VXLAN_FIRST + 3; // 22: suppression (and its table)
constexpr uint32_t kCmdVxlanMissDiscard = ND_CMD_VXLAN_FIRST + 4; // 23: miss discard
constexpr uint32_t kCmdVxlanUnicast = ND_CMD_VXLAN_FIRST + 5;     // 24: unicast forwarding
static_assert(kCmdVxlanUnicast == ND_CMD_VXLAN_LAST);

// ---- request item types ------------------------------------------------------------------------

constexpr uint32_t kItemObject = 1; // interface or port name, super VLAN; injected records
constexpr uint32_t kItemVlan = 2;   // VLAN; the second value of a diagnose request
constexpr uint32_t kItemPortId = 3;
constexpr uint32_t kItemAddress = 4; // 16-byte IPv6 address
constexpr uint32_t kItemPrefixLength = 5;
constexpr uint32_t kItemMac = 6; // 6-byte MAC address
constexpr uint32_t kItemRetransmit = 7;
constexpr uint32_t kItemInterval = 8;
constexpr uint32_t kItemQuery = 9;      // page query; the zero word of a show request
constexpr uint32_t kItemClear = 10;     // the zero word of a clear request
constexpr uint32_t kItemMask = 11;      // debug switches
constexpr uint32_t kItemNoAddress = 12; // without an address: all of them
constexpr uint32_t kItemDiagnoseKind = 13;
constexpr uint32_t kItemTimeout = 14;
constexpr uint32_t kItemVxlanId = 15;
constexpr uint32_t kItemLimit = 16;
constexpr uint32_t kItemContinuation = 18; // a follow-up request of a VXLAN table
constexpr uint32_t kItemLastRecord = 19;   // the VXLAN record last received
constexpr uint32_t kItemIssuSelector = 21; // IssuSelector
constexpr uint32_t kItemAnywaySwitch = 22;

// What an ISSU request asks of the VXLAN host table.
enum IssuSelector : uint32_t {
    kIssuBackup = 1,
    kIssuRecover = 2,
};

// What a diagnose request asks for (item kItemDiagnoseKind).
enum DiagnoseKind : uint32_t {
    kDiagnoseGeneral = 0, // one VXLAN id, the global state, or the interfaces
    kDiagnoseHosts = 1,   // the local VXLAN hosts
    kDiagnoseMacs = 2,    // their MAC addresses
    kDiagnoseGlobalAcl = 3,
    kDiagnoseRequests = 4, // the service's request counts (undo clears them)
    kDiagnoseInterfaces = 5,
};

// Where the service writes the text a diagnose request asks for; the plug-in prints and
// deletes it.
constexpr const char *kDiagnoseFile = "/tmp/.nd_diagnose";

// ---- response codes (type of the answer's item) ---------------------------------------------------

constexpr uint32_t kRspSnoopingStats = 9;
constexpr uint32_t kRspPrefixPage = 10;
constexpr uint32_t kRspUserBindPage = 11;
constexpr uint32_t kRspUserBindOne = 12;
constexpr uint32_t kRspDebug = 14;
constexpr uint32_t kRspForwardStats = 16;
constexpr uint32_t kRspVxlanRecord = 17;
constexpr uint32_t kRspProxyAddress = 18;
constexpr uint32_t kRspVxlanEnd = 20;

// ---- paged tables (user-binds, prefixes) --------------------------------------------------------

// The query of one page (item kItemQuery).
namespace query {
constexpr size_t kKind = 0;  // u32 TableKind
constexpr size_t kStart = 4; // u16 index of the first entry
constexpr size_t kCount = 6; // u16 entries wanted (0: the default page)
constexpr size_t kZero = 8;  // u32 always 0
constexpr size_t kSize = 12;
static_assert(kZero + 4 == kSize);
} // namespace query

enum TableKind : uint32_t {
    kTablePrefix = 0,
    kTableUserBindStatic = 2,
    kTableUserBindFirst = 3,  // learned entries listed by the first pass
    kTableUserBindSecond = 4, // learned entries listed by the second pass
};

// Entries of a page when the query asks for 0.
constexpr uint16_t kPageEntries = 15;

// The header of a page, and of a statistics answer, before its records.
namespace page {
constexpr size_t kCount = 0; // u32 records that follow
constexpr size_t kNext = 4;  // u16 index to ask for next
constexpr size_t kLast = 8;  // u32 kIsLast: no page follows
constexpr size_t kSize = 12;
constexpr uint32_t kIsLast = 1;
static_assert(kLast + 4 == kSize);
} // namespace page

// A user-bind: the entry of a listing page and of the stored static list alike.
namespace userbind {
constexpr size_t kAddress = 0;   // 16-byte IPv6 address, the sort key of the stored list
constexpr size_t kPortId = 16;   // u32 port ID (stored list only; the listing has it at kPort)
constexpr size_t kVlan = 20;     // u16 VLAN
constexpr size_t kPort = 22;     // u16 listing: port ID, 0 hides the row; stored: 1 static
constexpr size_t kPortName = 24; // interface name, NUL-padded
constexpr size_t kPortNameSize = 40;
constexpr size_t kMac = 64;  // 6-byte MAC address
constexpr size_t kType = 70; // u8 kTypeStatic or kTypeDynamic
constexpr size_t kPad = 71;  // u8 0
constexpr size_t kSize = 72;
constexpr size_t kSortKeySize = 16; // the stored list is unique by address
constexpr uint8_t kTypeDynamic = 1;
constexpr uint8_t kTypeStatic = 2;
constexpr uint16_t kStoredStatic = 1;
static_assert(kPortName + kPortNameSize == kMac && kPad + 1 == kSize);
} // namespace userbind

// A learned prefix.
namespace prefix {
constexpr size_t kAddress = 0;    // 16-byte prefix
constexpr size_t kValid = 16;     // u32 valid lifetime, seconds
constexpr size_t kPreferred = 20; // u32 preferred lifetime, seconds
constexpr size_t kLength = 24;    // i32 prefix length
constexpr size_t kSize = 28;
static_assert(kLength + 4 == kSize);
} // namespace prefix

// Counters of one member and instance; the snooping and fast-response records differ only in
// how many counters follow.
namespace stat {
constexpr size_t kInstance = 0;    // u8
constexpr size_t kMember = 1;      // u8
constexpr size_t kReserved = 2;    // u16 0
constexpr size_t kCounters = 4;    // u32 counters, one after the other
constexpr uint32_t kMembers = 8;   // member numbers 0..7
constexpr uint32_t kInstances = 2; // instance numbers 0..1
constexpr size_t kSnoopingCounters = 14;
constexpr size_t kForwardCounters = 20;
constexpr size_t kSnoopingSize = 60;
constexpr size_t kForwardSize = 84;
static_assert(kReserved + 2 == kCounters);
static_assert(kCounters + 4 * kSnoopingCounters == kSnoopingSize);
static_assert(kCounters + 4 * kForwardCounters == kForwardSize);
} // namespace stat

// The debug answer: the switches as one u32 mask (config 1, event 2, forward 4, packet 8,
// error 16, serve 32).
constexpr uint32_t kDebugMaskSize = 4;
constexpr uint32_t kDebugMaskAll = 63;

// A proxy address range of one module.
namespace proxy {
constexpr size_t kModule = 0; // u32 module number
constexpr size_t kBegin = 4;  // 16-byte first address
constexpr size_t kEnd = 20;   // 16-byte last address
constexpr size_t kSize = 36;
static_assert(kEnd + 16 == kSize);
} // namespace proxy

// One host of a VXLAN table answer (local hosts, suppression hosts).
namespace vxlan {
constexpr size_t kHostAddress = 0;    // host address as text, NUL-padded
constexpr size_t kTunnelAddress = 48; // tunnel address as text (suppression), NUL-padded
constexpr size_t kAddressTextSize = 48;
constexpr size_t kVxlanId = 96;    // u32
constexpr size_t kTunnelId = 100;  // u32 (suppression)
constexpr size_t kPortIndex = 104; // u32 (local hosts)
constexpr size_t kReserved = 108;  // 8 bytes 0
constexpr size_t kMac = 116;       // 6-byte MAC address
constexpr size_t kPad = 122;       // 2 bytes 0
constexpr size_t kSize = 124;
// Records of one answer; the client asks for the rest with a follow-up request.
constexpr size_t kRecordsPerResponse = 64;
static_assert(kTunnelAddress == kHostAddress + kAddressTextSize);
static_assert(kVxlanId == kTunnelAddress + kAddressTextSize && kReserved + 8 == kMac && kPad + 2 == kSize);
} // namespace vxlan

// A suppression host as the shell's ND library hands it to the service (test injection).
namespace suppression {
constexpr size_t kVxlanId = 0;        // u32
constexpr size_t kTunnelId = 4;       // u32
constexpr size_t kAddress = 8;        // 16-byte host address
constexpr size_t kFamily = 24;        // u8 family of the tunnel address (AF_INET, AF_INET6)
constexpr size_t kTunnelAddress = 28; // 16 bytes, IPv4 in the first four
constexpr size_t kMac = 44;           // 6-byte MAC address
constexpr size_t kPad = 50;           // 2 bytes 0
constexpr size_t kSize = 52;
static_assert(kTunnelAddress + 16 == kMac && kPad + 2 == kSize);
} // namespace suppression

// A remote neighbour as the shell's ND library hands it to the service (test injection).
namespace remotenbr {
constexpr size_t kType = 0;           // u32 entry type
constexpr size_t kVxlanId = 4;        // u32
constexpr size_t kIfIndex = 8;        // u32
constexpr size_t kTunnelId = 12;      // u32
constexpr size_t kVrfId = 16;         // u32
constexpr size_t kAddress = 20;       // 16-byte neighbour address
constexpr size_t kFamily = 36;        // u8 family of the tunnel address
constexpr size_t kTunnelAddress = 40; // 16 bytes, IPv4 in the first four
constexpr size_t kMac = 56;           // 6-byte MAC address
constexpr size_t kPad = 62;           // 2 bytes 0
constexpr size_t kSize = 64;
static_assert(kTunnelAddress + 16 == kMac && kPad + 2 == kSize);
} // namespace remotenbr

// Request codes that only the emulation uses: the ND library of the shell's process hands the
// test-injection records to the service with these, in one item kItemObject holding one or more
// records (suppression or remotenbr) back to back.
constexpr uint32_t kInjectSuppressionAdd = 1000;
constexpr uint32_t kInjectSuppressionDel = 1001;
constexpr uint32_t kInjectRemoteNbrAdd = 1002;
constexpr uint32_t kInjectRemoteNbrDel = 1003;

// ---- the configuration database "ec_nd" -------------------------------------------------------------

constexpr const char *kDatabase = "ec_nd";

// Value types of the records. The running-configuration handlers walk kTypeFastResponse,
// kTypeUserBindList, kTypeSnooping, kTypeDetect, kTypeAttackLog and kTypeLoose by type and
// read the others by key, so no other record may use those six.
enum ValueType : uint32_t {
    kTypeFastResponse = 0,
    kTypeInterface = 1,
    kTypeUserBindList = 2,
    kTypeSnooping = 3,
    kTypeDetect = 4,
    kTypeSuperVlan = 5,
    kTypeVlan = 6,
    kTypePort = 8,
    kTypeAttackLog = 9,
    kTypeLoose = 10,
    kTypeVxlan = 11,
};

// Keys of the global records.
constexpr const char *kKeyFastResponse = "nd_fast_response";
constexpr const char *kKeySnooping = "nd_snooping_enable";
constexpr const char *kKeyLoose = "nd_snooping_ns_check_loose";
constexpr const char *kKeyDetect = "nd_snooping_detect";
constexpr const char *kKeyAttackLog = "nd_snooping_attack_log";
constexpr const char *kKeyUserBinds = "nd_snooping_user_bind_static";
constexpr const char *kKeyInterfacePrefix = "nd_nbr_if_";

// A global switch (fast response, snooping, ns-check-loose, attack-log): one u32.
namespace flag {
constexpr size_t kValue = 0; // u32 1 on; fast response stores 0 for off
constexpr size_t kSize = 4;
static_assert(kValue + 4 == kSize);
} // namespace flag

// Duplicate address detection.
namespace detect {
constexpr size_t kRetransmit = 0; // u16
constexpr size_t kInterval = 2;   // u16
constexpr size_t kSize = 4;
static_assert(kInterval + 2 == kSize);
} // namespace detect

// Proxy switches of one interface, keyed kKeyInterfacePrefix + name.
namespace iface {
constexpr size_t kName = 0; // interface name, NUL-padded
constexpr size_t kNameSize = 68;
constexpr size_t kFlags = 68; // u32 kFlagProxy | kFlagAnyway
constexpr size_t kSize = 72;
constexpr uint32_t kFlagProxy = 1;
constexpr uint32_t kFlagAnyway = 2;
static_assert(kName + kNameSize == kFlags && kFlags + 4 == kSize);
} // namespace iface

// A snooping VLAN ("vlan N"), a local-proxy super VLAN ("super-vlan N") or a trusted port
// (keyed by the port's name): one record shape for the three.
namespace member {
constexpr size_t kId = 0;        // u32 VLAN or port ID
constexpr size_t kPortState = 8; // u32 (ports)
constexpr size_t kVlanId = 12;   // u16 (VLANs)
constexpr size_t kPortName = 16; // port name, NUL-padded (ports)
constexpr size_t kPortNameSize = 40;
constexpr size_t kSize = 56;
static_assert(kPortName + kPortNameSize == kSize);
} // namespace member

// The settings of one VXLAN id ("vxlan N"); absent while all are at their defaults.
namespace vxlancfg {
constexpr size_t kId = 0;       // u32 VXLAN id
constexpr size_t kReserved = 4; // u32 0
constexpr size_t kFlags = 8;    // u32 kFlag*
constexpr size_t kTimeout = 12; // u32 host timeout
constexpr size_t kLimit = 16;   // u32 host limit
constexpr size_t kSize = 20;
enum Flag : uint32_t {
    kFlagAdvertise = 1,   // local hosts are advertised (on by default)
    kFlagSuppression = 2, // ND suppression
    kFlagUnicast = 4,     // unicast forwarding (needs suppression)
    kFlagMissDiscard = 8, // miss discard (needs suppression)
};
constexpr uint32_t kDefaultFlags = kFlagAdvertise;
constexpr uint32_t kDefaultTimeout = 360;
constexpr uint32_t kDefaultLimit = 20480;
static_assert(kLimit + 4 == kSize);
} // namespace vxlancfg

// Where the ISSU backup of the VXLAN host table is saved.
constexpr const char *kIssuSavePath = "/flash";

// One host of the ISSU backup of the VXLAN host table.
namespace issu {
constexpr size_t kAddress = 0; // 16-byte host address
constexpr size_t kMac = 16;    // 6-byte MAC address
constexpr size_t kEthMac = 22; // 6-byte MAC address of the port
constexpr size_t kPort = 28;   // port name, NUL-padded
constexpr size_t kPortSize = 40;
constexpr size_t kIndex = 68; // u32 VXLAN id
constexpr size_t kSvlan = 72; // u32
constexpr size_t kCvlan = 76; // u32
constexpr size_t kSize = 80;
static_assert(kPort + kPortSize == kIndex && kCvlan + 4 == kSize);
} // namespace issu

} // namespace ndwire

#endif
