// Port management: the chassis's ports and link aggregations, port maps, interface names and
// the hardware-address parser.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "ndplat.h"
#include "ndplat_ports.h"

extern "C" {
uint32_t g_max_pbmp_bytes = ndplat::kDefaultPortmapBytes;
}

namespace {

constexpr const char *kEthernetName = "gigabitethernet";
constexpr const char *kEthernetShort = "ge";
constexpr const char *kAggregationName = "link-aggregation";
constexpr const char *kAggregationShort = "ag";

struct PortState {
    std::mutex mutex;
    std::vector<ndplat::PortInfo> ports;    // index = ID - 1
    std::map<int32_t, std::string> refused; // port ID -> reason
};

PortState &state()
{
    static PortState s;
    return s;
}

void buildLayout(PortState &s, uint32_t members, uint32_t slots, uint32_t portsPerSlot, uint32_t aggregations)
{
    s.ports.clear();
    s.refused.clear();
    const size_t capacity = static_cast<size_t>(g_max_pbmp_bytes) * 8;
    char name[64];
    char shortName[64];
    const uint32_t firstMember = members > 1 ? 1 : 0;
    for (uint32_t m = 0; m < members; ++m) {
        for (uint32_t sl = 0; sl < slots; ++sl) {
            for (uint32_t p = 1; p <= portsPerSlot && s.ports.size() < capacity; ++p) {
                ndplat::PortInfo info;
                info.id = static_cast<int32_t>(s.ports.size() + 1);
                info.member = m + firstMember;
                info.slot = sl;
                info.port = p;
                if (members > 1) {
                    snprintf(name, sizeof name, "%s%u/%u/%u", kEthernetName, info.member, sl, p);
                    snprintf(shortName, sizeof shortName, "%s%u/%u/%u", kEthernetShort, info.member, sl, p);
                } else {
                    snprintf(name, sizeof name, "%s%u/%u", kEthernetName, sl, p);
                    snprintf(shortName, sizeof shortName, "%s%u/%u", kEthernetShort, sl, p);
                }
                info.name = name;
                info.shortName = shortName;
                s.ports.push_back(info);
            }
        }
    }
    for (uint32_t a = 1; a <= aggregations && s.ports.size() < capacity; ++a) {
        ndplat::PortInfo info;
        info.id = static_cast<int32_t>(s.ports.size() + 1);
        info.aggregation = true;
        info.port = a;
        snprintf(name, sizeof name, "%s%u", kAggregationName, a);
        snprintf(shortName, sizeof shortName, "%s%u", kAggregationShort, a);
        info.name = name;
        info.shortName = shortName;
        s.ports.push_back(info);
    }
}

void resetPorts()
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    g_max_pbmp_bytes = ndplat::kDefaultPortmapBytes;
    buildLayout(s, 1, 1, 24, 32);
}

const bool registered = (ndplat::on_reset(resetPorts), (resetPorts(), true));

const ndplat::PortInfo *findLocked(const PortState &s, int32_t id)
{
    if (id < 1 || static_cast<size_t>(id) > s.ports.size())
        return nullptr;
    return &s.ports[static_cast<size_t>(id) - 1];
}

bool equalsNoCase(const std::string &a, const char *b)
{
    size_t n = strlen(b);
    if (a.size() != n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (tolower(static_cast<unsigned char>(a[i])) != b[i])
            return false;
    return true;
}

// "gi", "giga", ... "gigabitethernet" and "ge" name Ethernet ports; "li" ... "link-aggregation"
// and "ag" aggregations.
enum class Kind {
    None,
    Ethernet,
    Aggregation,
    Bad,
};

Kind kindOf(const std::string &letters)
{
    if (letters.empty())
        return Kind::None;
    if (equalsNoCase(letters, kEthernetShort))
        return Kind::Ethernet;
    if (equalsNoCase(letters, kAggregationShort))
        return Kind::Aggregation;
    auto prefixOf = [&letters](const char *full) {
        if (letters.size() < 2 || letters.size() > strlen(full))
            return false;
        for (size_t i = 0; i < letters.size(); ++i)
            if (tolower(static_cast<unsigned char>(letters[i])) != full[i])
                return false;
        return true;
    };
    if (prefixOf(kEthernetName))
        return Kind::Ethernet;
    if (prefixOf(kAggregationName))
        return Kind::Aggregation;
    return Kind::Bad;
}

// One end of an interface range: optional letters, optional blanks, numbers joined by "/".
struct Endpoint {
    Kind kind = Kind::None;
    std::vector<uint32_t> numbers;
};

bool parseEndpoint(const std::string &text, size_t &pos, Endpoint &out)
{
    std::string letters;
    while (pos < text.size()) {
        unsigned char c = static_cast<unsigned char>(text[pos]);
        bool hyphenInName = c == '-' && !letters.empty() && pos + 1 < text.size() &&
                            isalpha(static_cast<unsigned char>(text[pos + 1]));
        if (!isalpha(c) && !hyphenInName)
            break;
        letters += static_cast<char>(c);
        ++pos;
    }
    out.kind = kindOf(letters);
    if (out.kind == Kind::Bad)
        return false;
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    out.numbers.clear();
    for (;;) {
        if (pos >= text.size() || !isdigit(static_cast<unsigned char>(text[pos])))
            return false;
        uint32_t n = 0;
        while (pos < text.size() && isdigit(static_cast<unsigned char>(text[pos]))) {
            n = n * 10 + static_cast<uint32_t>(text[pos] - '0');
            if (n > 1000000)
                return false;
            ++pos;
        }
        out.numbers.push_back(n);
        if (pos < text.size() && text[pos] == '/') {
            ++pos;
            continue;
        }
        return true;
    }
}

int32_t resolveLocked(const PortState &s, Kind kind, const std::vector<uint32_t> &numbers)
{
    for (const ndplat::PortInfo &p : s.ports) {
        if (kind == Kind::Aggregation) {
            if (p.aggregation && numbers.size() == 1 && p.port == numbers[0])
                return p.id;
            continue;
        }
        if (p.aggregation)
            continue;
        bool multi = s.ports.front().member != 0 || p.member != 0;
        std::vector<uint32_t> mine = multi ? std::vector<uint32_t>{p.member, p.slot, p.port}
                                           : std::vector<uint32_t>{p.slot, p.port};
        if (mine == numbers)
            return p.id;
    }
    return 0;
}

// Parses one comma-separated element into the IDs it names.
bool parseElement(const PortState &s, const std::string &text, std::vector<int32_t> &ids)
{
    size_t pos = 0;
    Endpoint first;
    if (!parseEndpoint(text, pos, first))
        return false;
    // A bare number is a link-aggregation number.
    Kind kind = first.kind == Kind::None ? Kind::Aggregation : first.kind;
    int32_t from = resolveLocked(s, kind, first.numbers);
    if (from == 0)
        return false;
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    if (pos == text.size()) {
        ids.push_back(from);
        return true;
    }
    if (text[pos] != '-')
        return false;
    ++pos;
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    Endpoint last;
    if (!parseEndpoint(text, pos, last))
        return false;
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    if (pos != text.size())
        return false;
    if (last.kind != Kind::None && last.kind != kind)
        return false;
    std::vector<uint32_t> lastNumbers = first.numbers;
    if (last.numbers.size() == first.numbers.size())
        lastNumbers = last.numbers;
    else if (last.numbers.size() == 1 && last.kind == Kind::None)
        lastNumbers.back() = last.numbers[0];
    else
        return false;
    int32_t to = resolveLocked(s, kind, lastNumbers);
    if (to == 0 || to < from)
        return false;
    for (int32_t id = from; id <= to; ++id)
        ids.push_back(id);
    return true;
}

void setBit(void *map, int32_t id)
{
    auto *bytes = static_cast<uint8_t *>(map);
    uint32_t bit = static_cast<uint32_t>(id - 1);
    bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | (1u << (bit % 8)));
}

std::vector<int32_t> portsIn(const void *map, uint32_t size)
{
    std::vector<int32_t> ids;
    const auto *bytes = static_cast<const uint8_t *>(map);
    for (uint32_t i = 0; i < size; ++i)
        for (uint32_t b = 0; b < 8; ++b)
            if (bytes[i] & (1u << b))
                ids.push_back(static_cast<int32_t>(i * 8 + b + 1));
    return ids;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

namespace ndplat {

void ports_layout_set(uint32_t members, uint32_t slots, uint32_t portsPerSlot, uint32_t aggregations)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    buildLayout(s, members, slots, portsPerSlot, aggregations);
}

std::vector<PortInfo> ports_all()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().ports;
}

int32_t port_id(const std::string &name)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    size_t pos = 0;
    Endpoint e;
    if (!parseEndpoint(name, pos, e) || e.kind == Kind::None || pos != name.size())
        return 0;
    return resolveLocked(s, e.kind, e.numbers);
}

int32_t aggregation_id(uint32_t number)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    return resolveLocked(s, Kind::Aggregation, {number});
}

const PortInfo *port_find(int32_t id)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    return findLocked(s, id);
}

void port_configurable_set(int32_t id, bool configurable, const std::string &reason)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (configurable)
        s.refused.erase(id);
    else
        s.refused[id] = reason;
}

std::vector<uint8_t> portmap_of(const std::vector<int32_t> &ids)
{
    std::vector<uint8_t> map(g_max_pbmp_bytes, 0);
    for (int32_t id : ids)
        if (id >= 1 && static_cast<uint32_t>(id) <= g_max_pbmp_bytes * 8)
            setBit(map.data(), id);
    return map;
}

std::vector<int32_t> portmap_ports(const void *map)
{
    return map ? portsIn(map, g_max_pbmp_bytes) : std::vector<int32_t>{};
}

void portmap_bytes_set(uint32_t bytes)
{
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    g_max_pbmp_bytes = bytes;
}

} // namespace ndplat

extern "C" int32_t cmdString2Portmap(const char *text, void *map, uint32_t size)
{
    ndplat::trace_call("cmdString2Portmap", "%s, %s, %u", ndplat::trace_str(text).c_str(), map ? "ptr" : "null", size);
    if (auto fault = ndplat::fault_next("cmdString2Portmap"))
        return static_cast<int32_t>(*fault);
    if (!text || !map)
        return -1;
    memset(map, 0, size);
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    std::vector<int32_t> ids;
    std::string all(text);
    size_t start = 0;
    for (;;) {
        size_t comma = all.find(',', start);
        std::string element = all.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        size_t b = element.find_first_not_of(' ');
        size_t e = element.find_last_not_of(' ');
        if (b == std::string::npos || !parseElement(s, element.substr(b, e - b + 1), ids))
            return -1;
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    for (int32_t id : ids)
        if (static_cast<uint32_t>(id - 1) / 8 >= size)
            return -1;
    for (int32_t id : ids)
        setBit(map, id);
    return 0;
}

extern "C" void portmapCopy(void *dst, const void *src)
{
    ndplat::trace_call("portmapCopy", "%s, %s", dst ? "ptr" : "null", src ? "ptr" : "null");
    if (ndplat::fault_next("portmapCopy"))
        return;
    if (dst && src)
        memmove(dst, src, g_max_pbmp_bytes);
}

extern "C" int32_t portmapIsEmpty(const void *map)
{
    ndplat::trace_call("portmapIsEmpty", "%s", map ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("portmapIsEmpty"))
        return static_cast<int32_t>(*fault);
    if (!map)
        return 1;
    const auto *bytes = static_cast<const uint8_t *>(map);
    for (uint32_t i = 0; i < g_max_pbmp_bytes; ++i)
        if (bytes[i])
            return 0;
    return 1;
}

extern "C" int32_t portmap2PortID(const void *map, uint32_t size, int32_t *portId, char *name)
{
    ndplat::trace_call("portmap2PortID", "%s, %u, %s, %s", map ? "ptr" : "null", size, portId ? "ptr" : "null",
                       name ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("portmap2PortID"))
        return static_cast<int32_t>(*fault);
    if (!map || !portId)
        return -1;
    std::vector<int32_t> ids = portsIn(map, size);
    if (ids.empty()) {
        *portId = 0;
        return 0;
    }
    if (ids.size() > 1) {
        *portId = -1;
        return 0;
    }
    *portId = ids[0];
    if (name) {
        PortState &s = state();
        std::lock_guard<std::mutex> hold(s.mutex);
        const ndplat::PortInfo *p = findLocked(s, ids[0]);
        snprintf(name, 40, "%s", p ? p->name.c_str() : "");
    }
    return 0;
}

extern "C" int32_t isPmPortConfigurable(int32_t portId, const char *module, uint32_t a3, uint32_t a4)
{
    ndplat::trace_call("isPmPortConfigurable", "%d, %s, %u, %u", portId, ndplat::trace_str(module).c_str(), a3, a4);
    if (auto fault = ndplat::fault_next("isPmPortConfigurable"))
        return static_cast<int32_t>(*fault);
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    const ndplat::PortInfo *p = findLocked(s, portId);
    if (!p) {
        printf("\n%% Invalid port %d.\n", portId);
        return 0;
    }
    auto refused = s.refused.find(portId);
    if (refused == s.refused.end())
        return 1;
    if (refused->second.empty())
        printf("\n%% %s is not allowed to configure %s.\n", p->name.c_str(), module ? module : "");
    else
        printf("\n%s\n", refused->second.c_str());
    return 0;
}

namespace {
int32_t portName(int32_t portId, char *buf, bool shortForm)
{
    if (!buf)
        return -1;
    PortState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    const ndplat::PortInfo *p = findLocked(s, portId);
    if (!p) {
        buf[0] = '\0';
        return -1;
    }
    snprintf(buf, 40, "%s", shortForm ? p->shortName.c_str() : p->name.c_str());
    return 0;
}
} // namespace

extern "C" int32_t portID2FmtString(int32_t portId, char *buf)
{
    ndplat::trace_call("portID2FmtString", "%d, %s", portId, buf ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("portID2FmtString"))
        return static_cast<int32_t>(*fault);
    return portName(portId, buf, false);
}

extern "C" int32_t portID2ShortString(int32_t portId, char *buf)
{
    ndplat::trace_call("portID2ShortString", "%d, %s", portId, buf ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("portID2ShortString"))
        return static_cast<int32_t>(*fault);
    return portName(portId, buf, true);
}

// Accepts "0011.22aa.bbcc", "00:11:22:aa:bb:cc" and "00-11-22-aa-bb-cc".
extern "C" int32_t enet_addr(const char *text, uint8_t *mac)
{
    ndplat::trace_call("enet_addr", "%s, %s", ndplat::trace_str(text).c_str(), mac ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("enet_addr"))
        return static_cast<int32_t>(*fault);
    if (!text || !mac)
        return -1;
    uint8_t out[6];
    size_t n = strlen(text);
    if (n == 14 && text[4] == '.' && text[9] == '.') {
        const int groups[3] = {0, 5, 10};
        for (int g = 0; g < 3; ++g) {
            for (int k = 0; k < 2; ++k) {
                int hi = hexValue(text[groups[g] + 2 * k]);
                int lo = hexValue(text[groups[g] + 2 * k + 1]);
                if (hi < 0 || lo < 0)
                    return -1;
                out[g * 2 + k] = static_cast<uint8_t>(hi * 16 + lo);
            }
        }
    } else if (n == 17 && (text[2] == ':' || text[2] == '-')) {
        for (int i = 0; i < 6; ++i) {
            if (i > 0 && text[i * 3 - 1] != text[2])
                return -1;
            int hi = hexValue(text[i * 3]);
            int lo = hexValue(text[i * 3 + 1]);
            if (hi < 0 || lo < 0)
                return -1;
            out[i] = static_cast<uint8_t>(hi * 16 + lo);
        }
    } else {
        return -1;
    }
    memcpy(mac, out, sizeof out);
    return 0;
}
