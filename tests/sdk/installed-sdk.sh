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
lib=$(find "$work/prefix" -name 'libsorvel.so.1' | head -n 1)
[ -n "$lib" ] || fail "no libsorvel.so.1 installed"
soname=$(objdump -p "$lib" | awk '$1 == "SONAME" { print $2 }')
[ "$soname" = libsorvel.so.1 ] || fail "SONAME is '$soname'"

# Every exported symbol of ours belongs to the public interface. The owner of a symbol is the
# outermost name of what it defines (a function template's return type and every argument list
# dropped; two names for the platform namespace); Qt's and the standard library's template
# instances that the public types bring along are not ours.
public='PXBBannerView PXBBannerViewDelegate PXBConfiguration PXBRequest PXBRequestError
platform::Error platform::Referenceable platform::View'
nm -D --defined-only -C "$lib" | cut -d' ' -f3- |
    sed -e 's/^\(typeinfo name for\|typeinfo for\|vtable for\|VTT for\|guard variable for\) //' \
        -e 's/^\(non-virtual thunk to\|virtual thunk to\) //' |
    sed -e 's/[(<].*//' | awk '{ print $NF }' |
    awk -F'::' '{ print ($1 == "platform" ? $1 "::" $2 : $1) }' | sort -u > "$work/owners"
grep -E '^(PXB|HLX|platform::|sorvel|adserver|Brindle)' "$work/owners" > "$work/ours" || true
for name in $public; do
    grep -qx "$name" "$work/ours" || fail "$name is not exported"
done
leaks=$(echo "$public" | tr ' ' '\n' | grep -vxF -f - "$work/ours" || true)
[ -z "$leaks" ] || fail "exported but not public: $(echo $leaks)"

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name sorvel.pc)") pkg-config \
    --cflags --libs sorvel > "$work/pkg-config.txt" || fail "pkg-config cannot use sorvel.pc"
grep -q -- "-lsorvel" "$work/pkg-config.txt" || fail "pkg-config: $(cat "$work/pkg-config.txt")"

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
echo "libsorvel.so.1 exports $(wc -l < "$work/ours") public classes; the installed example showed an ad"
