# Completion of the server and the device programs for bash: their options are those that --help shows.

_vq_identity() {
    local current=${COMP_WORDS[COMP_CWORD]} IFS=$' \t\n'
    [[ $current == -* ]] || return 0
    COMPREPLY=($(compgen -W "$("$1" --help 2>/dev/null | grep -oE -e '^ +(-[a-z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+')
        --verbosity --logfile --no-logfile --logfile-maxsize --console --no-console" -- "$current"))
}

complete -o default -F _vq_identity vdserver mock_identity_device sample_producer sample_observer
