# Completion of fwpack for bash, from its own help. Other words are file names.
# shellcheck shell=bash

_fwpack() {
    local current=${COMP_WORDS[COMP_CWORD]} words='' program=${COMP_WORDS[0]/#\~/$HOME}
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    -l | --layout) words=$("$program" help create | sed -n 's/ or / /g; s/.*--layout N *\([0-9 ]*\);.*/\1/p') ;;
    -r | --region) words='1 2 3' ;;
    -d | --output-dir)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    "${COMP_WORDS[0]}" | help) words=$("$program" help | sed -n 's/^  fwpack \([a-z-]*\) .*/\1/p') ;;
    *)
        [[ $current == -* ]] || return 0
        words=$("$program" help "${COMP_WORDS[1]}" 2>/dev/null | sed -n 's/^  -., \(--[a-z-]*\).*/\1/p')
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o default -o filenames -F _fwpack fwpack
