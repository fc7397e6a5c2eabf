# Completes a command line in an interactive zsh and prints what is offered, one a line.
#
#   zsh -f complete.zsh DIRECTORY-OF-COMPLETIONS COMMAND-LINE
zmodload zsh/zpty
setup=$(mktemp)
trap 'rm -f $setup' EXIT
cat > $setup <<END
PROMPT=
fpath=(${(q)1} \$fpath)
autoload -Uz compinit
compinit -u -D
bindkey '^I' complete-word
# Between these two marks stands what is offered; the shell ends after the second.
mark() { print -rn -- \$'\\0' }
compprefuncs=(mark)
comppostfuncs=(mark exit)
zstyle ':completion:*' insert-tab false
compadd() {
    local -a found
    if (( \$@[(I)-(O|A|D)] && \$@[(I)-(O|A|D)] < \$@[(i)(-|--)] )); then
        builtin compadd "\$@"
        return
    fi
    builtin compadd -A found "\$@"
    print -rl -- \$found
    builtin compadd "\$@"
}
print -r -- ready
END
zpty shell "zsh -f -i"
zpty -w shell "source ${(q)setup}"
zpty -r shell seen $'*\nready*'
zpty -w -n shell "$2"$'\t'
zpty -r shell seen $'*\0*\0' && print -r -- ${${seen#*$'\0'}%$'\0'*} | tr -d '\r' | grep -v '^$'
zpty -d shell
