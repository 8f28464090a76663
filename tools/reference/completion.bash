# Completion of kelcat for bash. Made from the table of its options, with the endpoints that take each.
_kelcat() {
    # Bash takes a line apart at colons, too, and replaces only what stands behind the last one.
    local line=${COMP_LINE:0:COMP_POINT} word transport="" name taken
    local -a words replies
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    ((${#words[@]} > 1)) || return
    word=${words[-1]}
    for name in "${words[@]:1:${#words[@]}-2}"; do
        [[ $name == -* || $name != *:* ]] || transport=${transport:-${name%%:*}}
    done
    case ${words[-2]} in
    @VALUED@)
        [[ ${words[-2]} != --local || $transport != unix* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$word")
        compopt -o filenames 2>/dev/null
        return
        ;;
    esac
    if [[ $word == unix*:* && -z $transport ]]; then
        mapfile -t replies < <(compgen -f -P "${word%%:*}:" -- "${word#*:}")
        compopt -o filenames 2>/dev/null
    elif [[ $word == packet:* && -z $transport ]]; then
        mapfile -t replies < <(compgen -W "$(printf 'packet:%s ' $(ls /sys/class/net))" -- "$word")
    elif [[ $word == -* || -n $transport ]]; then
        while read -r name taken; do
            [[ -z $transport || -z $taken || " $taken " == *" $transport "* ]] && replies+=("$name")
        done <<<'@OPTIONS@'
        mapfile -t replies < <(compgen -W "${replies[*]}" -- "$word")
    else
        mapfile -t replies < <(compgen -W '@ENDPOINTS@' -- "$word")
        compopt -o nospace 2>/dev/null
    fi
    COMPREPLY=("${replies[@]}")
    [[ $COMP_WORDBREAKS != *:* ]] || COMPREPLY=("${replies[@]#"${word%"${word##*:}"}"}")
}
complete -F _kelcat kelcat
