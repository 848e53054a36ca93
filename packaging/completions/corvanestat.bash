# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvanestat()
{
    local everywhere=''
    local -A options=([-]='-h --help --version --port --json --prometheus --watch --interval')
    local -A values=([--port]=number [--interval]=number)
    local -A arguments=([-]=none)
    _corvane_complete
}
complete -F _corvanestat corvanestat
