#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The documents say what the programs do: the console blocks of the pages are run again, generated pages and examples
# are compared with their sources, manual pages are linted, the shell completion knows all options and keys.
#   documentsTest.sh SOURCE_FOLDER BUILD_FOLDER
set -u
source=${1:?usage: documentsTest.sh SOURCE_FOLDER BUILD_FOLDER}
PATH=$2:$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
CAMSIM_BOARD=$work/board
export PATH CAMSIM_BOARD
cd "$source" || exit 1
failures=0

# same WHAT FILE FILE
same() {
    diff -u "$2" "$3" && return
    echo "documentsTest: $1"
    failures=$((failures + 1))
}

# ./run, without its building.
run() {
    [ $# -gt 0 ] || set -- camStat -r
    [ "$1" != camSim ] || shift
    camSim "$@"
}
# Every page shows programs at work, but these, which describe.
described=" docs/architecture.md docs/fleet.md docs/library.md docs/packaging.md docs/performance.md docs/porting.md docs/registers.md docs/reliability.md docs/size.md "
for page in README.md docs/*.md; do
    if grep -Hn '^  *[$] ' "$page"; then
        echo "documentsTest: a prompt outside of console blocks"
        failures=$((failures + 1))
    fi
    sed -n '/^```console$/,/^```$/{/^```/!p}' "$page" >"$work/wanted"
    case "$described" in *" $page "*) continue ;; esac
    [ -s "$work/wanted" ] || {
        echo "documentsTest: $page has no console block"
        failures=$((failures + 1))
    }
    rm -rf "$CAMSIM_BOARD"
    sed -n 's/^\$ //p' "$work/wanted" | while IFS= read -r command; do
        printf '$ %s\n' "$command"
        eval "${command#./}" 2>&1 </dev/null
    done >"$work/got"
    # Source lines move with every change; times and places, and what follows from times, with every run.
    for file in "$work/wanted" "$work/got"; do
        sed -E -i 's/(\|[A-Za-z0-9_]+\|)[0-9]+\)/\1N)/; s/, [0-9]+ ms$/, N ms/; s/^ +[0-9]+\.[0-9]{2} [ 0-9.]{16}/T/
            s/^0\.[0-9]{3},/T,/; s/in [0-9.]+ s, [0-9.]+\/s/in T/; s/^(longest transfer:) .*/\1 T/
            s/the camera takes over .*: ready after [0-9]+ polls?/the camera is ready/; s/[0-9]+ calls, .* ms paused$/N calls/; s/ on the board in .*/ on the board/' "$file"
    done
    same "$page shows other output than its commands have" "$work/wanted" "$work/got"
done

sed -n '/^\.Sh EXAMPLES/,/^\.Sh [^E]/{/^\./!p}' man/camCtl.1 >"$work/wanted"
rm -rf "$CAMSIM_BOARD"
sed -n 's/^\$ //p' "$work/wanted" | while IFS= read -r command; do
    printf '$ %s\n' "$command"
    eval "camSim $command" 2>&1 </dev/null
done >"$work/got"
same "man/camCtl.1 shows other output than its examples have" "$work/wanted" "$work/got"

tools/registerTable >"$work/registers.md"
same "tools/registerTable >docs/registers.md brings the page up to date" docs/registers.md "$work/registers.md"

sed -n '/^#include <kelisp.h>/,$p' tests/cReader.c >"$work/example"
sed -n '/^```c$/,/^```$/{/^```/!p}' docs/library.md >"$work/page"
same "docs/library.md shows another example than tests/cReader.c" "$work/example" "$work/page"
sed -n '/^#include <kelisp.h>/,/^\.Ed/{/^\.Ed/!p}' man/kelisp.3 | sed 's/\\e/\\/g' >"$work/page"
same "man/kelisp.3 shows another example than tests/cReader.c" "$work/example" "$work/page"

camSim fault --help | sed -n '/^Calls/,$p' >"$work/wanted"
sed -n '/^\.\\" The output of `camSim fault/,/^\.fi/{/^\./!p}' man/camSim.1 >"$work/page"
same "man/camSim.1 has other words for fault rules than camSim" "$work/wanted" "$work/page"

for page in man/*; do
    complaints=$(cd man && mandoc -T lint -W style "${page#man/}" 2>/dev/null) # there, so that pages find each other
    [ -z "$complaints" ] && continue
    printf 'documentsTest: %s\n' "$complaints"
    failures=$((failures + 1))
done

# The rows of the configuration's keys against what is written about them: field and default; default and range.
sed -n '/^    {".*KeyAction::/{s/[&{}" ]//g; s/,$//; p}' config/confKeys.h >"$work/rows"
awk -F, '$4 != "" { sub(/.*::/, "", $4); if ($3 ~ /Window/) { $4 = "aeWindow"; $5 = "all 1" }
    print $4, ($3 ~ /NoKey/ ? "no key" : $1 ($3 ~ /NotStored/ ? " (not stored)" : "")), $5 }' "$work/rows" | sort >"$work/keys"
tools/confTemplate --fields | sort >"$work/page"
same "kelisp/imgConfig.h gives other keys or defaults than config/confKeys.h" "$work/keys" "$work/page"
awk -F, '$3 ~ /Number/ { range = $6 == "" ? "" : "; " $6 ($3 ~ /Either/ || $7 - $6 == 1 ? ", " : " to ") $7
    print $1, $5 range }' "$work/rows" | sort >"$work/keys"
sed -n 's/^\.It \([^ ]*\) Pq \(.*\)/\1 \2/p' man/conf.img.5 | grep -v '^EXT_AEWIN all 1$' | sort >"$work/page"
same "man/conf.img.5 gives other defaults or ranges than config/confKeys.h" "$work/keys" "$work/page"
for key in $(grep -v NoKey "$work/rows" | cut -d, -f 1); do
    grep -q "^\.It.*\<$key\>" man/conf.img.5 && continue
    echo "documentsTest: man/conf.img.5 does not tell of $key"
    failures=$((failures + 1))
done
tools/confTemplate >"$work/conf.img"
same "tools/confTemplate >docs/conf.img brings the file up to date" docs/conf.img "$work/conf.img"
echo '2A_WB_B: 0 -> 512' >"$work/wanted"
{ camConf check docs/conf.img; camConf diff /dev/null docs/conf.img; } >"$work/got" 2>&1
same "docs/conf.img is not the defaults" "$work/wanted" "$work/got"

grep '^    {".*KeyAction::' config/confKeys.h | grep -v NoKey | cut -d '"' -f 2 >"$work/keys"
bash -c '. tools/completion/camStat.bash && printf "%s\n" $_camStat_keys' >"$work/offered"
same "tools/completion/camStat.bash offers other keys than the configuration has" "$work/keys" "$work/offered"
sed -n 's/^| 0x[^|]*|[^|]*| \([A-Za-z0-9_]*\) | .*/\1/p' docs/registers.md >"$work/fields"
sed -n 's/^KEL_STRETCH([^,]*,[^,]*, \([A-Za-z0-9]*\),.*/\1/p' kelisp/registerMap.def >>"$work/fields"
sed -n 's/^KEL_.*, \([a-z]*\), [A-Z][A-Za-z]*, ".*/@\1/p' kelisp/registerMap.def | sort -u >>"$work/fields"
sort -o "$work/fields" "$work/fields"
bash -c '. tools/completion/camStat.bash && COMP_WORDS=(camCtl list "") COMP_CWORD=2 && _camCtl && printf "%s\n" "${COMPREPLY[@]}"' |
    sort >"$work/offered"
same "tools/completion/camStat.bash offers other fields or groups than the register map has" "$work/fields" "$work/offered"
grep -Eo "\{'.', (\"[a-z]+\"|nullptr)" app/camStat/options.cpp |
    sed -E "s/.'(.)', /-\1\n/; s/\"(.*)\"/--\1/; s/\nnullptr//" | sort >"$work/options"
bash -c '. tools/completion/camStat.bash && COMP_WORDS=(camStat -) COMP_CWORD=1 && _camStat && printf "%s\n" "${COMPREPLY[@]}"' |
    sort >"$work/offered"
same "tools/completion/camStat.bash offers other options than camStat has" "$work/options" "$work/offered"
camSim --help | sed -nE 's/^  (--[a-z-]+)[[ ].*/\1/p' | sort >"$work/options"
bash -c '. tools/completion/camStat.bash && printf "%s\n" $_camSim_options' | sort >"$work/offered"
same "tools/completion/camStat.bash offers other options than camSim has" "$work/options" "$work/offered"
{ camCtl list @live | cut -d ' ' -f 1; camSim camCtl status --json | tr '{,' '\n' | sed -n 's/^"\([a-z_]*\)".*/\1/p' | head -n 9; } | sort >"$work/keys"
/usr/bin/python3 -B -c 'import sys; sys.path.insert(0, "tools/camPlot"); import live; print("\n".join(live.LIVE))' 2>"$work/complaints" | sort >"$work/offered"
same "tools/camPlot/live.py takes other columns for live than camCtl" "$work/keys" "$work/offered"
exit $((failures > 0))
