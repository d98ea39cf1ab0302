// Frames the Linux kernel sent, kept as the bytes seen on the wire.
#pragma once

#include "frame_maker.h"

namespace ndtest_packet {

// Frames a Linux 6.x kernel sent when 2001:db8::1/64 was added to a fresh interface with MAC
// 5a:8c:1e:12:34:56 (later changed to 5a:8c:1e:ab:cd:ef), read from the peer veth end with an
// AF_PACKET socket. The checksums were verified with a separate Python sum over the
// pseudo-header: 0xd88f, 0xb404, 0x2545 and 0x9091.

// Duplicate address detection of the link-local address: from ::, to ff02::1:ff12:3456, with
// the nonce option (type 14) of enhanced DAD and no source link-layer option.
inline const char *const kKernelDadNs =
    "3333ff123456 5a8c1e123456 86dd"
    "60000000 0020 3a ff"
    "00000000000000000000000000000000"
    "ff0200000000000000000001ff123456"
    "87 00 d88f 00000000"
    "fe80000000000000588c1efffe123456"
    "0e01d5851cc7c4e4";

// Unsolicited advertisement after the MAC changed: to ff02::1, override flag only, the new MAC
// in the target link-layer option.
inline const char *const kKernelUnsolicitedNa =
    "333300000001 5a8c1eabcdef 86dd"
    "60000000 0020 3a ff"
    "20010db8000000000000000000000001"
    "ff020000000000000000000000000001"
    "88 00 b404 20000000"
    "20010db8000000000000000000000001"
    "02015a8c1eabcdef";

// Router solicitation from the link-local address with a source link-layer option.
inline const char *const kKernelRs =
    "333300000002 5a8c1e123456 86dd"
    "60000000 0010 3a ff"
    "fe80000000000000588c1efffe123456"
    "ff020000000000000000000000000002"
    "85 00 2545 00000000"
    "01015a8c1e123456";

// MLDv2 report (ICMPv6 type 143) behind a hop-by-hop header with the router alert option.
inline const char *const kKernelMldReport =
    "333300000016 5a8c1e123456 86dd"
    "60000000 0038 00 01"
    "fe80000000000000588c1efffe123456"
    "ff020000000000000000000000000016"
    "3a00 0502 0000 0100"
    "8f 00 9091 0000 0002"
    "04000000 ff0200000000000000000001ff000001"
    "04000000 ff0200000000000000000001ff123456";

inline const Mac kKernelMac = {0x5a, 0x8c, 0x1e, 0x12, 0x34, 0x56};
inline const Mac kKernelNewMac = {0x5a, 0x8c, 0x1e, 0xab, 0xcd, 0xef};
inline const Ip6 kKernelLinkLocal = ip6(0xfe80, 0, 0, 0, 0x588c, 0x1eff, 0xfe12, 0x3456);

} // namespace ndtest_packet
