// Shared pieces of the VXLAN tests: wire records, responses and handler calls.
#ifndef VXLAN_TEST_UTIL_H
#define VXLAN_TEST_UTIL_H

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "ndplat_vxlan.h"
#include "test_support.h"
#include "vxlan/nd_cli_vxlan.h"

namespace vxlantest {

// One 124-byte VXLAN ND record (response code 17).
inline std::vector<uint8_t> record(const char *host, const char *tunnel, int32_t vxlanId, int32_t tunnelId,
                                   uint32_t portIndex, const uint8_t (&mac)[6])
{
    std::vector<uint8_t> r(124, 0);
    memcpy(r.data(), host, std::min<size_t>(strlen(host), 47));
    memcpy(r.data() + 48, tunnel, std::min<size_t>(strlen(tunnel), 47));
    memcpy(r.data() + 96, &vxlanId, 4);
    memcpy(r.data() + 100, &tunnelId, 4);
    memcpy(r.data() + 104, &portIndex, 4);
    memset(r.data() + 108, 0xEE, 8); // not read by the plug-in
    memcpy(r.data() + 116, mac, 6);
    return r;
}

inline ndplat::CmfItem recordItem(const std::vector<uint8_t> &bytes, uint32_t code = 17)
{
    return ndplat::CmfItem::of(code, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

inline ndplat::CmfItem endOfTable()
{
    return ndplat::CmfItem::u32(20, 0);
}

inline ndplat::CmfResponse response(uint32_t status, std::vector<ndplat::CmfItem> items, uint32_t endStatus = 13)
{
    ndplat::CmfResponse r;
    r.status = status;
    r.items = std::move(items);
    r.endStatus = endStatus;
    return r;
}

inline std::vector<uint8_t> v6(const char *text)
{
    std::vector<uint8_t> a(16, 0);
    inet_pton(AF_INET6, text, a.data());
    return a;
}

// Asserts one item: type, length and bytes.
inline void expectItem(const ndplat::CmfItem &item, uint32_t type, const std::vector<uint8_t> &bytes)
{
    EXPECT_EQ(item.type, type);
    EXPECT_EQ(item.length, bytes.size());
    EXPECT_EQ(item.bytes, bytes);
}

inline void expectU32Item(const ndplat::CmfItem &item, uint32_t type, uint32_t value)
{
    expectItem(item, type, ndtest::u32_bytes(value));
}

class VxlanTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        ndplat::vxlan_work_drain();
        ndtest::PlatformTest::TearDown();
    }
};

} // namespace vxlantest

#endif
