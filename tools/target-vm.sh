#!/usr/bin/env bash
# Boots a MIPS machine with Debian's kernel and runs in it the tests of build/target-tests, and the
# hosts of the library in build/target. Its disk is an initramfs with the programs that these call.
#     target-vm.sh [REGEX]    only the tests whose names match
set -euo pipefail
cd "$(dirname "$0")/.."
wanted=${1:-.}
build=$PWD/build
root=$build/vm/root
kernel=$build/vm/kernel

# Programs, each with the libraries that it needs.
packages=(
    busybox dash libatomic1 libc6 libgcc-s1 libstdc++6
    iproute2 libbpf1 libbsd0 libcap2 libcom-err2 libelf1 libgssapi-krb5-2 libk5crypto3 libkeyutils1
    libkrb5-3 libkrb5support0 libmd0 libmnl0 libpcre2-8-0 libselinux1 libtirpc3 libxtables12 libzstd1
    zlib1g
    iptables libip4tc2 libip6tc2 libnftnl11
    nginx libcrypt1 libssl3
    dnsmasq-base libdbus-1-3 libgcrypt20 libgmp10 libgpg-error0 libhogweed6 libidn2-0 libjansson4
    liblz4-1 liblzma5 libnetfilter-conntrack3 libnettle8 libnfnetlink0 libnftables1 libsystemd0
    libunistring2)
modules=(block2mtd bridge crc32c_generic iptable_filter iptable_nat loop nandsim tun veth xt_comment
    xt_tcpudp)

unpack_packages() {
    tools/sysroot.sh build/vm/debian "${packages[@]}"
    [[ -e $kernel/complete ]] && return
    local package
    package=$(apt-cache depends linux-image-4kc-malta:mipsel | awk '/Depends:/ {print $2; exit}')
    tools/sysroot.sh "$kernel" "${package%:*}"
}

add_programs() {
    mkdir -p "$root"/{bin,dev,etc,proc,run,sys,tmp,var/log/nginx}
    cp -a build/vm/debian/. "$root"
    rm -r "$root"/usr/share/{doc,locale,man} "$root/usr/lib/mipsel-linux-gnu/gconv"
    cp build/sysroot/lib/ld-musl-mipsel.so.1 "$root/lib/"
    ln -s xtables-legacy-multi "$root/usr/sbin/iptables"
    printf '%s\n' root:x:0:0::/: nobody:x:65534:65534::/: >"$root/etc/passwd"
    printf '%s\n' root:x:0: nogroup:x:65534: >"$root/etc/group"
    echo '127.0.0.1 localhost' >"$root/etc/hosts"
    touch "$root/etc/resolv.conf"
}

add_modules() { # VERSION
    local module file
    depmod -b "$kernel" "$1"
    for module in "${modules[@]}"; do
        modprobe -d "$kernel" -S "$1" --show-depends "$module"
    done | awk '$1 == "insmod" {print $2}' | sort -u | while read -r file; do
        mkdir -p "$(dirname "$root${file#"$kernel"}")"
        mipsel-linux-gnu-strip --strip-debug -o "$root${file#"$kernel"}" "$file"
    done
    depmod -b "$root" "$1" 2>/dev/null # it misses the lists of what is built in
}

# At the paths that are compiled into them.
add_tests() {
    local file
    for file in build/target/tests/hosts/*_host build/target/librouterkit.so.0 \
        build/target-tests/tests/*_test build/target-tests/librouterkit-sim.so; do
        mkdir -p "$(dirname "$root$PWD/$file")"
        mipsel-linux-gnu-strip -o "$root$PWD/$file" "$file"
    done
    printf '#!/bin/sh\nexec %q "$@"\n' "$build/target/tests/hosts/crash_host" \
        >"$root$build/target/crash_host.sh"
    chmod +x "$root$build/target/crash_host.sh"
    mkdir -p "$root$PWD/tests/http" "$root/tests"
    cp tests/http/nginx.conf "$root$PWD/tests/http"
    ln -s "$build" "$root/build"
    cp tests/vm/init "$root"
    cp tests/vm/{left-out.txt,run.sh} "$root/tests"
    echo "$wanted" >"$root/tests/wanted"
}

boot() { # VERSION
    timeout 900 qemu-system-mipsel -M malta -cpu 24Kf -m 256 -kernel "$kernel/boot/vmlinuz-$1" \
        -initrd build/vm/initrd.gz -append 'console=ttyS0 quiet panic=1' -no-reboot -nic none \
        -display none -vga none -monitor none -serial stdio </dev/null |
        tr -d '\r' | tee build/vm/console.txt
}

unpack_packages
version=$(ls "$kernel/lib/modules")
rm -rf "$root"
add_programs
add_modules "$version"
add_tests
(cd "$root" && find . | cpio --quiet -o -H newc -R 0:0 | gzip -1) >build/vm/initrd.gz
boot "$version"
grep -q '^[1-9][0-9]* tests passed, 0 failed' build/vm/console.txt
