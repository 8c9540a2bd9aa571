# Completion of the command orvel for bash: commands, options, scene files and kinds of back ends.

_orvel_files() {
    # Files that end in $1, and folders to go on in.
    local IFS=$'\n'
    compopt -o filenames 2>/dev/null
    COMPREPLY=($(compgen -f -X "!*$1" -- "$cur") $(compgen -d -- "$cur"))
}

_orvel_words() {
    COMPREPLY=($(compgen -W "$1" -- "$cur"))
}

_orvel() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1]}
    local common="--help --version --verbose"
    local search="--group --port --ttl --interface"
    local command=${COMP_WORDS[1]}
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        _orvel_words "render play serve record servers plot check kinds doctor key hrtf help --help --version"
        return
    fi
    if [[ $command == help ]]; then
        ((COMP_CWORD == 2)) && _orvel_words "render play serve record servers plot check kinds doctor key hrtf"
        return
    fi
    case $prev in
    --backend)
        if [[ $command == render ]]; then
            _orvel_words "voices openal"
            return
        fi
        _orvel_words "$("${COMP_WORDS[0]}" kinds 2>/dev/null | while read -r kind _; do
            [[ $kind == loopback || $command:$kind == serve:client || $command:$kind == record:client ]] || echo "$kind"
        done)"
        return
        ;;
    --interface)
        _orvel_words "$(ip -4 -oneline address 2>/dev/null | sed 's|^[0-9]*: *\([^ ]*\) .*inet \([0-9.]*\).*|\1 \2|')"
        return
        ;;
    --server)
        COMPREPLY=($(compgen -A hostname -S : -- "$cur"))
        return
        ;;
    --key | --output)
        if [[ $command:$prev == render:--output ]]; then
            _orvel_words "stereo headphones mono quad 5.1 6.1 7.1"
        else
            _orvel_files ""
        fi
        return
        ;;
    --right)
        _orvel_words "drive watch"
        return
        ;;
    --scene)
        _orvel_files .json
        return
        ;;
    --render)
        _orvel_files .wav
        return
        ;;
    --format)
        _orvel_words "s16 f32"
        return
        ;;
    --rate | --render-rate)
        _orvel_words "22050 44100 48000 96000"
        return
        ;;
    --plot)
        _orvel_files .svg
        return
        ;;
    --levels)
        _orvel_files .wav
        return
        ;;
    --monitor)
        # Its value may be left out.
        if [[ $cur != -* && $command == play ]]; then
            _orvel_files .json
            return
        fi
        ;;
    --from | --seconds | --group | --port | --ttl | --id | --only | --allow | --desk | --tcp-port | --osc | --osc-scale | --osc-reply-port | --osc-query | --osc-feedback | \
        --check-port | --max-per-address | --max-servers | --max-size)
        return
        ;;
    esac
    if [[ $cur == -* ]]; then
        case $command in
        render) _orvel_words "--from --seconds --rate --backend --output --format --plot --all --json --fetch $common" ;;
        play)
            _orvel_words "--backend --render --render-rate --render-raw --web --monitor --desk --server --only --wait --interface --key --open --no-announce --max-per-address \
                --max-servers --osc --osc-scale --osc-reply-port --osc-query --osc-feedback --armed --from --seconds --status --loop --fetch $common"
            ;;
        serve | record)
            local more=
            [[ $command == serve ]] || more=--max-size
            _orvel_words "$more --scene --backend --web --monitor --render --render-rate --render-raw --seconds --id --tcp-port --hold --delay --gain --skew \
                --allow --keep-player --key --open --no-announce --wait-for-device --osc --osc-scale --osc-reply-port --osc-query --osc-feedback --max-per-address $search $common"
            ;;
        servers) _orvel_words "--key --seconds --json --timing --verify --max-per-address --max-servers $search $common" ;;
        doctor) _orvel_words "--key --check-port --json $search $common" ;;
        plot) _orvel_words "--levels $common" ;;
        check) _orvel_words "--strict $common" ;;
        kinds | hrtf) _orvel_words "$common" ;;
        key) _orvel_words "--right --output $common" ;;
        esac
        return
    fi
    # The arguments before this one, without options and their values.
    local i arguments=0
    for ((i = 2; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        --backend | --server | --only | --interface | --key | --right | --output | --format | --rate | --plot | --levels | --from | \
            --seconds | --osc | --osc-scale | --osc-reply-port | --osc-query | --osc-feedback | --max-per-address | --max-servers)
            ((i++))
            ;;
        -*) ;;
        *) ((arguments++)) ;;
        esac
    done
    case $command:$arguments in
    render:0 | play:0)
        _orvel_files .json
        local scenes=("${COMPREPLY[@]}")
        _orvel_files .orvelrec
        COMPREPLY=($(printf '%s\n' "${scenes[@]}" "${COMPREPLY[@]}" | sort -u))
        ;;
    plot:0 | check:*) _orvel_files .json ;;
    record:0) _orvel_files .orvelrec ;;
    key:0) _orvel_words "new grant revoke list" ;;
    key:1) _orvel_files "" ;;
    render:1) _orvel_files .wav ;;
    plot:1) _orvel_files .svg ;;
    esac
}

complete -F _orvel orvel
