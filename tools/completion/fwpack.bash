# Completion of fwpack for bash. Other words are file names.
# shellcheck shell=bash

_fwpack() {
    local current=${COMP_WORDS[COMP_CWORD]} words=''
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    -l | --layout | -V | --version) words='1 3' ;;
    -r | --region) words='1 2 3' ;;
    -d | --output-dir)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    fwpack) words='create check info extract help --help --version' ;;
    help) words='create check info extract' ;;
    *)
        [[ $current == -* ]] || return 0
        case ${COMP_WORDS[1]} in
        create) words='--layout --marker --kernel --second --etc --output --partitions --mtd --help' ;;
        check) words='--layout --version --marker --partitions --mtd --quiet --verbose --help' ;;
        info) words='--json --partitions --mtd --help' ;;
        extract) words='--output-dir --region --help' ;;
        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o default -o filenames -F _fwpack fwpack
