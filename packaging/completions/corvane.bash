# shellcheck shell=bash disable=SC2034 # the tables that engine.bash reads
_corvane()
{
    local everywhere='--host --port --timeout --tries --disk --chunk --json'
    local -A options=(
        [-]="-h --help --version $everywhere"
        [volume]='-h --help'
        [map]='-h --help --draw'
        [cat]='-h --help -o'
        [put]='-h --help -i'
        [size]='-h --help'
        [ping]='-h --help'
        [open]='-h --help'
    )
    local -A values=([--host]=host [--port]=number [--timeout]=number [--tries]=number [--disk]=file [--chunk]=number
        [-o]=file [-i]=file)
    local -A arguments=(
        [volume]='share'
        [map]='share text'
        [cat]='share text'
        [put]='share text'
        [size]='share text number'
        [open]='file command file ...'
    )
    _corvane_complete
}
complete -F _corvane corvane
