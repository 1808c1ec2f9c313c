#!/usr/bin/env bash
# Unpacks Debian's packages for mipsel, by default the router's C library and kernel headers:
#     sysroot.sh FOLDER [PACKAGE...]
set -euo pipefail
folder=$1
packages=("${@:2}")
[[ ${#packages[@]} -eq 0 ]] && packages=(musl musl-dev linux-libc-dev)
[[ -e $folder/complete && $(<"$folder/complete") == "${packages[*]}" ]] && exit

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
(cd "$folder/packages" && apt-get download -qq -o APT::Sandbox::User=root \
    "${packages[@]/%/:mipsel}")
for package in "$folder"/packages/*.deb; do
    dpkg-deb -x "$package" "$folder"
done
rm -r "$folder/packages"
echo "${packages[*]}" >"$folder/complete"
