# How the demonstration prints, waits and fails. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

longest=60 # seconds that one command may take
proven=0

title() {
    printf '\n=== %s\n' "$*"
}

fail() {
    printf '\ndemo: %s\n' "$*" >&2
    exit 1
}

# typed PROMPT WORD...: the command as somebody would type it, in lines of at most 79 characters.
typed() {
    local word line=$1
    for word in "${@:2}"; do
        [[ $word =~ ^[A-Za-z0-9_./:=,@%+-]+$ ]] || word="'$word'"
        if ((${#line} + ${#word} > 76)); then
            printf '%s \\\n' "$line"
            line="   "
        fi
        line+=" $word"
    done
    printf '%s\n' "$line"
}

# limited COMMAND...: with a time limit if it is a program. Functions and builtins are quick.
limited() {
    if [[ $(type -t "$1") == file ]]; then
        timeout --foreground "$longest" "$@"
    else
        "$@"
    fi
}

# run_typed RUNNER COMMAND...: RUNNER is limited, or in_manager for the manager's host.
run_typed() {
    local status=0 runner=$1 prompt='$'
    shift
    [[ $runner == limited ]] || prompt='manager$'
    typed "$prompt" "$@"
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

# show_line RUNNER TEXT: a pipeline.
show_line() {
    [[ $1 == limited ]] || printf manager
    printf '$ %s\n' "$2"
    "$1" bash -o pipefail -c "$2" || fail "it ended with status $?: $2"
}

# show_refused TEXT RUNNER COMMAND...: the command must fail, and say TEXT.
show_refused() {
    local text=$1 said status=0
    shift
    said=$(run_typed "$@" 2>&1) || status=$?
    fold -sw 79 <<<"$said"
    [[ $status != 0 && $said == *"$text"* ]] || fail "it was not refused with \"$text\": ${*:2}"
}

# wait_until SECONDS COMMAND...: until the command succeeds.
wait_until() {
    local end=$((SECONDS + $1)) limit=$1
    shift
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < end)) || fail "gave up after $limit seconds waiting for: $*"
        sleep 0.1
    done
}

# prove TEXT COMMAND...: TEXT is true if the command succeeds; otherwise the demonstration fails.
prove() {
    "${@:2}" >/dev/null || fail "this does not hold: $1"
    printf -- '-> %s\n' "$1"
    proven=$((proven + 1))
}
