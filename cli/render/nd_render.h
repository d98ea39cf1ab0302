// The renderers' internals that other files of the library (and the white-box tests) use:
// the statistics list nodes and their find and clear operations. The renderers themselves
// are exported and declared in nd_cli.h.
#ifndef ND_RENDER_H
#define ND_RENDER_H

#include <cstddef>
#include <cstdint>

#include "nd_cli_wire.h"
#include "render/gnl_list.h"

// One statistics record copied out of a payload, linked into the renderer's list. Only the
// link and the record's own bytes are allocated.
template <uint32_t RecordBytes> struct NdCliStatNode {
    GnlListHead link;
    uint8_t record[RecordBytes];

    static constexpr size_t kAllocBytes = sizeof(GnlListHead) + RecordBytes;
};
using NdCliFwdStatNode = NdCliStatNode<ndwire::stat::kForwardSize>;
using NdCliSnpStatNode = NdCliStatNode<ndwire::stat::kSnoopingSize>;
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
