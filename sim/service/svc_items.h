// What every area of the service model shares: reading the items of a request, building an
// answer, and the text forms of addresses.
#ifndef NDSVC_SVC_ITEMS_H
#define NDSVC_SVC_ITEMS_H

#include <cstdint>
#include <string>
#include <vector>

#include "nd_cli_types.h"
#include "nd_cli_wire.h"
#include "nd_service.h"

namespace ndsvc {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;

// ---- answers --------------------------------------------------------------------------------

// An answer of status `code` and no item.
CmfResponse status(uint32_t code);
// Done, nothing to show.
CmfResponse ok();
// Done, with one item of type `code` holding `bytes`.
CmfResponse with_item(uint32_t code, std::vector<uint8_t> bytes);
// Done when `done`, else the database failed.
CmfResponse stored(bool done);

// ---- request items --------------------------------------------------------------------------

// The first item of this type; null when there is none.
const CmfItem *find_item(const CmfRequest &request, uint32_t type);
// An unsigned number item of 1, 2 or 4 bytes, in host order.
bool item_number(const CmfRequest &request, uint32_t type, uint32_t &out);
// A 16-byte address item.
bool item_address(const CmfRequest &request, uint32_t type, Ip6 &out);
// A text item: NUL-terminated within its bytes (or the whole value when no NUL).
bool item_text(const CmfRequest &request, uint32_t type, std::string &out);

// ---- text -----------------------------------------------------------------------------------

std::string ip6_text(const Ip6 &ip);
std::string mac_text(const Mac &mac);
std::string mac_colon_text(const Mac &mac); // "02:00:00:00:00:0a", as Linux and nftables write it
// An IPv4 (family AF_INET) or IPv6 address as text.
std::string tunnel_text(uint8_t family, const uint8_t *addr);
bool parse_ip6(const std::string &text, Ip6 &out);
// Twelve hexadecimal digits, in groups separated by ':', '-' or '.'.
bool parse_mac(const std::string &text, Mac &out);
// Adds n to the last 32 bits of an address (big-endian, wrapping, no carry upwards).
Ip6 add_to_address(Ip6 ip, uint32_t n);
std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

} // namespace ndsvc

#endif
