# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvanetab()
{
    local everywhere='--json'
    local -A options=(
        [-]="-h --help --version $everywhere"
        [build]='-h --help -o --output --alias'
        [show]='-h --help'
        [check]='-h --help'
    )
    local -A values=([-o]=file [--output]=file [--alias]=text)
    local -A arguments=([build]='code_set' [show]='file' [check]='file')
    _corvane_complete
}
complete -F _corvanetab corvanetab
