#!/bin/bash
# Manual pages, completions and the unit of an installation: pages.sh ROOT, the folder with what is installed.
set -euo pipefail
root=$(readlink -f "$1")
PATH=$root/usr/bin:$PATH
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

failed() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

# --- Pages ------------------------------------------------------------------------------------------------

# page NAME: as a terminal shows it, without what is bold or underlined.
page() {
    MANWIDTH=5000 man -l "$(find "$root" -path "*/man/*/$1*" -type f)" 2>/dev/null | col -bx
}

# has_words PAGE WORD...: each stands there, as a word of its own.
has_words() {
    local text word
    text=$(page "$1")
    for word in "${@:2}"; do
        grep -qFw -- "$word" <<<"$text" || failed "$1 does not tell of $word"
    done
}

while read -r file; do
    warnings=$(MANROFFSEQ='' man --warnings -E UTF-8 -l -Tutf8 -Z "$file" 2>&1 >/dev/null)
    [[ -z $warnings ]] || failed "$file: $warnings"
done < <(find "$root" -path '*/man/*' -type f)
mapfile -t words < <(qelc --verbs-for completion | cut -f 3)
((${#words[@]} > 50)) || failed "qelc tells of ${#words[@]} words only"
has_words qelc.1 "${words[@]}"
mapfile -t words < <(qelc --list | awk '/^ / { print $2 }')
has_words qelcd-protocol.7 "${words[@]}"
mapfile -t words < <(sed -n 's/^#\([a-z_]*\) =.*/\1/p' "$(find "$root" -name embedded.conf.sample*)")
((${#words[@]} > 5)) || failed "the sample has ${#words[@]} settings only"
has_words embedded.conf.5 "${words[@]}"

# --- Completions ------------------------------------------------------------------------------------------

# completed SHELL WORD...: what may follow, the last word being unfinished.
completed() {
    local shell=$1
    shift
    case $shell in
        bash)
            bash -c "source '$root/usr/share/bash-completion/completions/qelc'
                COMP_WORDS=(qelc \"\$@\") COMP_CWORD=\$#; _qelc; printf '%s\n' \"\${COMPREPLY[@]}\"" bash "$@"
            ;;
        zsh)
            zsh -c "source '$root/usr/share/zsh/vendor-completions/_qelc'; _qelc_words \"\$@\"" zsh "${@:1:$#-1}" |
                grep -- "^${*: -1}" | cut -d : -f 1
            ;;
        fish)
            fish -c "source '$root/usr/share/fish/vendor_completions.d/qelc.fish'; complete -C 'qelc $*'" | cut -f 1
            ;;
    esac
}

# completes "WORD..." WORDS NOT: in every shell; the words are there, and NOT is not.
completes() {
    local shell given found word
    read -r -a given <<<"$1"
    [[ $1 != *' ' ]] || given+=('')
    for shell in bash zsh fish; do
        found=" $(completed "$shell" "${given[@]}" | tr '\n' ' ')"
        for word in $2; do
            [[ $found == *" $word "* ]] || failed "$shell: \"qelc $1\" lacks $word: $found"
        done
        [[ $found != *" $3 "* ]] || failed "$shell: \"qelc $1\" offers $3"
    done
}

completes 'prot' 'protect' 'disks'
completes 'protect --gr' '--group' '--disk'
completes 'schedule ' 'set get delete' 'protect'
completes '--host group schedule set --ev' '--every' '--yes'
completes 'snapshot --group set --no' '--note' '--oracle-home'

# --- Units ------------------------------------------------------------------------------------------------

units=$root/lib/systemd/system
for unit in qelcd:35 qelc-manager:15; do
    systemd-analyze security --offline=true --threshold="${unit#*:}" "$units/${unit%:*}.service" >"$scratch/exposure" ||
        failed "$(tail -n 1 "$scratch/exposure")"
done

((failures == 0)) && echo "pages.sh: done in $SECONDS s"
