// Byte-wise reads of wire records and database values: integers in host byte order at the
// offsets the record layouts give, whatever the alignment.
#ifndef ND_CLI_RECORD_H
#define ND_CLI_RECORD_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ndcli {

template <typename T> T readAt(const uint8_t *record, size_t offset)
{
    T value;
    memcpy(&value, record + offset, sizeof value);
    return value;
}

inline uint32_t u32At(const uint8_t *record, size_t offset = 0)
{
    return readAt<uint32_t>(record, offset);
}

inline uint16_t u16At(const uint8_t *record, size_t offset = 0)
{
    return readAt<uint16_t>(record, offset);
}

} // namespace ndcli

#endif
