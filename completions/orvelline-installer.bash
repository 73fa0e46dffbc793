# shellcheck shell=bash
# Completes the command line of orvelline-installer in bash 3.2 or newer.
_orvelline_installer() {
    local word=${COMP_WORDS[COMP_CWORD]} kind found
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --package | --test-root) kind=(-d) ;;
    *) kind=(-W '--package --test-root --remove --dry-run') ;;
    esac
    COMPREPLY=()
    while IFS= read -r found; do
        COMPREPLY+=("$found")
    done < <(compgen "${kind[@]}" -- "$word")
}
complete -o filenames -F _orvelline_installer orvelline-installer
