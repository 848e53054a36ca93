# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvanemsg()
{
    local everywhere=''
    local -A options=(
        [-]='-h --help --version'
        [compile]='-h --help -o --output --merge --header --language --combined --set2'
        [dump]='-h --help --json'
        [skeleton]='-h --help --set'
        [check]='-h --help --json'
        [get]='-h --help --catalogue --json'
    )
    local -A values=([-o]=file [--output]=file [--merge]=file [--header]=file [--language]=language [--set]=number
        [--catalogue]=file)
    local -A arguments=(
        [compile]='file ...'
        [dump]='file ...'
        [skeleton]='file file'
        [check]='file ...'
        [get]='number number'
    )
    _corvane_complete
}
complete -F _corvanemsg corvanemsg
