#!/bin/bash
# What schedules cost, inside the private host: schedules.sh BUILD-FOLDER
set -euo pipefail
bin=$PWD/$1/bin

printf '\n### Schedules\n\n'
# Room for the log lines of a thousand schedules, so that their writer does not wait for the reader.
echo 8192 >/proc/sys/net/unix/max_dgram_qlen
"$bin/bench-log" /dev/log &
until [[ -S /dev/log ]]; do
    kill -0 $! # fails if it has ended
    sleep 0.1
done
"$bin/bench-schedules"
