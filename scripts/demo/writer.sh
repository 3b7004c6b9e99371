# The act of a writer that never pauses. Sourced.
# shellcheck shell=bash disable=SC2154

written=/var/tmp/written # a byte for each block, while the writer may go on

# A block of 4 KiB every 50 ms, past the cache of the file system.
write_without_pause() {
    while [[ -e $written ]]; do
        dd if=/dev/urandom of=/mnt/data/busy bs=4096 count=1 seek=$((RANDOM % 64)) conv=notrunc oflag=direct status=none
        printf . >>"$written"
        sleep 0.05
    done
}

blocks_written() {
    stat -c %s "$written"
}

# Five times, each after other blocks than before.
is_level_again_and_again() {
    local times=0 now before=0 end=$((SECONDS + 40))
    while ((times < 5)); do
        ((SECONDS < end)) || return 1
        is_mirror synchronised || continue
        now=$(blocks_written)
        ((now == before)) || times=$((times + 1))
        before=$now
    done
}

is_tracked() {
    limited qelc --json mirrors | grep -q '"tracked":true'
}

show_busy_writer() {
    local writer
    title "A writer that never pauses: a block every 50 ms"
    if ! is_tracked; then
        echo "Left out: this machine does not let the daemon track writes."
        show_line limited "qelc mirrors | grep 'is not tracked'"
        return
    fi
    : >"$written"
    write_without_pause &
    writer=$!
    for _ in 1 2 3; do
        sleep 0.5
        show_line limited "qelc mirrors | head -n 2"
    done
    prove "Meanwhile the mirror is level again and again." is_level_again_and_again
    printf 'The writer has written %d blocks.\n' "$(blocks_written)"
    rm "$written"
    wait "$writer"
    rm -f "$written" # if the writer was about to note a block
}
