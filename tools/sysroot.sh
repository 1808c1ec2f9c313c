#!/usr/bin/env bash
# Unpacks the router's C library and kernel headers from Debian's packages for mipsel:
#     sysroot.sh FOLDER
set -euo pipefail
packages=(musl musl-dev linux-libc-dev)
folder=$1
[[ -e $folder/complete ]] && exit

if ! dpkg --print-foreign-architectures | grep -qx mipsel; then
    if [[ $(id -u) -ne 0 ]]; then
        echo "Packages for mipsel are not known here; as root: dpkg --add-architecture mipsel &&" \
            "apt-get update" >&2
        exit 1
    fi
    dpkg --add-architecture mipsel
    apt-get update -qq
fi
rm -rf "$folder"
mkdir -p "$folder/packages"
(cd "$folder/packages" && apt-get download -qq "${packages[@]/%/:mipsel}" 2>/dev/null)
for package in "$folder"/packages/*.deb; do
    dpkg-deb -x "$package" "$folder"
done
rm -r "$folder/packages"
touch "$folder/complete"
