// Request items, answers and address texts of the service model.
#include "svc_items.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace ndsvc {

CmfResponse status(uint32_t code)
{
    CmfResponse r;
    r.status = code;
    r.endStatus = ndwire::kCmfNoMore;
    return r;
}

CmfResponse ok()
{
    return status(ndwire::kCmfNoMore);
}

CmfResponse with_item(uint32_t code, std::vector<uint8_t> bytes)
{
    CmfResponse r = ok();
    CmfItem item;
    item.type = code;
    item.length = static_cast<uint32_t>(bytes.size());
    item.bytes = std::move(bytes);
    r.items.push_back(std::move(item));
    return r;
}

CmfResponse stored(bool done)
{
    return done ? ok() : status(ND_ERR_DBM);
}

const CmfItem *find_item(const CmfRequest &request, uint32_t type)
{
    for (const CmfItem &item : request.items)
        if (item.type == type)
            return &item;
    return nullptr;
}

bool item_number(const CmfRequest &request, uint32_t type, uint32_t &out)
{
    const CmfItem *item = find_item(request, type);
    if (!item)
        return false;
    switch (item->bytes.size()) {
    case 1:
        out = item->bytes[0];
        return true;
    case 2: {
        uint16_t v;
        memcpy(&v, item->bytes.data(), 2);
        out = v;
        return true;
    }
    case 4:
        memcpy(&out, item->bytes.data(), 4);
        return true;
    default:
        return false;
    }
}

bool item_address(const CmfRequest &request, uint32_t type, Ip6 &out)
{
    const CmfItem *item = find_item(request, type);
    if (!item || item->bytes.size() != out.size())
        return false;
    memcpy(out.data(), item->bytes.data(), out.size());
    return true;
}

bool item_text(const CmfRequest &request, uint32_t type, std::string &out)
{
    const CmfItem *item = find_item(request, type);
    if (!item || item->bytes.empty())
        return false;
    const char *p = reinterpret_cast<const char *>(item->bytes.data());
    out.assign(p, strnlen(p, item->bytes.size()));
    return true;
}

std::string ip6_text(const Ip6 &ip)
{
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, ip.data(), text, sizeof text);
    return text;
}

std::string mac_text(const Mac &mac)
{
    char text[16];
    snprintf(text, sizeof text, "%02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

std::string mac_colon_text(const Mac &mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

std::string tunnel_text(uint8_t family, const uint8_t *addr)
{
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(family == AF_INET ? AF_INET : AF_INET6, addr, text, sizeof text);
    return text;
}

bool parse_ip6(const std::string &text, Ip6 &out)
{
    return inet_pton(AF_INET6, text.c_str(), out.data()) == 1;
}

bool parse_mac(const std::string &text, Mac &out)
{
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)))
            digits += c;
        else if (c != ':' && c != '-' && c != '.')
            return false;
    }
    if (digits.size() != 12)
        return false;
    for (size_t i = 0; i < 6; ++i)
        out[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    return true;
}

Ip6 add_to_address(Ip6 ip, uint32_t n)
{
    uint32_t low = (uint32_t(ip[12]) << 24) | (uint32_t(ip[13]) << 16) | (uint32_t(ip[14]) << 8) | ip[15];
    low += n;
    ip[12] = uint8_t(low >> 24);
    ip[13] = uint8_t(low >> 16);
    ip[14] = uint8_t(low >> 8);
    ip[15] = uint8_t(low);
    return ip;
}

std::string format(const char *fmt, ...)
{
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return buf;
}

} // namespace ndsvc
