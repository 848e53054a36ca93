# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvanecfg()
{
    local everywhere='--create --json'
    local -A options=(
        [-]="-h --help --version $everywhere"
        [show]='-h --help'
        [get]='-h --help'
        [set]='-h --help'
        [reset]='-h --help'
        [log]='-h --help -f --follow'
        [lang]='-h --help --path --clear'
    )
    local -A values=([--path]=file)
    local -A arguments=([get]='setting' [set]='setting text')
    _corvane_complete
}
complete -F _corvanecfg corvanecfg
