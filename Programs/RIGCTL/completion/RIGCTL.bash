# Completion of RIGCTL for bash: source this file, or install it where bash-completion looks.

_rigctl() {
    # An equals sign is a word break to the shell: what stands before it is the setting or field.
    local current=${COMP_WORDS[COMP_CWORD]} name
    COMPREPLY=()
    # Devices choose their names: the shell must never expand one, so no `compgen -W` here.
    while IFS= read -r name; do
        [[ $name == "$current"* ]] && COMPREPLY+=("$(printf %q "$name")")
    done < <("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}

complete -o default -F _rigctl RIGCTL
