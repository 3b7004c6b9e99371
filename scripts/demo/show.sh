# How the demonstration speaks, waits and complains. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

longest=60 # seconds that one command may take
proven=()

title() {
    printf '\n=== %s\n' "$*"
}

fail() {
    printf '\ndemo: %s\n' "$*" >&2
    exit 1
}

# typed WORD...: the command as somebody would type it.
typed() {
    local word line=
    for word; do
        [[ $word =~ ^[A-Za-z0-9_./:=,@%+-]+$ ]] || word="\"$word\""
        line+=" $word"
    done
    printf '%s\n' "${line# }"
}

# Functions and builtins are quick; programs get a limit.
limited() {
    if [[ $(type -t "$1") == file ]]; then
        timeout --foreground "$longest" "$@"
    else
        "$@"
    fi
}

# run_typed RUNNER COMMAND...: RUNNER is limited, or in_manager for the manager's host.
run_typed() {
    local status=0 runner=$1
    shift
    [[ $runner == limited ]] || printf manager
    printf '$ '
    typed "$@"
    "$runner" "$@" || status=$?
    ((status != 124)) || fail "no end within $longest seconds: $*"
    return "$status"
}

show() {
    run_typed limited "$@" || fail "it ended with status $?: $*"
}

show_manager() {
    run_typed in_manager "$@" || fail "it ended with status $?: $*"
}

# show_refused TEXT RUNNER COMMAND...: the command must fail, and say TEXT.
show_refused() {
    local text=$1 said status=0
    shift
    said=$(run_typed "$@" 2>&1) || status=$?
    printf '%s\n' "$said"
    [[ $status != 0 && $said == *"$text"* ]] || fail "it was not refused with \"$text\": ${*:2}"
}

# wait_until SECONDS COMMAND...: until the command succeeds.
wait_until() {
    local end=$((SECONDS + $1)) limit=$1
    shift
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < end)) || fail "waited $limit seconds in vain for: $*"
        sleep 0.1
    done
}

# prove TEXT COMMAND...: TEXT holds, as the command succeeds.
prove() {
    local text=$1
    shift
    "$@" >/dev/null || fail "this does not hold: $text"
    printf -- '-> %s\n' "$text"
    proven+=("$text")
}

show_proven() {
    title "What was shown, and checked"
    printf -- '- %s\n' "${proven[@]}"
}
