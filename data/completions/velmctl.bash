# bash completion for velmctl
_velmctl()
{
    local cur prev words cword
    _init_completion || return
    local commands="discover pair forget help apps front icon activate close quit minimize maximize fullscreen scroll keys menu focus ls file-icon preview open-with open volume mute brightness lock sleep restart shutdown logout play-pause next previous commands unsupported watch send"
    case "$prev" in
        -o|--output)
            _filedir
            return ;;
        --host|--port|--timeout|--size|--width|--height|--invoke|--set|--app)
            return ;;
        mute)
            COMPREPLY=($(compgen -W "on off" -- "$cur"))
            return ;;
        ls|file-icon|preview|open|open-with)
            _filedir
            return ;;
    esac
    if [[ "$cur" == -* ]]; then
        COMPREPLY=($(compgen -W "--host --port --json --timeout --size -o --invoke --set --press --app --width --height --help --version" -- "$cur"))
        return
    fi
    local i
    for ((i = 1; i < cword; i++)); do
        [[ "${words[i]}" != -* && " $commands " == *" ${words[i]} "* ]] && return
    done
    COMPREPLY=($(compgen -W "$commands" -- "$cur"))
}
complete -F _velmctl velmctl
