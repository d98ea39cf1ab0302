// User-bind, prefix and proxy-address table renderers.
#include <random>

#include "payload.h"
#include "render/nd_render.h"
#include "test_support.h"

namespace {

using ndtest::Payload;

class TableRender : public ndtest::PlatformTest {};

std::string pad(const std::string &s, size_t width)
{
    return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

const std::string kUbTitle = "\n      " + pad("ipv6-address", 40) + pad("mac-address", 20) + pad("vlan", 11) +
                             pad("interface", 15) + pad("type", 11) + pad("ag", 5) + "\n      " +
                             std::string(116, '-') + "\n";
const std::string kPrefixTitle = "\n      " + pad("prefix", 40) + pad("length", 11) + pad("valid-time", 20) +
                                 pad("preferred-time", 20) + "\n      " + std::string(85, '-') + "\n";
const std::string kProxyTitle =
    "\n      " + pad("begin-address", 40) + pad("end-address", 40) + pad("module-name", 20) + "\n\n";

std::string ubRow(const std::string &address, const std::string &mac, int vlan, const std::string &port,
                  const std::string &type, int ag)
{
    return "      " + pad(address, 40) + pad(mac, 20) + pad(std::to_string(vlan), 11) + pad(port, 15) + pad(type, 11) +
           pad(std::to_string(ag), 5) + "\n";
}

constexpr uint8_t kMac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};

std::string renderUb(const Payload &p, uint32_t &rows, uint8_t &title)
{
    ndtest::Stdout out;
    ndCliShowUbInfo(p.data(), p.size(), &rows, &title);
    return out.take();
}

std::string renderPrefix(const Payload &p, uint32_t &rows, uint8_t &title)
{
    ndtest::Stdout out;
    ndCliShowPrefixInfo(p.data(), p.size(), &rows, &title);
    return out.take();
}

TEST_F(TableRender, UserBindPageSkipsPortZeroAndCountsTwo)
{
    Payload p = ndtest::page_header(0, 1);
    p.append(ndtest::ub_entry("2001:db8::5", 10, 5, kMac, 2));
    p.append(ndtest::ub_entry("2001:db8::6", 11, 0, kMac, 2));
    p.append(ndtest::ub_entry("2001:db8::7", 12, 7, kMac, 1));
    uint32_t rows = 10;
    uint8_t title = 0;
    EXPECT_EQ(renderUb(p, rows, title), kUbTitle + ubRow("2001:db8::5", "0011.22aa.bbcc", 10, "ge0/5", "static", 5) +
                                            ubRow("2001:db8::7", "0011.22aa.bbcc", 12, "ge0/7", "dynamic", 7));
    EXPECT_EQ(rows, 12u);
    EXPECT_EQ(title, 1);
    EXPECT_EQ(ndplat::trace_of("portID2ShortString"),
              (std::vector<std::string>{"portID2ShortString(5, ptr)", "portID2ShortString(7, ptr)"}));
}

TEST_F(TableRender, UserBindRowColumns)
{
    Payload p = ndtest::page_header(0, 1).append(ndtest::ub_entry("fe80::1", 10, 5, kMac, 1));
    uint32_t rows = 0;
    uint8_t title = 1;
    std::string text = renderUb(p, rows, title);
    EXPECT_EQ(text, "      fe80::1                                 0011.22aa.bbcc      10         ge0/5          dynamic    5    \n");
    EXPECT_EQ(rows, 1u);
}

TEST_F(TableRender, UserBindTitleOnlyWhileTheFlagIsZero)
{
    Payload empty = ndtest::page_header(0, 1);
    uint32_t rows = 0;
    uint8_t title = 0;
    EXPECT_EQ(renderUb(empty, rows, title), kUbTitle);
    EXPECT_EQ(title, 1);
    EXPECT_EQ(renderUb(empty, rows, title), "");
    EXPECT_EQ(rows, 0u);
}

TEST_F(TableRender, UserBindShortLengths)
{
    for (uint32_t length : {0u, 11u, 12u, 83u}) {
        std::vector<uint8_t> bytes(length == 0 ? 1 : length, 0x05);
        uint32_t rows = 0;
        uint8_t title = 0;
        ndtest::Stdout out;
        ndCliShowUbInfo(bytes.data(), length, &rows, &title);
        EXPECT_EQ(out.take(), kUbTitle) << length;
        EXPECT_EQ(rows, 0u);
        EXPECT_EQ(title, 1);
    }
    uint32_t rows = 0;
    uint8_t title = 0;
    ndtest::Stdout out;
    ndCliShowUbInfo(nullptr, 100, &rows, &title);
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(title, 0);
}

TEST_F(TableRender, UserBindOneRecordExactlyAndOneByteMore)
{
    Payload p = ndtest::page_header(0, 1).append(ndtest::ub_entry("::1", 1, 3, kMac, 2));
    ASSERT_EQ(p.size(), 84u);
    Payload more = p;
    more.resize(85);
    uint32_t rows = 0;
    uint8_t title = 1;
    std::string one = renderUb(p, rows, title);
    EXPECT_EQ(one, ubRow("::1", "0011.22aa.bbcc", 1, "ge0/3", "static", 3));
    EXPECT_EQ(renderUb(more, rows, title), one);
    EXPECT_EQ(rows, 2u);
}

TEST_F(TableRender, UserBindNameBufferIsZeroedOncePerCall)
{
    Payload p = ndtest::page_header(0, 1);
    p.append(ndtest::ub_entry("::1", 1, 3, kMac, 2));
    p.append(ndtest::ub_entry("::2", 1, 4, kMac, 2));
    uint32_t rows = 0;
    uint8_t title = 1;
    EXPECT_EQ(renderUb(p, rows, title), ubRow("::1", "0011.22aa.bbcc", 1, "ge0/3", "static", 3) +
                                            ubRow("::2", "0011.22aa.bbcc", 1, "ge0/4", "static", 4));
    // A lookup that writes nothing leaves the name of this call's previous row, or nothing.
    ndplat::fault_inject("portID2ShortString", -1, 2);
    EXPECT_EQ(renderUb(p, rows, title), ubRow("::1", "0011.22aa.bbcc", 1, "", "static", 3) +
                                            ubRow("::2", "0011.22aa.bbcc", 1, "", "static", 4));
    ndplat::fault_inject("portID2ShortString", -1, 1);
    EXPECT_EQ(renderUb(p, rows, title), ubRow("::1", "0011.22aa.bbcc", 1, "", "static", 3) +
                                            ubRow("::2", "0011.22aa.bbcc", 1, "ge0/4", "static", 4));
    EXPECT_EQ(rows, 6u);
    // Only the second lookup fails: its row shows the name the first one left.
    ndplat::fault_inject("portID2ShortString", -1, 1, 1);
    EXPECT_EQ(renderUb(p, rows, title), ubRow("::1", "0011.22aa.bbcc", 1, "ge0/3", "static", 3) +
                                            ubRow("::2", "0011.22aa.bbcc", 1, "ge0/3", "static", 4));
}

TEST_F(TableRender, PrefixRecordColumns)
{
    Payload p = ndtest::page_header(0, 1).append(ndtest::prefix_entry("2001:db8::", 2592000, 604800, 64));
    uint32_t rows = 3;
    uint8_t title = 0;
    EXPECT_EQ(renderPrefix(p, rows, title), kPrefixTitle + "      " + pad("2001:db8::", 40) + pad("64", 11) +
                                                pad("2592000", 20) + pad("604800", 20) + "\n");
    EXPECT_EQ(rows, 4u);
    EXPECT_EQ(title, 1);
}

TEST_F(TableRender, PrefixTimesAreUnsigned)
{
    Payload p = ndtest::page_header(0, 1).append(ndtest::prefix_entry("2001:db8:1::", 0xFFFFFFFFu, 0x80000000u, -1));
    uint32_t rows = 0;
    uint8_t title = 1;
    EXPECT_EQ(renderPrefix(p, rows, title), "      " + pad("2001:db8:1::", 40) + pad("-1", 11) + pad("4294967295", 20) +
                                                pad("2147483648", 20) + "\n");
}

TEST_F(TableRender, PrefixShortLengthsAndTrailingBytes)
{
    for (uint32_t length : {0u, 11u, 12u, 39u}) {
        std::vector<uint8_t> bytes(length == 0 ? 1 : length, 0x40);
        uint32_t rows = 0;
        uint8_t title = 0;
        ndtest::Stdout out;
        ndCliShowPrefixInfo(bytes.data(), length, &rows, &title);
        EXPECT_EQ(out.take(), kPrefixTitle) << length;
        EXPECT_EQ(rows, 0u);
    }
    Payload p = ndtest::page_header(0, 1).append(ndtest::prefix_entry("::", 1, 2, 0));
    p.resize(p.size() + 27);
    uint32_t rows = 0;
    uint8_t title = 1;
    EXPECT_EQ(renderPrefix(p, rows, title), "      " + pad("::", 40) + pad("0", 11) + pad("1", 20) + pad("2", 20) + "\n");
    EXPECT_EQ(rows, 1u);
}

std::string renderProxy(const void *data, uint32_t length)
{
    ndtest::Stdout out;
    ndCliShowProxyAddr(data, length);
    return out.take();
}

TEST_F(TableRender, ProxyAddressPayloadShorterThanARecord)
{
    std::vector<uint8_t> bytes(35, 0x20);
    EXPECT_EQ(renderProxy(bytes.data(), 35), kProxyTitle);
    EXPECT_EQ(renderProxy(bytes.data(), 0), "");
    EXPECT_EQ(renderProxy(nullptr, 35), "");
    EXPECT_TRUE(ndplat::trace_of("MODULEMGMT_GetModName").empty());
}

TEST_F(TableRender, ProxyAddressesReadFromAnUnalignedPayload)
{
    Payload p = ndtest::proxy_entry(7, "2001:db8::1", "2001:db8::ff");
    p.append(ndtest::proxy_entry(12, "2001:db8:1::", "2001:db8:1::9"));
    // One byte off any alignment, in a heap block of exactly the payload's size plus that byte.
    std::vector<uint8_t> shifted(p.size() + 1);
    memcpy(shifted.data() + 1, p.data(), p.size());
    std::string text = renderProxy(shifted.data() + 1, p.size());
    EXPECT_EQ(text, kProxyTitle + "      " + pad("2001:db8::1", 40) + pad("2001:db8::ff", 40) + pad("MODULE-7", 20) +
                        "\n" + "      " + pad("2001:db8:1::", 40) + pad("2001:db8:1::9", 40) +
                        pad("MODULE-12", 20) + "\n");
    EXPECT_EQ(ndplat::trace_of("MODULEMGMT_GetModName"),
              (std::vector<std::string>{"MODULEMGMT_GetModName(7, ptr, 32)", "MODULEMGMT_GetModName(12, ptr, 32)"}));
}

TEST_F(TableRender, ProxyModuleNameIsZeroedOncePerCall)
{
    Payload p = ndtest::proxy_entry(7, "::1", "::2");
    p.append(ndtest::proxy_entry(8, "::3", "::4"));
    p.resize(p.size() + 35);
    ndplat::fault_inject("MODULEMGMT_GetModName", -1, 1);
    std::string text = renderProxy(p.data(), p.size());
    EXPECT_EQ(text, kProxyTitle + "      " + pad("::1", 40) + pad("::2", 40) + pad("", 20) + "\n" + "      " +
                        pad("::3", 40) + pad("::4", 40) + pad("MODULE-8", 20) + "\n");
    ndplat::fault_inject("MODULEMGMT_GetModName", -1, 1, 1); // the second row keeps the first's name
    text = renderProxy(p.data(), p.size());
    EXPECT_EQ(text, kProxyTitle + "      " + pad("::1", 40) + pad("::2", 40) + pad("MODULE-7", 20) + "\n" + "      " +
                        pad("::3", 40) + pad("::4", 40) + pad("MODULE-7", 20) + "\n");
}

// Random payloads: nothing read outside the payload (checked by the address sanitizer) and
// the row counts follow from the records.
TEST_F(TableRender, RandomPayloads)
{
    std::mt19937 rng(777);
    for (int round = 0; round < 300; ++round) {
        uint32_t length = rng() % 700;
        std::vector<uint8_t> bytes(length == 0 ? 1 : length);
        for (uint8_t &b : bytes)
            b = static_cast<uint8_t>(rng() % 4 == 0 ? 0 : rng());
        uint32_t expectUb = 0;
        for (uint32_t off = 12; length >= 12 && off + 72 <= length; off += 72) {
            uint16_t port;
            memcpy(&port, bytes.data() + off + 22, 2);
            expectUb += port != 0;
        }
        uint32_t expectPrefix = length >= 12 ? (length - 12) / 28 : 0;
        uint32_t ubRows = 0, prefixRows = 0;
        uint8_t ubTitle = 0, prefixTitle = 0;
        ndtest::Stdout out;
        ndCliShowUbInfo(bytes.data(), length, &ubRows, &ubTitle);
        ndCliShowPrefixInfo(bytes.data(), length, &prefixRows, &prefixTitle);
        ndCliShowProxyAddr(bytes.data(), length);
        std::string text = out.take();
        EXPECT_EQ(ubRows, expectUb) << round;
        EXPECT_EQ(prefixRows, expectPrefix) << round;
        EXPECT_EQ(ndplat::trace_of("MODULEMGMT_GetModName").size(), length / 36) << round;
        ndplat::trace_clear();
    }
}

} // namespace
