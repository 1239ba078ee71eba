#!/usr/bin/env bash
# Installs what velapo needs to build and test on Debian (12 or newer), and
# nothing that is already there. Run as root, or as a user who may sudo.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  dpkg-dev                                               # unpacks Debian sources for the Windows build
  clang libclang-rt-dev                                  # libFuzzer targets
  libgtest-dev libgmock-dev googletest libbenchmark-dev  # tests and benchmarks
  libtinyxml2-dev libspeexdsp-dev                        # configuration and resampling
  libasound2-dev                                         # capture endpoints on Linux (ALSA)
  libcli11-dev nlohmann-json3-dev                        # the tools: command lines and JSON
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix  # the Windows build
  mingw-w64-tools                                        # widl: the module's type library
  wine wine64                                            # running it
  gcovr                                                  # scripts/coverage.sh
  libsndfile1-dev libfftw3-dev gnuplot-nox               # velapo-host: audio files, spectra, pictures
  jackd2 libjack-jackd2-dev                              # velapo-host live and its test on a dummy server
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
