#!/usr/bin/env bash
# Installs the Debian packages that building, testing (and, with --bench,
# benchmarking) QXFoundation needs. Runs `apt-get update` at most once and
# installs only what is missing; does nothing when everything is there.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config make
    qt6-base-dev qt6-tools-dev qt6-l10n-tools
    libicu-dev libssl-dev openssl
    libsecret-1-dev libsecret-tools libplist-dev
    gnome-keyring dbus iproute2
)
if [[ "${1:-}" == "--bench" ]]; then
    packages+=(jq libopencv-imgproc-dev)
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
    if command -v sudo >/dev/null 2>&1; then
        SUDO=sudo
    else
        echo "bootstrap: these packages are missing and installing them needs root: ${missing[*]}" >&2
        exit 1
    fi
else
    SUDO=
fi

echo "bootstrap: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
