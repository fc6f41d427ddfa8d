# SPDX-License-Identifier: Apache-2.0
# Shell functions shared by the scripts; sourced, not run.

# require_packages PACKAGE...: has the Debian packages installed afterwards, or ends the script.
require_packages() {
    local missing=() package
    for package in "$@"; do
        if ! dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii'; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        echo "These packages are missing: ${missing[*]}" >&2
        echo "Install them with: sudo apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null 2>&1 ||
        { apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null; } ||
        { echo "Cannot install ${missing[*]}" >&2; exit 1; }
}

# What it takes to build everything, and to run what was built. GStreamer is for the plugin and the
# player, which the build for 64-bit Arm leaves out.
build_packages=(cmake ninja-build g++ pkg-config libcli11-dev nlohmann-json3-dev help2man
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base
    gstreamer1.0-plugins-good gstreamer1.0-libav gstreamer1.0-tools)
