#!/bin/sh
# SPDX-License-Identifier: MIT
#
# ./run in trees of every kind: the script itself, with stand-ins for cmake, the package manager and the launcher, which
# tell what was asked of them.
#   runTest.sh SOURCE_FOLDER
set -u
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export WORK="$work" PATH="$work/bin:$PATH"
unset CAMSIM_BOARD
failures=0

mkdir "$work/bin" "$work/a tree"
cp -r "$source/run" "$source/CMakePresets.json" "$work/a tree"
mkdir "$work/a tree/cmake" && cp "$source/cmake/packages.sh" "$work/a tree/cmake"
cat >"$work/bin/cmake" <<'C'
#!/bin/sh
[ "$1" != --build ] || { # one at a time
    mkdir "$WORK/building" && sleep 0.2 && rmdir "$WORK/building" || echo overlap >>"$WORK/did"
    exit 0
}
mkdir -p build/host && : >build/host/build.ninja && echo configure >>"$WORK/did"
echo "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" >build/host/CMakeCache.txt
printf '#!/bin/sh\necho "$(pwd): $CAMSIM_BOARD: $*"\n' >build/host/camSim && chmod +x build/host/camSim
C
printf '#!/bin/sh\nshift 3\nfor p; do echo "${NONE_INSTALLED:-installed} /$p/$p:all/"; done\n' >"$work/bin/dpkg-query"
chmod +x "$work"/bin/*

# check WHAT CONFIGURED PATTERN COMMAND...: the command's output has PATTERN, and cmake configured so many times.
check() {
    what=$1 configured=$2 pattern=$3
    shift 3
    : >"$work/did"
    said=$("$@" 2>&1)
    case $said in *"$pattern"*) found=1 ;; *) found=0 ;; esac
    [ $found = 1 ] && [ "$(wc -l <"$work/did")" = "$configured" ] && return
    echo "runTest: $what: configured $(wc -l <"$work/did") times, not $configured, or not \"$pattern\" in: $said"
    failures=$((failures + 1))
}

cd "$work" || exit 1
tree="$work/a tree"
check "a path with a blank" 1 "$work: $tree/build/board: camStat -r" "$tree/run"
check "nothing changed" 0 "$work: $tree/build/board: pins" "$tree/run" camSim pins
ln -s "$tree/run" link && ln -s "$tree" folder
check "a link to the script" 0 "$tree/build/board: camStat -r" ./link
check "a link to the tree" 0 "$tree/build/board: camStat -r" folder/run
cp -rp "$tree" copy
check "a copied tree" 1 "$work/copy/build/board: camStat -r" copy/run
mv copy moved
check "a moved tree" 1 "$work/moved/build/board: camStat -r" moved/run
check "new presets" 1 "camStat -r" sh -c 'sleep 0.01; touch moved/CMakePresets.json; moved/run'
check "twice at once" 0 "Waiting until another build" sh -c 'moved/run & moved/run; wait'

# As a user who owns nothing here; root makes one of itself.
if [ "$(id -u)" = 0 ]; then
    chmod 755 "$work"
    chmod 777 "$work/did"
    stranger="setpriv --reuid=65534 --regid=65534 --clear-groups"
else
    stranger=""
    chmod -R a-w "$tree"
fi
# shellcheck disable=SC2086
check "a tree that cannot be written" 0 "make the tree yours (chown -R), or work in a copy" $stranger "$tree/run"
if [ -n "$stranger" ] && cp -r "$tree" open && rm -rf open/build && chmod -R a+rwX open; then
    mkdir nosudo
    for tool in sh cat dirname readlink find id mkdir grep flock; do ln -s "$(command -v $tool)" nosudo/$tool; done
    cp bin/dpkg-query nosudo
    check "no sudo" 0 "As root: apt-get install g++ cmake" $stranger env PATH="$work/nosudo" NONE_INSTALLED=not-installed open/run
fi
chmod -R u+w "$tree"
exit $((failures > 0))
