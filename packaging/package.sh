#!/usr/bin/env bash
# Builds the Debian packages, and uses them in a Debian 13 that has nothing else of ours: package.sh CHECKOUT MEDIA
# They land in CHECKOUT/build/package. Needs root, for the system that is made and dropped again.
set -euo pipefail

checkout=$1 media=$2
work=$checkout/build/package
source=$work/tessadrin
cd "$checkout"
version=$(sed -n 's/^project(Tessadrin VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
rm -rf "$work"
mkdir -p "$source"
tar -c --exclude=./build --exclude=./.git . | tar -x -C "$source"
mv "$source/packaging/debian" "$source/debian"
cat >"$source/debian/changelog" <<END
tessadrin ($version) trixie; urgency=medium

  * What changed for callers stands in CHANGELOG.md.

 -- Tessadrin Developers <developers@tessadrin.invalid>  $(date -R -d "@${SOURCE_DATE_EPOCH:-$(date +%s)}")
END
(cd "$source" && CCACHE_BASEDIR=$source dpkg-buildpackage -b -us -uc -ui) >"$work/build.log" 2>&1 || {
    tail -n 40 "$work/build.log" >&2
    exit 1
}
rm -rf "$source"
cd "$work"
rm -f ./*-dbgsym_*.deb
echo "package: $(echo ./*.deb)"
lintian --fail-on error --allow-root --tag-display-limit 0 ./*.deb

# The new system: a compiler, and what the packages bring along. What apt loads is kept for the next time.
archives=${TESSADRIN_CACHE:-$HOME/.cache/tessadrin}/archives
mkdir -p "$archives" try
cp ./*.deb "$media" try/
cp -r "$checkout/examples" "$checkout/packaging/check.sh" try/
# shellcheck disable=SC2016  # the hooks' "$1"
mmdebstrap --variant=minbase --format=null --aptopt='APT::Install-Recommends "false"' \
    --aptopt='APT::Sandbox::User "root"' --dpkgopt=force-unsafe-io --skip=download/empty,essential/unlink,cleanup/apt \
    --setup-hook='mkdir -p "$1/var/cache/apt/archives"' \
    --setup-hook="sync-in '$archives' /var/cache/apt/archives" \
    --include=g++,cmake,ninja-build,pkgconf,libgoogle-glog-dev,libseccomp-dev \
    --customize-hook='mkdir "$1/try"' --customize-hook='sync-in try /try' \
    --customize-hook='chroot "$1" env -i PATH=/usr/sbin:/usr/bin LC_ALL=C.UTF-8 sh /try/check.sh' \
    --customize-hook='rm -f "$1"/var/cache/apt/archives/lock' \
    --customize-hook="sync-out /var/cache/apt/archives '$archives'" \
    trixie - /etc/apt/sources.list >clean.log 2>&1 || {
    tail -n 60 clean.log >&2
    exit 1
}
sed -n 's/^check: //p' clean.log
echo "package: installed and used in a clean Debian 13"
