#!/bin/sh
# Removes backups that going back one version does not need, copies of packages that are not
# installed, and archives of the tool itself; prints each path. With --dry-run it only prints.
#   sh cleanup.sh SUPPORT PACKAGES [--dry-run]
set -eu
export LC_ALL=C
support=$1
packages=$2
only_print=${3-}

remove() {
    printf '%s\n' "$1"
    [ -n "$only_print" ] || { chmod -R u+rwX "$1" && rm -R "$1"; }
}

for product in Marbrel Quellotrone; do
    for format in VST3 Components; do
        # The last run that took a bundle away stays, and so does every run behind it. The names
        # sort by time. In which format a run was, its directories tell.
        last=
        for bundle in "$support/Backups/$product"-[0-9]*/original/"$format"/*; do
            [ ! -e "$bundle" ] || last=${bundle%/original/*}
        done
        for run in "$support/Backups/$product"-[0-9]*; do
            if [ -z "$last" ] || [ "$run" = "$last" ]; then break; fi
            case ${run##*-} in *[!0-9]*) continue ;; esac
            for area in "$run"/*/"$format"; do
                if [ -d "$area" ]; then remove "$run" && break; fi
            done
        done
    done
done

for copy in "$packages"/*/; do
    [ -f "$copy/CONTENTS.sha256" ] || continue
    installed=
    for receipt in "$support"/*.sha256; do
        [ -e "$receipt" ] || continue
        [ "$(sort "$copy/CONTENTS.sha256")" != "$(sort "$receipt")" ] || installed=1
    done
    [ -n "$installed" ] || remove "${copy%/}"
done

# The tool's own archives have been unpacked.
for file in "$packages"/*; do
    [ ! -f "$file" ] || remove "$file"
done
