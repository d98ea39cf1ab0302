// The renderers' internals that other files of the library (and the white-box tests) use:
// the statistics list nodes and their find and clear operations. The renderers themselves
// are exported and declared in nd_cli.h.
#ifndef ND_RENDER_H
#define ND_RENDER_H

#include <cstddef>
#include <cstdint>

#include "render/gnl_list.h"

// Sizes of the records and of the header that precedes them in a statistics, user-bind or
// prefix payload.
constexpr uint32_t kNdPageHeaderBytes = 12;
constexpr uint32_t kNdFwdStatBytes = 84;
constexpr uint32_t kNdSnpStatBytes = 60;
constexpr uint32_t kNdUbEntryBytes = 72;
constexpr uint32_t kNdPrefixEntryBytes = 28;
constexpr uint32_t kNdProxyAddrEntryBytes = 36;

// Offsets of the instance and member bytes in both statistics records.
constexpr uint32_t kNdStatInstanceOffset = 0;
constexpr uint32_t kNdStatMemberOffset = 1;

// One statistics record copied out of a payload, linked into the renderer's list. Only the
// link and the record's own bytes are allocated.
template <uint32_t RecordBytes> struct NdCliStatNode {
    GnlListHead link;
    uint8_t record[RecordBytes];

    static constexpr size_t kAllocBytes = sizeof(GnlListHead) + RecordBytes;
};
using NdCliFwdStatNode = NdCliStatNode<kNdFwdStatBytes>;
using NdCliSnpStatNode = NdCliStatNode<kNdSnpStatBytes>;
static_assert(offsetof(NdCliFwdStatNode, record) == sizeof(GnlListHead));
static_assert(offsetof(NdCliSnpStatNode, record) == sizeof(GnlListHead));

extern "C" {

// The first node in list order with this member and instance (both as 8-bit values); null
// when there is none.
NdCliFwdStatNode *ndCliFwdStatNodeFind(uint32_t member, uint32_t instance, GnlListHead *head);
NdCliSnpStatNode *ndCliSnpStatNodeFind(uint32_t member, uint32_t instance, GnlListHead *head);

// Unlinks and frees every node; the head itself is left with its old links.
void ndCliClearFwdStatList(GnlListHead *head);
void ndCliClearSnpStatList(GnlListHead *head);

}

#endif
