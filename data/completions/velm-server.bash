# bash completion for velm-server
_velm_server()
{
    local cur prev words cword
    _init_completion || return
    case "$prev" in
        --approve|--deny)
            # The ids of the devices waiting now, as the running instance lists them.
            local ids
            ids=$(velm-server --pending 2>/dev/null | sed -n 's/.* (\([^()]*\)) from .* is waiting\.$/\1/p')
            COMPREPLY=($(compgen -W "$ids" -- "$cur"))
            return ;;
    esac
    COMPREPLY=($(compgen -W "--pending --approve --deny --help --version" -- "$cur"))
}
complete -F _velm_server velm-server
