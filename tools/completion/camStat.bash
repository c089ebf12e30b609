# SPDX-License-Identifier: MIT
# bash completion for camStat, drvI2cTest, camConf, camCtl, camSim and i2cErrPlot. bash-completion loads this file under the
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

_camConf() {
    if [ "$COMP_CWORD" -eq 1 ]; then
        _camStat_words 'show check get set diff apply watch --help --version'
        return
    fi
    local command=${COMP_WORDS[1]} word=${COMP_WORDS[COMP_CWORD]} operands=0 i
    if [[ $word == -* ]]; then
        case $command in
        show) _camStat_words '--json --help' ;;
        set) _camStat_words '--prefix --help' ;;
        apply) _camStat_words '-o --help' ;;
        *) _camStat_words --help ;;
        esac
        return
    fi
    if [ "${COMP_WORDS[COMP_CWORD - 1]}" = -o ]; then
        compopt -o nospace 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -S = -W "$_camStat_keys" -- "$word")
        return
    fi
    for ((i = 2; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || operands=$((operands + 1))
    done
    case $command:$operands in
    get:1 | set:1) _camStat_words "$_camStat_keys" ;;
    set:2) ;;
    *) _camStat_files ;;
    esac
}

_camSim_fields='Reg01_0 ExtPrstH CisType DnStatus MirisStatus LngExpFrm ExpTime AnlGain DgtlGain WbbGain WbrGain RawAvg AeSwitch
Reg30_6_3 AeFlickMode AeMinAgc AeMaxAgc AeMaxDgn AeExpHldH AeHoldH AeTimer MeExpTim MnlAgn MnlDgn AeMaxExpH MirUseH
OptnMode Reg39_3_0 Reg3A_7 Reg3A_6_4 Reg3A_3_0 AutoLgExpH LongExp WbAutoH Reg3C_6_4 Reg3C_3 Reg3C_2 Reg3C_1 WbHoldH
MwbR MwbB Reg3F_6_5 Reg3F_4_3 Reg3F_2_0 Reg40 Reg41 Reg42 Reg43 Reg44 Reg45 Reg46_7_4 Reg46_3_0 Blk47 DyNgtOnH NrAutoH
Blk55 Reg55 Reg56 Reg57 Reg58 Reg59 Reg5A Reg5B Reg5C DyNtSupr DyNtRecv AccAutoH AccPwr Reg61_7_5 Reg61_2_0 Reg62
Reg63_6_4 Reg63_3_0 AeEvSet Reg72_7 Ygain Yofst AeRefLev ApGan Reg94 Reg95 ApPosGn Reg97_7 RYG Reg98_7 BYG Reg99 Reg9A
Blk9D RegA3 RegCA_3 RegCA_2 RegCA_1_0 InfoOut'

_camSim_commands='dump peek poke pins scene fault reset trace'
_camSim_options='--board --new --fault --trace --trace-json --speed --sensor --emulator --library --help --version'

_camSim_command() { # the words of a command; $1 is its place on the line
    local command=${COMP_WORDS[$1]}
    case $command in
    dump) _camStat_words '--hex --help' ;;
    peek | poke) _camStat_words "$_camSim_fields" ;;
    pins) compopt -o nospace 2>/dev/null; _camStat_words 'led= ircut= alarm= reset=' ;;
    scene) compopt -o nospace 2>/dev/null; _camStat_words 'light= temperature= sensor= reflect=' ;;
    fault) _camStat_words 'list clear i2c.read i2c.write gio.set reflect flash open' ;;
    esac
}

_camSim() {
    local i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --board | --emulator | --library | --fault | --trace-json | --speed | --sensor) i=$((i + 1)) ;;
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
    --board) _camStat_files -d ;;
    --library | --trace-json) _camStat_files ;;
    --sensor) _camStat_words '6 7' ;;
    --fault | --speed | --emulator) ;;
    *) _camStat_words "$_camSim_commands $_camSim_options camStat camConf camCtl drvI2cTest" ;;
    esac
}

_camCtl() { # names come from the program itself, which needs no board for them
    local word=${COMP_WORDS[COMP_CWORD]} program=${COMP_WORDS[0]} i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || break
    done
    if [[ $word == -* ]]; then
        _camStat_words '--json --retries --dry-run --hex --force --metrics --help --version'
    elif [ "$i" -ge "$COMP_CWORD" ]; then
        _camStat_words "$("$program" --help 2>/dev/null | sed -n 's/^  camCtl \([a-z]*\).*/\1/p')"
    else
        case ${COMP_WORDS[i]} in
        list | get | set)
            _camStat_words "all @live @ae @exposure @awb @picture @daynight @noise @other $("$program" list 2>/dev/null | cut -d ' ' -f 1)" ;;
        led) _camStat_words 'on off' ;;
        ircut) _camStat_words 'cut pass' ;;
        expose) compopt -o nospace 2>/dev/null; _camStat_words 'shutter= again= dgain=' ;;
        save | load | diff) _camStat_files ;;
        esac
    fi
}

_i2cErrPlot() {
    if [[ ${COMP_WORDS[COMP_CWORD]} == -* ]]; then
        _camStat_words '-o --last --help'
        return
    fi
    _camStat_files
}

complete -F _camStat camStat
complete -F _drvI2cTest drvI2cTest
complete -F _camConf camConf
complete -F _camSim camSim
complete -F _i2cErrPlot i2cErrPlot
complete -F _camCtl camCtl
