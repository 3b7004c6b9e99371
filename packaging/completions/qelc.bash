# Completion of qelc for bash. qelc itself tells which words there are, in lines of four fields: the verb that
# is given already, a kind, the word, and what it is.

# _qelc_find TABLE CONTEXT WORD: the kind of that word after that verb; a general option goes everywhere.
_qelc_find() {
    awk -F '\t' -v context="$2" -v word="$3" \
        '($1 == context || ($1 == "" && $2 != "verb")) && $3 == word { print $2; exit }' <<<"$1"
}

_qelc() {
    local current=${COMP_WORDS[COMP_CWORD]} table context='' kind='' i
    table=$(qelc --verbs-for completion 2>/dev/null) || return
    for ((i = 1; i < COMP_CWORD; i++)); do
        kind=$(_qelc_find "$table" "$context" "${COMP_WORDS[i]}")
        case $kind in
            verb) context+=${context:+ }${COMP_WORDS[i]} ;;
            value) i=$((i + 1)) ;;
        esac
    done
    COMPREPLY=()
    if [[ $kind == value ]] && ((i > COMP_CWORD)); then
        return # a value: of the words, only files are known
    fi
    mapfile -t COMPREPLY < <(awk -F '\t' -v context="$context" -v start="$current" '
        ($1 == context || ($1 == "" && $2 != "verb" && start ~ /^-/)) && index($3, start) == 1 &&
            ($2 == "verb" || start ~ /^-/) && !seen[$3]++ { print $3 }' <<<"$table")
}

complete -o default -F _qelc qelc
