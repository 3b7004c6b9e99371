#!/bin/bash
# What qelc says of configurations, and the first one that it writes: config.sh FOLDER-OF-PROGRAMS, in a private host.
set -euo pipefail
[[ -e /run/private-host ]] || { echo "Run this in scripts/private-host." >&2; exit 1; }
PATH=$(readlink -f "$1"):$PATH
failures=0

failed() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

config=/etc/kavtessaron/qelcd.conf
head='<Tessaron><ClientGUID>G</ClientGUID>'
ports='<ClientPort>9410</ClientPort><ServerPort>9411</ServerPort>'

# judged STATUS WORDS TEXT: of a configuration with that text.
judged() {
    local said status=0
    printf '%b' "$3" >"$config"
    said=$(qelc check-config 2>&1) || status=$?
    [[ $status == "$1" && $said == *"$2"* ]] || failed "check-config of $3: $status, $said"
}

judged 0 'can use it' "$head$ports</Tessaron>"
judged 0 'hint: '"$config"': there is no ClientGUID' "<Tessaron>$ports</Tessaron>"
judged 1 ':2: ' "$head\n$ports</Tessaro>"
judged 1 'document type' "<!DOCTYPE Tessaron>$head$ports</Tessaron>"
judged 1 ':1: the outermost element is Config' '<Config/>'
judged 1 'Document is empty' ''
judged 1 'no ServerPort; write <ServerPort>N<' "$head<ClientPort>9410</ClientPort></Tessaron>"
judged 1 ':2: ClientPort "x" is no port' "$head\n<ClientPort>x</ClientPort><ServerPort>1</ServerPort></Tessaron>"
judged 1 '"65536" is no port' "$head<ClientPort>65536</ClientPort><ServerPort>1</ServerPort></Tessaron>"
judged 1 ':3: IPAddr "10.1" is no IPv4' "$head$ports\n<IPAddrFilter>\n<IPAddr>10.1</IPAddr></IPAddrFilter></Tessaron>"
echo 'throttle = fast' >/etc/kavtessaron/embedded.conf
judged 0 'embedded.conf:1: throttle: "fast" is no number' "$head$ports</Tessaron>"
qelc-manager --port 9410 >/dev/null &
for _ in {1..100}; do
    grep -q ':24C2 ' /proc/net/tcp && break
    sleep 0.05
done
judged 1 'another program listens there' "$head$ports</Tessaron>"
kill $!
! qelc init --config-only 2>/dev/null || failed "qelc init touches a configuration that is there"
rm -r /etc/kavtessaron
! qelc check-config 2>/dev/null || failed "there is no configuration to use"
qelc init --config-only --client-port 9500 >/dev/null || failed "qelc init failed"
grep -q '<ClientPort>9500<' "$config" || failed "the new configuration lacks the port that was asked for"
guid=$(grep -o '<ClientGUID>[0-9a-f-]\{36\}<' "$config") || failed "the new configuration has no GUID"
qelc check-config >/dev/null || failed "the new configuration is of no use"
rm "$config"
qelc init --config-only >/dev/null
! grep -qF "$guid" "$config" || failed "two hosts have one GUID"

((failures == 0)) && echo "config.sh: done in $SECONDS s"
