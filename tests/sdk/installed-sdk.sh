#!/bin/sh
# Installs the ad client's "libs" and "sdk" components into a scratch prefix and uses it as an outside Qt
# developer would: checks that the library exports only its public interface, finds it through
# pkg-config, builds the example against the installed copy with CMake, and runs the example
# off screen against the reference ad server until it shows its first ad.
#   installed-sdk.sh BUILD_DIR SOURCE_DIR ADSERVER EXTRA_CXX_FLAGS
set -eu
build=$1 source=$2 adserver=$3 cxxflags=$4
work=$(mktemp -d)
server_pid=
cleanup() {
    [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 143' TERM INT HUP  # ctest's timeout: the server and the folder go too
fail() { echo "FAIL: $*" >&2; exit 1; }

for component in libs sdk; do
    cmake --install "$build" --component $component --prefix "$work/prefix" >> "$work/install.log" ||
        fail "install: $(cat "$work/install.log")"
done
# The library's name and SONAME, and the platform library it stands on.
soname() { objdump -p "$1" | awk '$1 == "SONAME" { print $2 }'; }
lib=$(find "$work/prefix" -name 'libsorvel.so.1' | head -n 1)
platform=$(find "$work/prefix" -name 'libsorvel-platform.so.1' | head -n 1)
[ -n "$lib" ] && [ -n "$platform" ] || fail "libsorvel.so.1 and libsorvel-platform.so.1 not installed"
[ "$(soname "$lib")" = libsorvel.so.1 ] || fail "SONAME is '$(soname "$lib")'"
[ "$(soname "$platform")" = libsorvel-platform.so.1 ] || fail "platform SONAME is '$(soname "$platform")'"

# The owners of what a library defines and exports that is ours: the outermost name of each
# definition (a function template's return type and every argument list dropped; two names for
# the platform namespace), of the nm symbol types given. Qt's and the standard library's template
# instances are not ours.
owners() {
    nm -D --defined-only -C "$1" | awk -v types="$2" '$2 ~ types' | cut -d' ' -f3- |
        sed -e 's/^\(typeinfo name for\|typeinfo for\|vtable for\|VTT for\|guard variable for\) //' \
            -e 's/^\(non-virtual thunk to\|virtual thunk to\) //' |
        sed -e 's/[(<].*//' | awk '{ print $NF }' |
        awk -F'::' '{ print ($1 == "platform" ? $1 "::" $2 : $1) }' | sort -u |
        grep -E '^(PXB|HLX|platform::|sorvel|adserver|Brindle)' || true
}
# The ad client exports its public classes and defines nothing else of ours. Vague-linkage
# copies (typeinfo, inline variables: nm's V, W and u), which every library using a type of the
# platform carries, are not definitions of its own.
public='PXBBannerView PXBBannerViewDelegate PXBConfiguration PXBRequest PXBRequestError'
echo "$public" | tr ' ' '\n' > "$work/public"
owners "$lib" . > "$work/ours"
for name in $public; do
    grep -qx "$name" "$work/ours" || fail "$name is not exported"
done
leaks=$(owners "$lib" '^[TDBR]$' | grep -vxF -f "$work/public" || true)
[ -z "$leaks" ] || fail "exported but not public: $(echo $leaks)"
# The platform library exports the platform, among it the classes the public headers derive from
# or take (the header-only weak reference needs nothing), and nothing of the ad client.
owners "$platform" . > "$work/platform"
for name in platform::Error platform::View; do
    grep -qx "$name" "$work/platform" || fail "$name is not exported by the platform library"
done
strays=$(grep -v '^platform::' "$work/platform" || true)
[ -z "$strays" ] || fail "the platform library exports: $(echo $strays)"

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name sorvel.pc)") pkg-config \
    --cflags --libs sorvel > "$work/pkg-config.txt" || fail "pkg-config cannot use sorvel.pc"
grep -q -- "-lsorvel -lsorvel-platform" "$work/pkg-config.txt" || fail "pkg-config: $(cat "$work/pkg-config.txt")"

cmake -S "$source/examples/notepad" -B "$work/notepad" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_FLAGS="$cxxflags" > "$work/configure.log" 2>&1 ||
    fail "configure: $(cat "$work/configure.log")"
cmake --build "$work/notepad" > "$work/build.log" 2>&1 || fail "build: $(cat "$work/build.log")"

"$adserver" --port 0 --host 127.0.0.1 > "$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 100); do
    grep -q '^Listening on ' "$work/server.log" && break
    sleep 0.1
done
url=$(sed -n 's/^Listening on //p' "$work/server.log")
[ -n "$url" ] || fail "the ad server did not start: $(cat "$work/server.log")"

timeout 120 "$work/notepad/sorvel-notepad" --ad-server "$url" --test-mode --exit-after-first-ad \
    > "$work/notepad.log" 2>&1 || fail "the example showed no ad: $(cat "$work/notepad.log")"
grep -q '^first ad shown$' "$work/notepad.log" || fail "$(cat "$work/notepad.log")"
# The ad request carried test mode, as the example's option asked.
grep '"/ad' "$work/server.log" | grep -q 'adtest' || fail "no test-mode ad request in the log"
echo "libsorvel.so.1 exports $(wc -l < "$work/public") public classes over $(wc -l < "$work/platform") of the platform; the installed example showed an ad"
