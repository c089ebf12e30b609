# SPDX-License-Identifier: MIT
# bash completion for camStat, drvI2cTest, camConf, camCtl, camSim and camPlot. bash-completion loads this file under the
# name of each program; it works without bash-completion's own functions, too.

_camStat_words() { # the words that begin as the one under the cursor does
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "${COMP_WORDS[COMP_CWORD]}")
}

_camStat_files() { # files, or folders alone with -d
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "${1:--f}" -- "${COMP_WORDS[COMP_CWORD]}")
}

_camStat_keys='SNR_TYPE LEN_TYPE ICR_TYPE 2A_AEC_EN 2A_AGC_EN 2A_AEL_EN 2A_AWB_EN 2A_MAX_EXPOSURE 2A_MAN_EXPOSURE
2A_MAX_GAIN 2A_MAN_GAIN 2A_LIMIT_INDEX 2A_LIMIT_UPPER 2A_LIMIT_LOWER 2A_WB_SAVE 2A_WB_R 2A_WB_B 2A_DEFLICKER
IMG_BRIGHTNESS IMG_CONTRAST IMG_SATURATION IMG_SHARPNESS IMG_NF_MODE IMG_NF_LEVEL IMG_FLIP IMG_MIRROR DN_MODE DN_BW
DN_ICR DN_FPS TRIG DN_LS DN_LUM EXT_BLC EXT_WDR EXT_NF EXT_LSC EXT_DPC EXT_AEWIN RESET RELOAD EXT_DEBUG LOOPBREAK
sensor_width sensor_height'

# The option is the first word, and its values are the words behind it.
_camStat() {
    if [ "$COMP_CWORD" -eq 1 ]; then
        _camStat_words '-r -l -i -e -s -t -w -g -o -h --read --led --ircut --ae --reset --awb --gamma --otf --help'
        return
    fi
    [ "$COMP_CWORD" -eq 2 ] || return 0
    case ${COMP_WORDS[1]} in
    -l | --led) _camStat_words 'on off' ;;
    -i | --ircut) _camStat_words 'IR_CUT IR_PASS' ;;
    -t) _camStat_words 1 ;;
    esac
}

_drvI2cTest() {
    case $COMP_CWORD in
    1) _camStat_words '-r -b -w' ;;
    2) _camStat_words E2 ;;
    esac
}

# camConf and camCtl tell their commands and options themselves, and need no board for that. Sets `command`, and `operands`
# to the number of words between it and the cursor; true when the word is completed already.
_camStat_told() {
    local program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} options i
    command='' operands=0
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --retries | --time | --rounds | --every | --count | -o) i=$((i + 1)) ;;
        -*) ;;
        *) if [ -z "$command" ]; then command=${COMP_WORDS[i]}; else operands=$((operands + 1)); fi ;;
        esac
    done
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --retries | --time | --rounds | --every | --count) return 0 ;;
    -o) return 1 ;;
    esac
    if [[ $word == -* ]]; then
        # shellcheck disable=SC2086
        options=$("$program" $command --help 2>/dev/null | sed -nE 's/^  (-[-a-z]+) .*/\1/p')
        _camStat_words "$options --help --version"
    elif [ -z "$command" ]; then
        _camStat_words "$("$program" --help 2>/dev/null | sed -nE 's/^  cam[A-Z][a-z]+ ([a-z]+).*/\1/p')"
    else
        return 1
    fi
}

_camConf() {
    local command operands
    _camStat_told && return
    if [ "${COMP_WORDS[COMP_CWORD - 1]}" = -o ]; then
        compopt -o nospace 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -S = -W "$_camStat_keys" -- "${COMP_WORDS[COMP_CWORD]}")
        return
    fi
    case $command:$operands in
    get:1 | set:1) _camStat_words "$_camStat_keys" ;;
    set:2) ;;
    *) _camStat_files ;;
    esac
}

_camCtl_groups='@live @ae @exposure @awb @picture @daynight @noise @other'

_camCtl() {
    local command operands program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]}
    _camStat_told && return
    case $command in
    list) _camStat_words "$_camCtl_groups $("$program" list 2>/dev/null | cut -d ' ' -f 1)" ;;
    get | watch) _camStat_words "all $_camCtl_groups $("$program" list 2>/dev/null | cut -d ' ' -f 1)" ;;
    set)
        compopt -o nospace 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -S = -W "$("$program" list 2>/dev/null | sed -n 's/ .* rw .*//p')" -- "$word")
        ;;
    led) _camStat_words 'on off' ;;
    ircut) _camStat_words 'cut pass' ;;
    expose) compopt -o nospace 2>/dev/null; _camStat_words 'shutter= again= dgain=' ;;
    save | load | diff) _camStat_files ;;
    esac
}

_camSim_commands='pins scene fault reset serve trace'
_camSim_options='--board --new --fault --trace --trace-json --speed --sensor --emulator --library --dev --help --version'

_camSim_command() { # the words of a command; $1 is its place on the line
    local command=${COMP_WORDS[$1]}
    case $command in
    pins) compopt -o nospace 2>/dev/null; _camStat_words 'led= ircut= alarm= reset=' ;;
    scene) compopt -o nospace 2>/dev/null; _camStat_words 'light= temperature= sensor= reflect=' ;;
    serve) _camStat_words '--board --dev --fault --trace --trace-json --help' ;;
    fault) _camStat_words 'list clear i2c.read i2c.write gio.set reflect flash open' ;;
    esac
}

_camSim() {
    local i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --board | --dev | --emulator | --library | --fault | --trace-json | --speed | --sensor) i=$((i + 1)) ;;
        -*) ;;
        *) break ;;
        esac
    done
    if [ "$i" -lt "$COMP_CWORD" ]; then
        if [ "${COMP_WORDS[i]}" = trace ]; then
            i=$((i + 1))
        fi
        if [[ " $_camSim_commands " == *" ${COMP_WORDS[i]} "* ]]; then
            _camSim_command "$i"
            return
        fi
    fi
    if [ "$i" -lt "$COMP_CWORD" ]; then # the words of a program that this file knows
        local program=${COMP_WORDS[i]##*/}
        COMP_WORDS=("${COMP_WORDS[@]:i}")
        COMP_CWORD=$((COMP_CWORD - i))
        case $program in
        camStat | drvI2cTest | camConf | camCtl) "_$program" ;;
        *) _camStat_files ;;
        esac
        return
    fi
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --board | --dev) _camStat_files -d ;;
    --library | --trace-json) _camStat_files ;;
    --sensor) _camStat_words '6 7' ;;
    --fault | --speed | --emulator) ;;
    *) _camStat_words "$_camSim_commands $_camSim_options camStat camConf camCtl drvI2cTest" ;;
    esac
}

_camPlot() {
    if [ "$COMP_CWORD" -eq 1 ]; then
        _camStat_words 'errors live --help --version'
    elif [[ ${COMP_WORDS[COMP_CWORD]} == -* ]]; then
        case ${COMP_WORDS[1]} in
        errors) _camStat_words '-o --last --json --help' ;;
        live) _camStat_words '-o --json --help' ;;
        esac
    else
        _camStat_files
    fi
}

complete -F _camStat camStat
complete -F _drvI2cTest drvI2cTest
complete -F _camConf camConf
complete -F _camSim camSim
complete -F _camPlot camPlot
complete -F _camCtl camCtl
