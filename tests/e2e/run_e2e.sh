#!/bin/bash
# Runs one end-to-end transcript: ndsh -f against a real ndsvc in a fresh state directory, and
# compares everything printed with the expected transcript byte for byte.
#
#   run_e2e.sh NDSH TEST_FILE EXPECTED_FILE WORK_DIR
#
# The test file is a list of blocks, each opened by a line "#! ACTION ARGS":
#   #! ndsh [OPTIONS]      the lines up to the next block are one ndsh -f session (with --echo)
#   #! ndsh-background [OPTIONS]  the same, running while the next blocks run; its transcript
#                          is added at the next "#! wait"
#   #! sleep SECONDS       wait before the next block
#   #! env NAME=VALUE      set an environment variable for what follows
#   #! wait                wait for the background sessions and add their transcripts
#   #! service-args ARGS   arguments for every ndsvc started from now on ("{src}" is the
#                          folder of the test file)
#   #! service-exe PATH    the ndsvc that DCM_Start runs from now on (a missing one: no service)
#   #! note TEXT           copied into the transcript, to mark the steps
#   #! service-log         copies what the service wrote to its log so far into the transcript
# Set ND_E2E_UPDATE=1 to write the actual transcript over the expected one.
set -u
ndsh=$1
test_file=$2
expected=$3
work=$4
src=$(cd "$(dirname "$test_file")" && pwd)

rm -rf "$work"
mkdir -p "$work"
# Unix socket paths are short: the state directory lives under /tmp.
state=$(mktemp -d /tmp/nde2e.XXXXXX)
# The service outlives the shells that used it: stopped here on every way out, with the ndsvc
# the test began with (a "service-exe" block may name one that does not exist).
ndsvc=${NDSIM_NDSVC:-$(dirname "$ndsh")/../service/ndsvc}
trap '"$ndsvc" --stop --state "$state" >/dev/null 2>&1; rm -rf "$state"' EXIT
export NDSIM_STATE=$state
unset NDSIM_NDSVC_ARGS
actual=$work/actual.out
: >"$actual"

block=""
block_args=""
block_lines=()
session=0
background=()

flush() {
  if [ "$block" = "ndsh" ] || [ "$block" = "ndsh-background" ]; then
    session=$((session + 1))
    printf '%s\n' "${block_lines[@]}" >"$work/session$session.cmd"
    if [ "$block" = "ndsh-background" ]; then
      # shellcheck disable=SC2086
      timeout 60 "$ndsh" --state "$state" --echo $block_args -f "$work/session$session.cmd" \
        >"$work/session$session.out" 2>&1 &
      background+=("$session")
    else
      # shellcheck disable=SC2086
      timeout 60 "$ndsh" --state "$state" --echo $block_args -f "$work/session$session.cmd" >>"$actual" 2>&1
      local rc=$?
      if [ $rc -ge 124 ]; then
        echo "[ndsh ended with status $rc]" >>"$actual"
      fi
    fi
  fi
  block=""
  block_args=""
  block_lines=()
}

while IFS= read -r line || [ -n "$line" ]; do
  if [[ "$line" == "#! "* ]]; then
    flush
    words=${line#\#! }
    action=${words%% *}
    args=""
    [ "$action" != "$words" ] && args=${words#* }
    case "$action" in
      ndsh | ndsh-background) block=$action; block_args=$args ;;
      sleep) sleep "$args" ;;
      env) export "${args?}" ;;
      wait)
        wait
        for b in "${background[@]}"; do cat "$work/session$b.out" >>"$actual"; done
        background=()
        ;;
      service-args) export NDSIM_NDSVC_ARGS=${args//\{src\}/$src} ;;
      service-exe) export NDSIM_NDSVC=${args//\{src\}/$src} ;;
      note) printf '\n=== %s ===\n' "$args" >>"$actual" ;;
      service-log)
        printf '[ndsvc.log]\n' >>"$actual"
        [ -f "$state/ndsvc.log" ] && cat "$state/ndsvc.log" >>"$actual" && : >"$state/ndsvc.log"
        ;;
      *) echo "unknown action: $line" >&2; exit 2 ;;
    esac
  elif [ -n "$block" ]; then
    block_lines+=("$line")
  fi
done <"$test_file"
flush

if [ "${ND_E2E_UPDATE:-0}" = "1" ]; then
  cp "$actual" "$expected"
  exit 0
fi
if ! cmp -s "$expected" "$actual"; then
  diff -u "$expected" "$actual" | head -200
  echo "transcript differs: $actual" >&2
  exit 1
fi
exit 0
