#!/bin/bash
# The management agents that docs/examples/ shows, on records of the daemon itself: both print the same, and what was
# meant. Damaged records are told and end neither. Usage: eventAgents.sh SOURCE FOLDER-OF-THE-PROGRAMS
set -eu
examples=$1/docs/examples
PATH=$2:$PATH
command -v python3 >/dev/null || { echo "no python3"; exit 77; }
scratch=$(mktemp -d)
daemon="" agent=""
trap 'kill $daemon $agent 2>/dev/null || true; rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
cc -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Wconversion -Werror -o "$scratch/c" "$examples/event-agent.c"

run() { # NAME COMMAND...: its output to $scratch/NAME.out
  local name=$1
  shift
  export CORVANE_ROOT=$scratch/$name.root
  local sockets=$CORVANE_ROOT/var/run/corvane host=$CORVANE_ROOT/var/lib/corvane/host/sysinfo/system
  mkdir -p "$sockets" "$host"
  echo 01234567-89ab-cdef-0123-456789abcdef >"$host/systemUuid"
  "$@" "$sockets/mgmtd-kprob.sock" >"$scratch/$name.out" 2>"$scratch/$name.err" &
  agent=$!
  until [ -S "$sockets/mgmtd-kprob.sock" ]; do kill -0 $agent || fail "$name ended"; sleep 0.02; done
  [ "$(stat -c %a "$sockets/mgmtd-kprob.sock")" = 660 ] || fail "$name: the socket's mode"
  python3 - "$sockets/mgmtd-kprob.sock" <<'END'
import socket, struct, sys
whole = struct.pack("<QQ38s2xIII", 1, 2, b"host", 90, 1, 2) + b"n\0" + struct.pack("<IIQ", 3, 5, 16)
for record in (b"", b"x" * 67, whole[:60], whole + b"\0\0\0\0", struct.pack("<QQ38s2xIII", 1, 2, b"h", 74, 1, 2) + b"n\0\0\0\0\0",
               b"\xff" * 65536):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as sender:
        sender.connect(sys.argv[1])
        sender.sendall(record)
END
  rynd 2>"$scratch/$name.log" &
  daemon=$!
  rynctl submit --wait 10 ryn.storage.apd.start 'naa."6001\'
  rynctl submit ryn.storage.apd.timeout s:naa.6001 140
  rynctl submit ryn.storage.apd.start null
  for _ in $(seq 500); do [ "$(wc -l <"$scratch/$name.out")" -ge 3 ] && break; sleep 0.02; done
  kill $daemon && wait $daemon || fail "the daemon ended with $?"
  kill $agent && wait $agent || fail "$name ended with $?"
  [ ! -e "$sockets/mgmtd-kprob.sock" ] || fail "$name left its socket"
  [ "$(wc -l <"$scratch/$name.err")" = 6 ] || fail "$name told of other records: $(cat "$scratch/$name.err")"
  cut -d ' ' -f 2- "$scratch/$name.out"
}

expected='1 01234567-89ab-cdef-0123-456789abcdef amb.problem.storage.apd.start "naa.\"6001\\"
2 01234567-89ab-cdef-0123-456789abcdef amb.problem.storage.apd.timeout "naa.6001" 140
3 01234567-89ab-cdef-0123-456789abcdef amb.problem.storage.apd.start (null)'
for run in "c $scratch/c" "python python3 $examples/event-agent.py"; do
  # shellcheck disable=SC2086
  said=$(run $run)
  [ "$said" = "$expected" ] || fail "$run says: $said"
done
diff "$scratch/c.err" "$scratch/python.err"
