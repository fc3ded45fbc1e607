#!/usr/bin/env bash
# Installs everything the build, the tests and the main job need on a Debian 12 machine.
# Idempotent: a machine that already has it all is left alone after a quick check.
set -u
log=${TMPDIR:-/tmp}/orvalis-setup.log
SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
apt_install() { DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "$@" >>"$log" 2>&1; }

need=()
for p in cmake ninja-build g++ clang libclang-rt-14-dev googletest \
         g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix binutils-mingw-w64-i686 \
         binutils-mingw-w64-x86-64 wine64 xvfb xdotool imagemagick libxml2-utils xsltproc flock; do
  [ "$p" = flock ] && continue
  dpkg -s "$p" >/dev/null 2>&1 || need+=("$p")
done
updated=0
if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  $SUDO apt-get update >>"$log" 2>&1; updated=1
  apt_install "${need[@]}" || { echo "setup: apt-get install failed, see $log"; exit 1; }
fi

# A headless browser for the test of the documents' HTML views; without it that test is skipped.
if ! dpkg -s chromium >/dev/null 2>&1; then
  [ $updated = 1 ] || { $SUDO apt-get update >>"$log" 2>&1; updated=1; }
  apt_install chromium || echo "setup: chromium could not be installed; the HTML view test is skipped"
fi

# 32-bit Wine, for running the shipping i686 build. Debian's i386 security index is sometimes
# out of step with amd64's: try the plain install, then one that prefers the main archive and
# names the gstreamer base library at one version for both architectures.
if ! dpkg -s wine32:i386 >/dev/null 2>&1; then
  $SUDO dpkg --add-architecture i386
  [ $updated = 1 ] && $SUDO apt-get update >>"$log" 2>&1 || $SUDO apt-get update >>"$log" 2>&1
  if ! apt_install wine32:i386; then
    prefs=$(mktemp)
    printf 'Package: *\nPin: release l=Debian-Security\nPin-Priority: 50\n' >"$prefs"
    v=$(apt-cache policy libgstreamer-plugins-base1.0-0:i386 | awk '/Candidate/{print $2}')
    apt_install -o Dir::Etc::Preferences="$prefs" --allow-downgrades wine32:i386 wine64 libwine \
        || apt_install -o Dir::Etc::Preferences="$prefs" --allow-downgrades wine32:i386 wine64 libwine \
             "libgstreamer-plugins-base1.0-0=$v" "libgstreamer-plugins-base1.0-0:i386=$v"
    rm -f "$prefs"
  fi
  if dpkg -s wine32:i386 >/dev/null 2>&1; then
    echo "setup: wine32 installed"
  else
    echo "setup: wine32 could not be installed; the i686 build is built and its exports checked, its tests are skipped"
  fi
fi
exit 0
