# shellcheck shell=bash
# Completes the command line of make-package in bash 3.2 or newer.
_make_package() {
    local word=${COMP_WORDS[COMP_CWORD]} kind found
    case "${COMP_WORDS[COMP_CWORD - 1]} ${COMP_WORDS[*]} " in
    '--sign '* | *' VST3 '* | *' Components '*) kind=(-f) ;;
    'Marbrel '* | 'Quellotrone '*) kind=(-W 'VST3 Components') ;;
    *) kind=(-W '--archive --sign Marbrel Quellotrone') ;;
    esac
    COMPREPLY=()
    while IFS= read -r found; do
        COMPREPLY+=("$found")
    done < <(compgen "${kind[@]}" -- "$word")
}
complete -o filenames -F _make_package make-package
