# shellcheck shell=bash
# Completes the command line of orvelline-repair in bash 3.2 or newer.
_orvelline_repair() {
    local word=${COMP_WORDS[COMP_CWORD]} kind found
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --test-root) kind=(-d) ;;
    --undo) kind=(-W '') ;;
    *) kind=(-W '--test-root --undo --json --version') ;;
    esac
    COMPREPLY=()
    while IFS= read -r found; do
        COMPREPLY+=("$found")
    done < <(compgen "${kind[@]}" -- "$word")
}
complete -o filenames -F _orvelline_repair orvelline-repair
