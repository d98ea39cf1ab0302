// Table renderers: the ND snooping user-bind and prefix tables, printed page by page with a
// row counter and a title flag that the caller keeps across pages, and the ND proxy address
// ranges, whose title comes with every call.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "nd_cli_internal.h"
#include "render/nd_render.h"
#include "framework/nd_cli_record.h"

using ndcli::readAt;

namespace {

constexpr int kAddressFamilyIpv6 = 10;
static_assert(AF_INET6 == kAddressFamilyIpv6);
constexpr size_t kAddressTextBytes = 48;
constexpr size_t kPortNameBytes = 40;
constexpr uint32_t kModuleNameBytes = 32;

// Formats the 16 address bytes at `offset`; they need not be aligned.
void addressText(const uint8_t *record, uint32_t offset, char (&text)[kAddressTextBytes])
{
    uint8_t address[16];
    memcpy(address, record + offset, sizeof address);
    if (!inet_ntop(kAddressFamilyIpv6, address, text, sizeof text))
        text[0] = '\0';
}

void printRule(uint32_t dashes)
{
    printf("\n      ");
    for (uint32_t i = 0; i < dashes; ++i)
        putchar('-');
    printf("\n");
}

// Walks the records that follow the page header; a payload shorter than the header is an
// empty page.
template <typename Fn> void forEachPageRecord(const void *payload, uint32_t length, uint32_t recordBytes, Fn fn)
{
    if (length < ndwire::page::kSize)
        return;
    uint32_t remaining = length - ndwire::page::kSize;
    const uint8_t *cursor = static_cast<const uint8_t *>(payload) + ndwire::page::kSize;
    while (remaining >= recordBytes) {
        fn(cursor);
        remaining -= recordBytes;
        cursor += recordBytes;
    }
}

} // namespace

extern "C" {

void ndCliShowUbInfo(const void *payload, uint32_t length, uint32_t *rows, uint8_t *titleShown)
{
    if (!payload)
        return;
    if (*titleShown == 0) {
        printf("\n      %-40s%-20s%-11s%-15s%-11s%-5s", "ipv6-address", "mac-address", "vlan", "interface", "type", "ag");
        printRule(116);
        *titleShown = 1;
    }
    // Kept from row to row: a failed name lookup shows what the previous row left. The column
    // is never blank, which the scripts that split these rows into fields rely on.
    char portName[kPortNameBytes];
    memset(portName, 0, sizeof portName);
    forEachPageRecord(payload, length, ndwire::userbind::kSize, [&](const uint8_t *entry) {
        char address[kAddressTextBytes];
        addressText(entry, ndwire::userbind::kAddress, address);
        const uint8_t *mac = entry + ndwire::userbind::kMac;
        char macText[16];
        snprintf(macText, sizeof macText, "%02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        const auto port = readAt<uint16_t>(entry, ndwire::userbind::kPort);
        if (port == 0)
            return;
        portID2ShortString(port, portName);
        portName[kPortNameBytes - 1] = '\0';
        printf("      %-40s%-20s%-11d%-15s%-11s%-5d\n", address, macText, readAt<uint16_t>(entry, ndwire::userbind::kVlan), portName,
               entry[ndwire::userbind::kType] == ndwire::userbind::kTypeStatic ? "static" : "dynamic", port);
        ++*rows;
    });
}

void ndCliShowPrefixInfo(const void *payload, uint32_t length, uint32_t *rows, uint8_t *titleShown)
{
    if (!payload)
        return;
    if (*titleShown == 0) {
        printf("\n      %-40s%-11s%-20s%-20s", "prefix", "length", "valid-time", "preferred-time");
        printRule(85);
        *titleShown = 1;
    }
    forEachPageRecord(payload, length, ndwire::prefix::kSize, [&](const uint8_t *entry) {
        char prefix[kAddressTextBytes];
        addressText(entry, ndwire::prefix::kAddress, prefix);
        printf("      %-40s%-11d%-20u%-20u\n", prefix, readAt<int32_t>(entry, ndwire::prefix::kLength),
               readAt<uint32_t>(entry, ndwire::prefix::kValid), readAt<uint32_t>(entry, ndwire::prefix::kPreferred));
        ++*rows;
    });
}

void ndCliShowProxyAddr(const void *payload, uint32_t length)
{
    if (!payload || length == 0)
        return;
    printf("\n      %-40s%-40s%-20s\n", "begin-address", "end-address", "module-name");
    printf("\n");
    // Kept from row to row: a failed lookup shows what the previous row left, as the
    // user-bind table does, for the same scripts.
    char moduleName[kModuleNameBytes];
    memset(moduleName, 0, sizeof moduleName);
    uint32_t remaining = length;
    const uint8_t *cursor = static_cast<const uint8_t *>(payload);
    while (remaining >= ndwire::proxy::kSize) {
        MODULEMGMT_GetModName(readAt<uint32_t>(cursor, ndwire::proxy::kModule), moduleName, kModuleNameBytes);
        moduleName[kModuleNameBytes - 1] = '\0';
        char begin[kAddressTextBytes];
        char end[kAddressTextBytes];
        addressText(cursor, ndwire::proxy::kBegin, begin);
        addressText(cursor, ndwire::proxy::kEnd, end);
        printf("      %-40s%-40s%-20s\n", begin, end, moduleName);
        remaining -= ndwire::proxy::kSize;
        cursor += ndwire::proxy::kSize;
    }
}
}
