# Completion of kpl-rpc for bash. A test holds its words and those of the help together.
# shellcheck shell=bash

_kpl_rpc_root() { # the directory that --root names so far, else /tmp
    local i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} == --root ]]; then
            echo "${COMP_WORDS[i + 1]}"
            return
        fi
    done
    echo /tmp
}

# Completes names of the FIFOs that servers have in the pipe root. Anybody may make one there, so the
# names are quoted, and never go through compgen -W, which would expand what is in them.
_kpl_rpc_servers() {
    local file name
    for file in "$(_kpl_rpc_root)"/?*Root; do
        name=${file##*/}
        name=${name%Root}
        if [[ -p $file && $name == "$1"* ]]; then
            COMPREPLY+=("$(printf %q "$name")")
        fi
    done
}

_kpl_rpc_words() { # how many words that are no options stand between the command and the cursor
    local i count=0
    for ((i = 2; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --root | --timeout | --callbacks | -c | -i) ((++i)) ;;
        -*) ;;
        *) ((++count)) ;;
        esac
    done
    echo "$count"
}

_kpl_rpc() {
    local commands="call ping list record dump replay clean help --version"
    local types="bool: short: ushort: int: uint: long: ulong: longlong: ulonglong: char: uchar: double: float: str: file:"
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} options="" words
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        return
    fi
    case $command in
    call) options="--json --timeout --callbacks --root --verbose --help" ;;
    ping) options="-c -i --timeout --root --verbose --help" ;;
    list) options="--root --verbose --help" ;;
    record) options="--root --verbose --help" ;;
    dump) options="--json --verbose --help" ;;
    replay) options="--timeout --root --verbose --help" ;;
    clean) options="--yes --root --verbose --help" ;;
    esac
    case $previous in
    --root)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --timeout | --callbacks | -c | -i) return ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        return
    fi
    words=$(_kpl_rpc_words)
    case $command:$words in
    call:0 | ping:0 | record:0 | record:1 | replay:1)
        _kpl_rpc_servers "$current"
        ;;
    call:1) ;;
    call:*)
        mapfile -t COMPREPLY < <(compgen -W "$types" -- "$current")
        compopt -o nospace 2>/dev/null
        ;;
    list:0 | clean:0) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    dump:0 | replay:0 | record:2) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    help:0) mapfile -t COMPREPLY < <(compgen -W "${commands% help*}" -- "$current") ;;
    esac
}

complete -F _kpl_rpc kpl-rpc
