#!/usr/bin/env bash
# Checks the dynamic interface of the built plug-in:
#  - the object is of the expected class, byte order and machine;
#  - it needs libc alone (no libstdc++, no libgcc_s);
#  - every function and word of include/nd_cli.h is a defined dynamic symbol;
#  - nothing else is exported;
#  - every undefined symbol is a platform import of include/nd_platform.h or comes from libc.
# Usage: check_abi.sh READELF NM LIBRARY INCLUDE_DIR EXPECT(host|mips) SANITIZED(0|1)
# (sanitized builds: instrumentation exports and unversioned libc imports are expected)
set -u
readelf=$1 nm=$2 lib=$3 include=$4 expect=$5 sanitized=$6
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

header=$("$readelf" -h "$lib") || { echo "cannot read $lib"; exit 1; }
case $expect in
  mips)
    grep -q 'Class:[[:space:]]*ELF32' <<<"$header" || fail "not a 32-bit object"
    grep -q 'big endian' <<<"$header" || fail "not big-endian"
    grep -q 'Machine:[[:space:]]*MIPS' <<<"$header" || fail "not a MIPS object"
    ;;
  host)
    grep -q 'Class:[[:space:]]*ELF64' <<<"$header" || fail "not a 64-bit object"
    ;;
esac

needed=$("$readelf" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for n in $needed; do
  case $n in
    libc.so.*) ;;
    libasan.so.*|libubsan.so.*|libtsan.so.*) [ "$sanitized" = 1 ] || fail "needs $n" ;;
    *) fail "needs $n" ;;
  esac
done

# The names the plug-in exports: every declaration of nd_cli.h marked ND_CLI_EXPORT.
exports=$(grep '^ND_CLI_EXPORT' "$include/nd_cli.h" \
  | sed -e 's/(\*\([A-Za-z_0-9]*\))/\1 /' -e 's/\[.*//' -e 's/(.*//' -e 's/;.*//' \
  | awk '{ print $NF }' | tr -d '*' | sort -u)
# SYSTEM_SCRIPT_CHS and its neighbours are declared on one line each; nothing else is listed.
imports=$(grep -E '^[A-Za-z_].*\(' "$include/nd_platform.h" | grep -v '^typedef' \
  | sed -e 's/(.*//' | awk '{ print $NF }' | tr -d '*' | sort -u)
imports=$(printf '%s\ng_max_pbmp_bytes\n' "$imports")

defined=$("$nm" -D --defined-only "$lib" | awk '{ print $3 }' | sed 's/@.*//' | sort -u)
for name in $exports; do
  grep -qx "$name" <<<"$defined" || fail "export missing: $name"
done
for name in $defined; do
  grep -qx "$name" <<<"$exports" && continue
  case $name in
    _init|_fini|_edata|_end|__bss_start|_fbss|_fdata|_ftext|__RLD_MAP|_DYNAMIC_LINKING|_gp_disp) ;;
    __odr_asan.*) [ "$sanitized" = 1 ] || fail "unexpected export: $name" ;;
    *) fail "unexpected export: $name" ;;
  esac
done

# A sanitized library calls libc through the sanitizer's interceptors, which leaves its libc
# imports unversioned: there the imports are checked by the host and mips builds only.
[ "$sanitized" = 1 ] || while read -r kind name; do
  case $kind in w|v) continue ;; esac
  case $name in
    *@GLIBC_*|*@@GLIBC_*) continue ;;
  esac
  grep -qx "$name" <<<"$imports" || fail "unexpected undefined symbol: $name"
done < <("$nm" -D --undefined-only "$lib" | awk '{ print $(NF-1), $NF }')

count=$(wc -w <<<"$exports")
if [ $failures -ne 0 ]; then
  echo "$failures problem(s) in $lib"
  exit 1
fi
echo "ok: $count exports, needs: $needed"
