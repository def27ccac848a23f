#!/usr/bin/env bash
# Builds the Debian packages of a build tree with cpack and checks their
# split, names, dependencies and contents:
#   tarvo2      the shared library, the command-line tool and the Python
#               module (when built), with the shared-library dependencies
#               dpkg-shlibdeps finds;
#   tarvo2-dev  headers (without the test doubles), static library, .so
#               link, CMake package and a tarvo2.pc naming /usr; it depends
#               on tarvo2 of the same version, libsqlite3-dev and
#               libicu-dev.
#
# Usage: deb_packages.sh CPACK BUILD_DIR VERSION HAS_CLI HAS_PYTHON (1 or 0)
set -euo pipefail
cpack=$1 build=$2 version=$3 has_cli=$4 has_python=$5
work=$(mktemp -d "${TMPDIR:-/tmp}/tarvo2-deb.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; fail "cpack"; }
runtime=$(ls "$work"/tarvo2-runtime_"$version"-*.deb 2>/dev/null) || fail "no tarvo2-runtime_$version-*.deb"
dev=$(ls "$work"/tarvo2-dev_"$version"-*.deb 2>/dev/null) || fail "no tarvo2-dev_$version-*.deb"

field() { dpkg-deb -f "$1" "$2"; }
[ "$(field "$runtime" Package)" = tarvo2 ] || fail "runtime package name $(field "$runtime" Package)"
[ "$(field "$dev" Package)" = tarvo2-dev ] || fail "development package name $(field "$dev" Package)"
for pkg in "$runtime" "$dev"; do
  [ -n "$(field "$pkg" Maintainer)" ] || fail "$(basename "$pkg") has no maintainer"
  [ -n "$(field "$pkg" Description)" ] || fail "$(basename "$pkg") has no description"
done
rdeps=$(field "$runtime" Depends)
# Package names as regular expressions: libicu with its ABI number.
for dep in libc6 "libstdc\\+\\+6" libsqlite3-0 "libicu[0-9]+"; do
  [[ ", $rdeps," =~ ,\ $dep[\ ,] ]] ||
    fail "tarvo2 does not depend on $dep (Depends: $rdeps)"
done
ddeps=$(field "$dev" Depends)
[[ "$ddeps" == *"tarvo2 (= $version"* ]] || fail "tarvo2-dev does not require tarvo2 $version (Depends: $ddeps)"
for dep in libsqlite3-dev libicu-dev; do
  [[ "$ddeps" == *"$dep"* ]] || fail "tarvo2-dev does not depend on $dep (Depends: $ddeps)"
done

dpkg-deb -c "$runtime" | awk '{print $6}' > "$work/runtime.list"
dpkg-deb -c "$dev" | awk '{print $6}' > "$work/dev.list"
has() { grep -qE "$2" "$work/$1.list" || fail "$1 package lacks $2"; }
lacks() { ! grep -qE "$2" "$work/$1.list" || fail "$1 package holds $(grep -E "$2" "$work/$1.list" | head -1)"; }
has runtime '^\./usr/lib/(.*/)?libtarvo2\.so\.[0-9]+$'
has runtime "^\./usr/lib/(.*/)?libtarvo2\.so\.$version\$"
[ "$has_cli" = 1 ] && has runtime '^\./usr/bin/tarvo2$'
[ "$has_python" = 1 ] && has runtime '^\./usr/lib/python3/dist-packages/tarvo2\..*so$'
lacks runtime '/include/|\.a$|libtarvo2\.so$|/cmake/|\.pc$'
has dev '^\./usr/include/tarvo2/tarvo2\.h$'
has dev '^\./usr/lib/(.*/)?libtarvo2\.a$'
has dev '^\./usr/lib/(.*/)?libtarvo2\.so$'
has dev '^\./usr/lib/(.*/)?cmake/Tarvo2/Tarvo2Config\.cmake$'
has dev '^\./usr/lib/(.*/)?cmake/Tarvo2/Tarvo2ConfigVersion\.cmake$'
has dev '^\./usr/lib/(.*/)?cmake/Tarvo2/Tarvo2Targets\.cmake$'
has dev '^\./usr/lib/(.*/)?pkgconfig/tarvo2\.pc$'
lacks dev '/include/tarvo2/testing|libtarvo2\.so\.'
pc=$(grep -E 'pkgconfig/tarvo2\.pc$' "$work/dev.list")
dpkg-deb --fsys-tarfile "$dev" | tar -xO "$pc" | grep -qx 'prefix=/usr' ||
  fail "tarvo2.pc in tarvo2-dev does not name the /usr prefix"
echo "$(basename "$runtime") and $(basename "$dev") ok"
