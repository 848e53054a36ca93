# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvaned()
{
    local everywhere=''
    local -A options=([-]='-l -d')
    local -A values=([-l]=number)
    local -A arguments=([-]=none)
    _corvane_complete
}
complete -F _corvaned corvaned
