#!/usr/bin/env bash
# Downloads and unpacks one Debian source package, for the parts of the
# Windows build that Debian ships only as Linux libraries (the MinGW build
# compiles them from their source).
#
#   scripts/fetch-debian-source.sh <source-package> <dest-dir>
#
# The machine's own apt configuration is left alone: the script keeps a
# private sources list and package lists under <dest-dir>/.apt, naming
# Debian's bookworm sources only. On success <dest-dir>/<source-package>
# holds the unpacked tree (a stable name whatever the version), and
# <dest-dir>/<source-package>.version the version unpacked. A second run
# finds that tree and does nothing, so a build can call it on every
# configure. Needs apt-get and dpkg-source (package dpkg-dev), no root.
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 <source-package> <dest-dir>" >&2
  exit 2
fi
package=$1
dest=$2
case "$package" in
  *[!a-z0-9.+-]* | "" | [!a-z0-9]*)
    echo "$0: not a Debian source package name: '$package'" >&2
    exit 2
    ;;
esac

mkdir -p "$dest"
dest=$(cd "$dest" && pwd)
tree="$dest/$package"
stamp="$dest/$package.version"
if [ -d "$tree" ] && [ -s "$stamp" ]; then
  exit 0
fi

for tool in apt-get dpkg-source; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "$0: $tool is missing (install apt and dpkg-dev)" >&2
    exit 1
  fi
done

apt_dir="$dest/.apt"
mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial"
echo "deb-src http://deb.debian.org/debian bookworm main" >"$apt_dir/sources.list"
: >"$apt_dir/status"
# Every apt state and cache path points into the private directory, so the
# host's lists, caches and sources are neither read nor written.
apt_options=(
  -o "Dir::Etc::SourceList=$apt_dir/sources.list"
  -o "Dir::Etc::SourceParts=-"
  -o "Dir::State::Lists=$apt_dir/lists"
  -o "Dir::State::Status=$apt_dir/status"
  -o "Dir::Cache=$apt_dir/cache"
  -o "Dir::Cache::pkgcache="
  -o "Dir::Cache::srcpkgcache="
  -o "APT::Sandbox::User=$(id -un)"
  -o "Debug::NoLocking=1"
)

echo "=== fetching the Debian source package $package"
apt-get "${apt_options[@]}" -qq update
work=$(mktemp -d "$dest/.fetch-$package.XXXXXX")
trap 'rm -rf "$work"' EXIT
(cd "$work" && apt-get "${apt_options[@]}" -qq source --download-only "$package")

dsc=$(find "$work" -maxdepth 1 -name "${package}_*.dsc" | head -n 1)
if [ -z "$dsc" ]; then
  echo "$0: no source package '$package' was downloaded" >&2
  exit 1
fi
version=$(sed -n 's/^Version: //p' "$dsc" | head -n 1)
# apt has checked the files against the signed index; dpkg-source checks
# them once more against the .dsc while unpacking.
# Its complaint that Debian's keyring isn't there is noise; other output
# shows only when unpacking fails.
if ! (cd "$work" && dpkg-source -x "$(basename "$dsc")" unpacked >"$work/unpack.log" 2>&1); then
  cat "$work/unpack.log" >&2
  exit 1
fi

rm -rf "$tree"
mv "$work/unpacked" "$tree"
echo "$version" >"$stamp"
rm -rf "$apt_dir"
echo "=== $package $version unpacked in $tree"
