// Builds response payloads from logical values: every integer is written with memcpy in the
// host's byte order, as the ND service writes it, so the same test describes the same records
// on a little-endian host and on the big-endian switch.
#ifndef ND_TEST_PAYLOAD_H
#define ND_TEST_PAYLOAD_H

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace ndtest {

class Payload {
public:
    explicit Payload(size_t size = 0) : bytes_(size, 0) {}

    template <typename T> Payload &put(size_t offset, T value)
    {
        grow(offset + sizeof value);
        memcpy(bytes_.data() + offset, &value, sizeof value);
        return *this;
    }
    Payload &put_bytes(size_t offset, const void *data, size_t size)
    {
        grow(offset + size);
        memcpy(bytes_.data() + offset, data, size);
        return *this;
    }
    Payload &put_ipv6(size_t offset, const char *text)
    {
        uint8_t address[16] = {};
        inet_pton(AF_INET6, text, address);
        return put_bytes(offset, address, sizeof address);
    }
    Payload &append(const Payload &other)
    {
        bytes_.insert(bytes_.end(), other.bytes_.begin(), other.bytes_.end());
        return *this;
    }
    Payload &resize(size_t size)
    {
        bytes_.resize(size, 0);
        return *this;
    }
    const std::vector<uint8_t> &bytes() const { return bytes_; }
    uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
    // A heap copy of exactly size() bytes, so that any read past the end is caught by the
    // address sanitizer; null for an empty payload is avoided (one spare byte is never read).
    const uint8_t *data() const { return bytes_.data(); }

private:
    void grow(size_t size)
    {
        if (bytes_.size() < size)
            bytes_.resize(size, 0);
    }
    std::vector<uint8_t> bytes_;
};

// A page header: next start index and last-page flag.
inline Payload page_header(uint16_t next, uint32_t last)
{
    Payload p(12);
    p.put<uint16_t>(4, next).put<uint32_t>(8, last);
    return p;
}

// A snooping statistics record (60 bytes); counters[i] goes to offset 4 + 4 * i.
inline Payload snp_record(uint8_t member, uint8_t instance, const std::vector<uint32_t> &counters)
{
    Payload p(60);
    p.put<uint8_t>(0, instance).put<uint8_t>(1, member);
    for (size_t i = 0; i < counters.size() && i < 14; ++i)
        p.put<uint32_t>(4 + 4 * i, counters[i]);
    return p;
}

// A fast-response statistics record (84 bytes); counters[i] goes to offset 4 + 4 * i.
inline Payload fwd_record(uint8_t member, uint8_t instance, const std::vector<uint32_t> &counters)
{
    Payload p(84);
    p.put<uint8_t>(0, instance).put<uint8_t>(1, member);
    for (size_t i = 0; i < counters.size() && i < 20; ++i)
        p.put<uint32_t>(4 + 4 * i, counters[i]);
    return p;
}

// A user-bind entry (72 bytes).
inline Payload ub_entry(const char *address, uint16_t vlan, uint16_t port, const uint8_t (&mac)[6], uint8_t type)
{
    Payload p(72);
    p.put_ipv6(0, address).put<uint16_t>(20, vlan).put<uint16_t>(22, port).put_bytes(64, mac, 6).put<uint8_t>(70, type);
    return p;
}

// A prefix entry (28 bytes).
inline Payload prefix_entry(const char *prefix, uint32_t valid, uint32_t preferred, int32_t length)
{
    Payload p(28);
    p.put_ipv6(0, prefix).put<uint32_t>(16, valid).put<uint32_t>(20, preferred).put<int32_t>(24, length);
    return p;
}

// A proxy address range (36 bytes).
inline Payload proxy_entry(uint32_t module, const char *begin, const char *end)
{
    Payload p(36);
    p.put<uint32_t>(0, module).put_ipv6(4, begin).put_ipv6(20, end);
    return p;
}

} // namespace ndtest

#endif
