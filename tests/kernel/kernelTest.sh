#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The packaged static programs do on an ARM kernel, on the nodes of `camSim serve`, what this PC's programs do on the
# preloaded board: two roads, two C libraries, two machines, one result. The machine is emulated; nobody needs to be root.
#   kernelTest.sh SOURCE     with the presets host, arm and arm-static built; exit status 77: they are not
set -eu
cd "$1"
. cmake/packages.sh
here=$PWD
for program in host/camSim host/camStat arm/camSim arm-static/camStat; do
    [ -x "build/$program" ] || { echo "kernelTest: build/$program is not built" && exit 77; }
done
unpack_missing
work=$(mktemp -d) machine=""
trap '[ -z "$machine" ] || kill "$machine" 2>/dev/null || :; rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# ---- The machine: programs as packaged, the simulator with its libraries, a clock that can be set beyond 2038
mkdir -p "$work/root/bin" "$work/root/dev" "$work/root/proc" "$work/root/lib" "$work/root/mnt"
cpack --config build/arm-static/CPackConfig.cmake -B "$work/packages" >"$work/cpack.log" || { cat "$work/cpack.log" && exit 1; }
tar -C "$work/root" -xzf "$work"/packages/*.tar.gz
! readelf -d "$work"/root/usr/bin/* | grep NEEDED || { echo "kernelTest: static programs need no library" && exit 1; }
arm-linux-gnueabi-strip -o "$work/root/bin/camSim" build/arm/camSim
printf '%s\n' '#include <stdlib.h>' '#include <time.h>' 'int main(int count, char **words)' '{' \
    'struct timespec now = {count == 2 ? atoll(words[1]) : 0, 0};' 'return clock_settime(CLOCK_REALTIME, &now) != 0;' '}' |
    arm-linux-gnueabi-gcc -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 -x c - -o "$work/root/bin/setClock"
for library in ld-linux.so.3 libc.so.6 libm.so.6 libgcc_s.so.1 libstdc++.so.6; do
    cp -L "$(arm-linux-gnueabi-gcc -print-file-name=$library)" "$work/root/lib"
done
find $unpacked/bin/busybox -exec cp {} "$work/root/bin" \;
find $unpacked/lib \( -name 'libfuse3.so.3' -o -name fuse.ko -o -name cuse.ko \) -exec cp -L {} "$work/root/lib" \;
cp tests/kernel/commands.sh "$work/root"
cat >"$work/root/init" <<'END'
#!/bin/busybox sh
/bin/busybox --install -s /bin
export PATH=/usr/bin:/bin
mount -t devtmpfs dev /dev && mount -t proc proc /proc
insmod /lib/fuse.ko && insmod /lib/cuse.ko
ln -s /board/mnt/nand /mnt && ln -s /board/sysconf /board/defconf /
sh /commands.sh served /results /board
setClock 1000000000 && touch /results /results/* # busybox cannot look at files of 2039
echo "RESULTS $(tar -C /results -cz . | base64 | tr -d '\n') END"
poweroff -f
END
chmod +x "$work/root/init"
(cd "$work/root" && find . | cpio -o -H newc 2>/dev/null) >"$work/initramfs"
# The power driver of the real machine panics on the emulated one.
timeout 90 qemu-system-arm -M raspi1ap -icount shift=3,sleep=off -kernel $unpacked/boot/vmlinuz-* -dtb "$(find $unpacked -name bcm2835-rpi-a-plus.dtb)" \
    -initrd "$work/initramfs" -nographic -no-reboot </dev/null >"$work/console" 2>&1 -append \
    'console=ttyAMA0,115200 rdinit=/init panic=-1 quiet printk.devkmsg=on initcall_blacklist=bcm2835_power_driver_init' &
machine=$!

# ---- Meanwhile, the PC
PATH=$here/build/host:$PATH sh tests/kernel/commands.sh preloaded "$work/preloaded" "$work/board"
if [ -c /dev/cuse ] && (: <>/dev/cuse) 2>/dev/null; then
    echo "kernelTest: this kernel has CUSE: its own nodes, too"
    mkdir "$work/pc"
    # shellcheck disable=SC2016
    unshare -m sh -ec 'mount -t tmpfs pc "$1" && cd "$1" && mkdir mnt programs
        for folder in usr bin lib lib64 dev proc tmp; do [ ! -d /$folder ] || { mkdir $folder && mount --rbind /$folder $folder; }; done
        mount --bind "$2/build/host" programs && ln -s "$3/board/mnt/nand" mnt && ln -s "$3/board/sysconf" "$3/board/defconf" .
        cp "$2/tests/kernel/commands.sh" . && PATH=/programs:/usr/sbin:/usr/bin:/bin chroot . sh commands.sh served "$3/native" "$3/board"' \
        sh "$work/pc" "$here" "$work"
    sh tests/kernel/commands.sh compare "$work/preloaded" "$work/native"
else
    echo "kernelTest: no CUSE for this user on this kernel: the emulated machine stands for it"
fi
wait $machine || { tail -n 20 "$work/console" && echo "kernelTest: the machine did not end within 90 s" && exit 1; }
mkdir "$work/emulated" && tr -d '\r' <"$work/console" | sed -n 's/^RESULTS \(.*\) END$/\1/p' | base64 -d | tar -C "$work/emulated" -xz || { cat "$work/console" && exit 1; }
sh tests/kernel/commands.sh compare "$work/preloaded" "$work/emulated"
