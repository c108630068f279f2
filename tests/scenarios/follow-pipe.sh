#!/usr/bin/env bash
# follow-pipe.sh AGENT: feeds `AGENT --follow` one command at a time through a pipe that stays
# open, and checks that each command's RIB changes are printed before the next command is sent
# (and so before the feed ends). A reply that does not come within 10 s fails the test instead of
# hanging it.
set -u
agent=$1
coproc FEED { ${PROTORIB_RUN_UNDER:-} "$agent" --follow 2>&1; }
# Copies: bash drops the coprocess's variables once it exits.
to=${FEED[1]}
from=${FEED[0]}
pid=$FEED_PID
fail() {
  echo "FAIL: $*"
  kill "$pid" 2>/dev/null
  exit 1
}
# send COMMAND EXPECTED-LINE...: sends one command, then reads exactly the lines expected.
send() {
  local command=$1
  shift
  printf '%s\n' "$command" >&"$to"
  local want got
  for want in "$@"; do
    IFS= read -r -t 10 got <&"$from" || fail "no reply to '$command' (expected '$want')"
    [[ "$got" == "$want" ]] || fail "after '$command': expected '$want', got '$got'"
  done
}
send "start cold"
send "vrf add red 5"
send "metric red ipv4 192.0.2.1 resolved"
send "route add red 10.0.0.0/8 pref 1 via 192.0.2.1" \
  "rib viaset add 1 192.0.2.1" "rib add red ipv4 10.0.0.0/8 pref 1 via 192.0.2.1"
send "metric red ipv4 192.0.2.1 unresolved" "rib del red ipv4 10.0.0.0/8"
send "route del red 10.0.0.0/8" "rib viaset del 1"
send "nonsense" "<stdin>:7: unknown command 'nonsense'"
send "show ready" "ready ipv4: default red" "ready ipv6: default red"
exec {to}>&-
wait "$pid"
status=$?
[[ $status == 0 ]] || fail "exit status $status after the feed ended"
echo "follow-pipe: every change arrived before the next command"
