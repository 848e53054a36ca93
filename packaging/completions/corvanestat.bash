# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvanestat()
{
    local everywhere='--port'
    local -A options=(
        [-]="-h --help --version $everywhere --json --prometheus --watch --interval"
        [leases]='-h --help --json --volume --file --client --mode --sort --reverse --limit'
        [release]='-h --help'
    )
    local -A values=([--port]=number [--interval]=number [--volume]=text [--file]=text [--client]=host
        [--mode]=mode [--sort]=order [--limit]=number)
    local -A arguments=([release]=lease)
    _corvane_complete
}
complete -F _corvanestat corvanestat
