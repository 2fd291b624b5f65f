#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the demo need.
# Idempotent: packages already installed are not touched, and nothing runs
# when all are present. Needs root (or password-less sudo) to install.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ clang libclang-rt-14-dev pkg-config
  # libraries
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libssl-dev uuid-dev libicu-dev
  libpulse-dev libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libdbus-1-dev liburiparser-dev
  # tests and demo: a private sound server, test audio, media probing
  pulseaudio pulseaudio-utils sox espeak-ng ffmpeg
  # tests: the same suites against PipeWire's pulse server
  pipewire pipewire-pulse wireplumber pipewire-bin
  # tests: the recording as other tools read it (GStreamer with an AAC decoder, mediainfo, a tagger)
  gstreamer1.0-tools gstreamer1.0-plugins-good gstreamer1.0-plugins-base-apps gstreamer1.0-libav mediainfo atomicparsley
  # tests and demo: a headless desktop session with a notification service
  dunst xfce4-notifyd xvfb xdotool libnotify-bin dbus dbus-bin dbus-x11 python3 python3-dbus python3-gi
  # plots of measurements; flock and process tools used by the scripts
  gnuplot-nox util-linux procps
)

missing=()
for p in "${packages[@]}"; do
  if [[ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" != "install ok installed" ]]; then
    missing+=("$p")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  echo "install-deps: all ${#packages[@]} packages are installed"
  exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
  as_root=(sudo -n)
else
  echo "install-deps: not root and no password-less sudo — skipping installation." >&2
  echo "install-deps: missing packages: ${missing[*]}" >&2
  echo "install-deps: install them as root: apt-get install -y --no-install-recommends ${missing[*]}" >&2
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
