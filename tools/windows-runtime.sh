#!/bin/sh
# Unpacks Debian's wine, 64-bit and 32-bit, into a folder, and makes the prefix that every run copies.
# Nothing is installed on the machine: it may have library versions for which there is no 32-bit build.
# Usage: tools/windows-runtime.sh FOLDER   Makes FOLDER/root and FOLDER/prefix, if not there already.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1"
folder=$(cd "$1" && pwd)
# One copy of this script makes it; the others wait.
exec 9>"$folder/lock"
flock 9
[ -d "$folder/prefix" ] && exit 0
. "$here/debian-archive.sh"

echo "Unpacking the Windows runtime"
rm -rf "$folder/root" "$folder/archive" "$folder/making"
debian_archive "$folder/archive" deb release
# Dependencies of wine's packages that tests without a screen don't need: sound, cameras, video, printers.
for package in libasound2 libcapi20-3 libglib2.0-0 libgphoto2-6 libgphoto2-port12 libgstreamer-plugins-base1.0-0 \
    libgstreamer1.0-0 libpcap0.8 libpulse0 libudev1 libusb-1.0-0 libx11-6 libxext6 ocl-icd-libopencl1; do
    for arch in amd64 i386; do
        printf 'Package: %s\nStatus: install ok installed\nArchitecture: %s\nMulti-Arch: same\nVersion: 9:0\n' $package $arch
        printf 'Maintainer: none\nDescription: left out\n\n'
    done
done >"$folder/archive/state/status"
apt="$apt -o APT::Architecture=amd64 -o APT::Architectures::=amd64 -o APT::Architectures::=i386"
$apt update
$apt install --download-only --no-install-recommends -y wine64 wine32:i386 libgnutls30:amd64 libgnutls30:i386

root=$folder/root
mkdir -p "$root/proc" "$root/dev" "$root/sys" "$root/tmp" "$root/etc/ssl/certs" "$root/usr/bin" "$root/usr/sbin" \
    "$root/usr/lib" "$root/usr/lib64"
for merged in bin sbin lib lib64; do
    ln -s "usr/$merged" "$root/$merged"
done
for package in "$folder"/archive/cache/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" |
        tar -x --keep-directory-symlink -C "$root" --exclude='*.a' --exclude=./usr/share/doc --exclude=./usr/share/man
done
rm -rf "$folder/archive"

# What the packages' scripts would do: fill the loader's cache and mark zlib as one of wine's built-in libraries.
ldconfig -r "$root"
builtin='Wine builtin DLL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0'
for place in x86_64:x86_64-linux-gnu/wine/x86_64-windows i686:i386-linux-gnu/wine/i386-windows; do
    from=$root/usr/${place%%:*}-w64-mingw32/lib/zlib1.dll
    {
        head -c 64 "$from"
        printf "$builtin"
        tail -c +97 "$from"
    } >"$root/usr/lib/${place#*:}/zlib1.dll"
done
# A prefix contains a copy of every library; stripping debug symbols shrinks it to a third.
find "$root"/usr/lib/*/wine/*-windows -type f -print0 | xargs -0 -P 2 -n 50 x86_64-w64-mingw32-strip -S

echo "Making a prefix"
mkdir "$folder/making"
"$here/windows-namespace.sh" "$folder" "$folder/making" "$here/../tests/windows_prefix.sh"
mv "$folder/making/tmp/prefix" "$folder/prefix"
rm -rf "$folder/making"
