# shellcheck shell=bash disable=SC2154 # the caller's tables
# Completes by the tables of the command that calls it:
#   options[SUBCOMMAND]    its options; those of the program itself under "-"
#   values[OPTION]         what the option is followed by: a kind, see _corvane_kind
#   arguments[SUBCOMMAND]  the kinds of its arguments in order; a last "..." repeats the one before it
#   everywhere             the program's options that may stand behind a subcommand, too

# The shares that this host knows of: volumes of the plug-ins, sections of the Samba configuration.
_corvane_shares()
{
    local configuration=${CORVANE_SMBPATH:-/etc/samba/smb.conf}
    {
        sed -n 's/^[[:blank:]]*\(\/[^[:blank:]]*\)[[:blank:]].*/\1/p' \
            "${CORVANE_VOLUMES_FILE:-/usr/Corvane/volumes.conf}"
        sed -n 's/^[[:blank:]]*\[\([^]]*\)\].*/\1/p' "$configuration" |
            grep -vixE 'global|homes|printers|print\$'
    } 2>/dev/null
}

# _corvane_from LIST: those lines of LIST that begin with the word at hand; blanks in them stay.
_corvane_from()
{
    local line
    while IFS= read -r line; do
        [[ -n $line && $line == "$cur"* ]] && COMPREPLY+=("$(printf %q "$line")")
    done <<<"$1"
}

# _corvane_kind KIND: what may stand where an argument of this kind does. Numbers and free text: nothing.
_corvane_kind()
{
    case $1 in
        file)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            ;;
        share)
            _corvane_from "$(_corvane_shares)"
            # A directory of this host is a share of the daemon that runs on it.
            if [[ ${#COMPREPLY[@]} -eq 0 && $cur == /* ]]; then
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            fi
            ;;
        host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur") ;;
        command) mapfile -t COMPREPLY < <(compgen -c -- "$cur") ;;
        setting) _corvane_from "$("${COMP_WORDS[0]}" show 2>/dev/null | awk '{ print $1 }')" ;;
        lease) _corvane_from "$("${COMP_WORDS[0]}" leases 2>/dev/null | awk 'NR > 1 { print $1 }')" ;;
        mode) mapfile -t COMPREPLY < <(compgen -W 'read write' -- "$cur") ;;
        order) mapfile -t COMPREPLY < <(compgen -W 'key client file since until requests' -- "$cur") ;;
        language) mapfile -t COMPREPLY < <(compgen -W 'c c++ ansi' -- "$cur") ;;
        code_set) mapfile -t COMPREPLY < <(compgen -W "$(iconv -l 2>/dev/null | tr -d / | tr '\n' ' ')" -- "$cur") ;;
    esac
}

# Which subcommand stands before the word at hand, and how many arguments behind it.
_corvane_scan()
{
    local i word
    subcommand='' position=0
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == = ]]; then
            ((i++))
        elif [[ $word == -- ]]; then
            only_arguments=1
        elif [[ -z $only_arguments && $word == -* ]]; then
            # A value of its own follows, unless "=" does.
            [[ -n ${values[$word]-} && ${COMP_WORDS[i + 1]} != = ]] && ((i++))
        elif [[ -z $subcommand && -n ${options[$word]-} ]]; then
            subcommand=$word
        else
            ((position++))
        fi
    done
    return 0
}

_corvane_complete()
{
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} subcommand position only_arguments=''
    COMPREPLY=()
    # "--option=value" comes in three words.
    if [[ $cur == = ]]; then
        cur=''
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    _corvane_scan
    if [[ -z $only_arguments && $previous == -* && -n ${values[$previous]-} ]]; then
        _corvane_kind "${values[$previous]}"
        return
    fi
    if [[ -z $only_arguments && $cur == -* ]]; then
        local choice=${options[${subcommand:--}]}
        [[ -z $subcommand ]] || choice+=" $everywhere"
        mapfile -t COMPREPLY < <(compgen -W "$choice" -- "$cur")
        return
    fi
    if [[ -z $subcommand && -z ${arguments[-]-} ]]; then
        local known=("${!options[@]}")
        mapfile -t COMPREPLY < <(compgen -W "${known[*]/#-/}" -- "$cur")
        return
    fi
    local kinds
    read -ra kinds <<<"${arguments[${subcommand:--}]-}"
    local last=$((${#kinds[@]} - 1))
    [[ $last -ge 1 && ${kinds[last]} == ... && $position -ge $last ]] && position=$((last - 1))
    _corvane_kind "${kinds[position]-}"
}

