// Shared checks of the snooping tests: the requests sent, item by item.
#ifndef ND_TEST_SNOOPING_SUPPORT_H
#define ND_TEST_SNOOPING_SUPPORT_H

#include <arpa/inet.h>

#include <string>
#include <vector>

#include "test_support.h"

namespace ndtest {

using Words = std::vector<std::string>;

inline void expect_header(const ndplat::CmfRequest &r, uint32_t code, uint32_t kind, uint32_t items)
{
    EXPECT_EQ(r.service, "ipv6");
    EXPECT_TRUE(r.hasObject);
    EXPECT_EQ(r.cmdCode, code);
    EXPECT_EQ(r.optKind, kind);
    EXPECT_EQ(r.reserved, 0u);
    EXPECT_EQ(r.serviceType, 234u);
    EXPECT_EQ(r.serviceInstance, 1u);
    EXPECT_EQ(r.itemCount, items);
    EXPECT_EQ(r.items.size(), items);
}

inline void expect_item(const ndplat::CmfRequest &r, size_t i, uint32_t type, const std::vector<uint8_t> &bytes)
{
    ASSERT_LT(i, r.items.size());
    EXPECT_EQ(r.items[i].type, type) << "item " << i;
    EXPECT_EQ(r.items[i].length, bytes.size()) << "item " << i;
    EXPECT_EQ(r.items[i].bytes, bytes) << "item " << i;
}

inline std::vector<uint8_t> ipv6_bytes(const char *text)
{
    std::vector<uint8_t> out(16, 0);
    EXPECT_EQ(inet_pton(AF_INET6, text, out.data()), 1) << text;
    return out;
}

// A 40-byte interface-name buffer holding `name`.
inline std::vector<uint8_t> name40(const std::string &name)
{
    std::vector<uint8_t> out(40, 0);
    memcpy(out.data(), name.data(), name.size() < 39 ? name.size() : 39);
    return out;
}

inline std::vector<uint8_t> i32_bytes(int32_t v)
{
    return u32_bytes(static_cast<uint32_t>(v));
}

// The one request sent; fails the test when there is not exactly one.
inline ndplat::CmfRequest only_request()
{
    std::vector<ndplat::CmfRequest> requests = ndplat::cmf_requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? ndplat::CmfRequest{} : requests[0];
}

} // namespace ndtest

#endif
