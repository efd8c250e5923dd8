#!/usr/bin/env bash
# Runs the test suites of one build directory inside the harness they expect:
# a private runtime directory, the offscreen platform plugin, a throwaway
# HOME, and a private D-Bus session bus with an unlocked Secret Service
# (gnome-keyring) for the keychain suites.
set -euo pipefail

build_dir=${1:?usage: run-tests.sh BUILD_DIR [ctest arguments]}
shift
build_dir=$(cd "$build_dir" && pwd)

scratch=$(mktemp -d -t qxtest.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
mkdir -m 700 "$scratch/runtime" "$scratch/home"

export XDG_RUNTIME_DIR="$scratch/runtime"
export HOME="$scratch/home"
export QT_QPA_PLATFORM=offscreen
export CTEST_OUTPUT_ON_FAILURE=1
jobs=$(nproc)

run_ctest() {
    ctest --test-dir "$build_dir" --output-on-failure -j "$jobs" "$@"
}

if command -v dbus-run-session >/dev/null 2>&1 && command -v gnome-keyring-daemon >/dev/null 2>&1; then
    export -f run_ctest
    export build_dir jobs
    dbus-run-session -- bash -c '
        eval "$(printf %s qx-test-keyring | gnome-keyring-daemon --unlock --components=secrets 2>/dev/null)"
        export GNOME_KEYRING_CONTROL SSH_AUTH_SOCK
        run_ctest "$@"' run-tests "$@"
else
    run_ctest "$@"
fi
