#!/usr/bin/env bash
# Compiles what the Apple build compiles -- the macOS backend, its tests, the
# portable core and the core suites configured on Apple -- for Apple silicon
# against a macOS SDK, without a Mac. Catches what only Apple's headers and
# libc++ reject before the first Mac build does.
#
#   scripts/check-macos.sh SDK [FILE...]
#
# SDK: a MacOSX14.x.sdk directory (Xcode, the command-line tools, or a partial
# copy with usr/include, usr/lib and System/Library/Frameworks). Prints one
# line per file: "compiled", the compiler's errors, or "not coverable by this
# SDK (missing X)" when a framework the file needs is not in the SDK. Where
# the SDK has the libSystem and libc++ stubs (.tbd), links the executables
# with ld64.lld as well; symbols only ICU, uriparser or GoogleTest define are
# left to Homebrew's libraries on the Mac.
#
# Needs clang 16 or later (clang 14 cannot parse Xcode 15's libc++) and, for
# the link, ld64.lld. The headers of ICU, uriparser, nlohmann-json and
# GoogleTest come from the host (HOST_INCLUDE, ICU_INCLUDE; /usr/include).
# Exit status: 0 when every coverable file compiled (and linked), 1 when one
# did not, 2 on bad usage. JOBS (default 2) compilers run at once.
set -euo pipefail

usage() { echo "usage: $0 SDK [FILE...]" >&2; exit 2; }
[ $# -ge 1 ] || usage
sdk=$(cd "$1" 2>/dev/null && pwd -P) || { echo "check-macos: no SDK directory at $1" >&2; exit 2; }
shift
only=("$@")
[ -d "$sdk/usr/include" ] || { echo "check-macos: $sdk has no usr/include: not a macOS SDK" >&2; exit 2; }

CLANG=${CLANG:-$(command -v clang++-16 || command -v clang++ || true)}
LD64=${LD64:-$(command -v ld64.lld-16 || command -v ld64.lld || true)}
[ -n "$CLANG" ] || { echo "check-macos: clang++ 16 not found (set CLANG)" >&2; exit 2; }
HOST_INCLUDE=${HOST_INCLUDE:-/usr/include}
ICU_INCLUDE=${ICU_INCLUDE:-$HOST_INCLUDE}  # Homebrew: $(brew --prefix icu4c)/include
JOBS=${JOBS:-2}
TARGET=arm64-apple-macos14.2

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
work=$(mktemp -d "${TMPDIR:-/tmp}/check-macos.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Only the third-party header trees, never the host's C library: directories
# of links to them. ICU is searched before the SDK, as Homebrew's icu4c is on
# the Mac (the SDK's own unicode/ headers hide ICU's C++ API); the rest after.
mkdir "$work/icu" "$work/host"
[ -d "$ICU_INCLUDE/unicode" ] && ln -s "$ICU_INCLUDE/unicode" "$work/icu/unicode"
for dir in nlohmann uriparser gtest gmock; do
  [ -d "$HOST_INCLUDE/$dir" ] && ln -s "$HOST_INCLUDE/$dir" "$work/host/$dir"
done

# The files, as the CMake build picks them on Apple.
core=(support/*.cpp platform/audio_types.cpp platform/platform.cpp cli/*.cpp capture/*.cpp
      recorder/*.cpp notify/*.cpp)
backend=(platform/macos/*.mm platform/macos/*.cpp)
entry=(main/*.cpp)
# Test folders skipped on Apple are listed in tests/CMakeLists.txt; the fuzz
# targets are built only on request.
linux_only=$(sed -n 's/^set(ac_linux_only_test_dirs \(.*\))$/\1/p' tests/CMakeLists.txt)
tests=()
for dir in tests/*/; do
  name=$(basename "$dir")
  case " $linux_only fuzz " in *" $name "*) continue ;; esac
  for file in "$dir"*.cpp "$dir"*.mm; do [ -e "$file" ] && tests+=("$file"); done
done
# Built off Apple only: the suites that need a PulseAudio server or the Linux
# notification backend.
tests_apple=()
for file in "${tests[@]}"; do
  case "$file" in
    tests/main/device_query_blackbox_test.cpp | \
      tests/notify_flows/linux_backend_test.cpp) ;;
    *) tests_apple+=("$file") ;;
  esac
done

# Xcode 15's Availability headers read the deployment target from a macro
# that Apple's clang defines and clang 16 does not; without it dispatch
# objects stop being Objective-C objects (no ARC) and version checks read 0.
shim=()
if ! "$CLANG" --target="$TARGET" -dM -E -x c++ /dev/null | grep -q __ENVIRONMENT_OS_VERSION_MIN_REQUIRED__; then
  shim=(-D__ENVIRONMENT_OS_VERSION_MIN_REQUIRED__=140200)
fi

compile_one() {  # file -> writes $work/out/<n>.{status,log}, object in $work/obj
  local file=$1 obj="$work/obj/${1//\//_}.o" lang=() defs=()
  case "$file" in
    *.mm) lang=(-x objective-c++ -fobjc-arc) ;;
    *) lang=(-x c++) ;;
  esac
  case "$file" in tests/*) defs=(-I tests -DAC_EXE=\"/Applications/audio-capture.app/Contents/MacOS/audio-capture\") ;; esac
  "$CLANG" --target="$TARGET" -isysroot "$sdk" -std=c++20 -Wall -Wextra "${lang[@]}" $SHIM \
    -I . -I "$work/icu" "${defs[@]}" -idirafter "$work/host" -c "$file" -o "$obj" >"$obj.log" 2>&1
}
export -f compile_one
SHIM="${shim[*]:-}"
export CLANG TARGET SHIM sdk work
mkdir "$work/obj"
all=("${core[@]}" "${backend[@]}" "${entry[@]}" "${tests_apple[@]}")
# FILE...: just those (of the files above), and no link.
if [ ${#only[@]} -gt 0 ]; then
  all=($(printf '%s\n' "${all[@]}" | grep -Fx -f <(printf '%s\n' "${only[@]}") || true))
  [ ${#all[@]} -gt 0 ] || { echo "check-macos: none of the files is built on Apple" >&2; exit 2; }
fi
printf '%s\n' "${all[@]}" | nice xargs -P "$JOBS" -I{} bash -c 'compile_one "$1" || true' _ {}

# A file is not coverable when the only error is a framework header the SDK
# does not have.
failed=0 uncovered=0 compiled=0
declare -A missing_of=()
for file in "${all[@]}"; do
  obj="$work/obj/${file//\//_}.o"
  log="$obj.log"
  if [ -f "$obj" ]; then
    compiled=$((compiled + 1))
    if grep -q 'warning:' "$log"; then echo "$file: compiled, with warnings"; sed 's/^/    /' "$log"
    else echo "$file: compiled"; fi
    continue
  fi
  framework=$(sed -n "s/.*fatal error: '\([A-Za-z0-9_]*\)\/[^']*' file not found.*/\1/p" "$log" | head -1)
  errors=$(grep -c 'error:' "$log" || true)
  if [ -n "$framework" ] && [ "$errors" -eq 1 ] && [ ! -d "$sdk/System/Library/Frameworks/$framework.framework" ]; then
    echo "$file: not coverable by this SDK (missing $framework)"
    missing_of[$framework]=1
    uncovered=$((uncovered + 1))
  else
    echo "$file: FAILED"
    sed 's/^/    /' "$log"
    failed=$((failed + 1))
  fi
done

# The link: every object of an executable, the SDK's stubs, and a list of
# what the host's ICU, uriparser and GoogleTest define (Mach-O names carry a
# leading underscore), which Homebrew provides on the Mac.
link() {  # name, files...
  local name=$1 objs=() file
  shift
  for file in "$@"; do objs+=("$work/obj/${file//\//_}.o"); done
  "$LD64" -arch arm64 -platform_version macos 14.2 14.2 -syslibroot "$sdk" -o "$work/$name" "${objs[@]}" \
    -lSystem -lc++ -lobjc -framework CoreAudio -framework AudioToolbox -framework CoreMedia \
    -framework AVFoundation -framework UserNotifications -framework AppKit -framework Foundation \
    --error-limit=0 >"$work/$name.log" 2>&1 && return 0
  local unexpected
  unexpected=$(sed -n 's/.*undefined symbol: \(.*\)$/\1/p' "$work/$name.log" | sort -u | comm -23 - "$work/host-symbols")
  if [ -z "$unexpected" ] && ! grep 'error:' "$work/$name.log" | grep -vq 'undefined symbol:'; then return 0; fi
  grep -v 'undefined symbol:' "$work/$name.log" | sed 's/^/    /'
  [ -n "$unexpected" ] && printf '    undefined: %s\n' $unexpected
  return 1
}
link_status="skipped"
if [ ${#only[@]} -gt 0 ]; then
  link_status="skipped: files chosen"
elif [ "$failed" -gt 0 ]; then
  link_status="skipped: not every file compiled"
elif [ "$uncovered" -gt 0 ]; then
  link_status="not coverable by this SDK (frameworks missing)"
elif [ ! -e "$sdk/usr/lib/libSystem.tbd" ] || [ ! -e "$sdk/usr/lib/libc++.tbd" ]; then
  link_status="not coverable by this SDK (missing usr/lib/libSystem.tbd or libc++.tbd)"
elif [ -z "$LD64" ]; then
  link_status="skipped: ld64.lld not found (set LD64)"
else
  for lib in libicuuc libicui18n libicudata liburiparser libgtest libgtest_main libgmock; do
    path=$(ls /usr/lib/*/"$lib".so /usr/lib/"$lib".so 2>/dev/null | head -1 || true)
    [ -n "$path" ] || path=$(ls /usr/lib/*/"$lib".a 2>/dev/null | head -1 || true)
    case "$path" in *.so) dynamic=-D ;; *) dynamic= ;; esac
    [ -n "$path" ] && nm $dynamic --defined-only -g "$path" 2>/dev/null | awk 'NF >= 3 {print "_" $NF}'
  done | sort -u >"$work/host-symbols"
  link_status="linked"
  echo "link audio-capture:"
  link audio-capture "${entry[@]}" "${core[@]}" "${backend[@]}" || { link_status="FAILED"; failed=$((failed + 1)); }
  echo "link platform_macos_tests:"
  link platform_macos_tests tests/platform_macos/*.mm tests/simulated/*.cpp "${core[@]}" "${backend[@]}" ||
    { link_status="FAILED"; failed=$((failed + 1)); }
fi

echo
missing=${!missing_of[*]}
echo "check-macos: $compiled compiled, $failed failed, $uncovered not coverable by this SDK${missing:+ (missing $missing)}; link: $link_status"
[ "$failed" -eq 0 ]
