#!/usr/bin/env bash
# What a client finds after an installation: the public operations and no others, and a client built
# outside this tree that gets every buffer back.
# Arguments: cmake, the build folder, the compiler, the sanitizers (may be empty).
set -euo pipefail
cmake=$1 build=$2 compiler=$3 sanitize=$4
example=$(cd "$(dirname "$0")/../examples/minimal" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { printf 'install_test: %s\n' "$*" >&2; exit 1; }

"$cmake" --install "$build" --prefix "$work/root" >/dev/null
library=$(find "$work/root" -name 'libqoz_vppsession.so.0')
[ -n "$library" ] || fail "no libqoz_vppsession.so.0 was installed"
libraries=$(dirname "$library")

# ---- Exported symbols: name for name, however many overloads and tables each has
cat >"$work/expected" <<'NAMES'
GetFormat
VppComponent
calculateOutBufferReqsPerFrame
config
disable
dump
enable
expectedOutputHeight
expectedOutputWidth
flushsync
isInputPortEnabled
outBufReqsPerFrame
process
processBuffer
state
toString
vtable
~VppComponent
NAMES
nm -D --defined-only -C "$library" | cut -d' ' -f3- | grep -v '^QOZ_0$' |
  sed -E 's/@@.*//; s/^(.*) for android::VppComponent$/\1/; s/^android::(VppComponent::)?([^(]*)\(.*/\2/' |
  LC_ALL=C sort -u >"$work/exported"
diff "$work/expected" "$work/exported" >&2 || fail "exported (>) is not what was expected (<)"

# ---- A client that finds the package with CMake
# The library has no run-time type information that -fsanitize=vptr could look at.
flags=(-Wall -Wextra -Werror ${sanitize:+-fsanitize=$sanitize -fno-sanitize=vptr})
"$cmake" -G Ninja -S "$example" -B "$work/example" -DCMAKE_PREFIX_PATH="$work/root" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="${flags[*]}" >/dev/null
"$cmake" --build "$work/example" >/dev/null
"$work/example/minimal" >"$work/printed" || fail "a buffer did not come back: $(cat "$work/printed")"
frames=$(grep -c ': frame,' "$work/printed" || true)
[ "$frames" -eq 19 ] || fail "10 frames at twice their rate are 19, not $frames"

# ---- One that finds it with pkg-config
export PKG_CONFIG_PATH=$libraries/pkgconfig
read -ra found <<<"$(pkg-config --cflags --libs qoz_desk)"
"$compiler" -std=c++20 "${flags[@]}" "$example/main.cpp" "${found[@]}" -Wl,-rpath,"$libraries" \
  -o "$work/minimal"
"$work/minimal" >/dev/null || fail "the client built with pkg-config did not get every buffer back"
