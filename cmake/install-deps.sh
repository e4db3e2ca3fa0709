#!/usr/bin/env bash
# Installs the Debian packages Keel builds with, if any is missing:
# apt-get as root, else through sudo, else prints the command to run and stops.
# The header-only libraries come after: see install_headers below.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
    cmake ninja-build pkg-config ccache g++ clang clang-format libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libxml2-dev libxslt1-dev libxml2-utils libzip-dev libgsf-1-dev libglib2.0-dev libpcre2-dev
    libsqlite3-dev sqlite3 unixodbc-dev libcairo2-dev libmuparser-dev libedit-dev locales
)

# Tests of locale independence need a locale whose decimal point is a comma.
test_locale=de_DE.UTF-8

has_test_locale() { locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; }

# Header-only libraries: the JSON reader of `keel render` and `keel geometry collide`, and the
# geometry and transform libraries the tests compare with. Without any of them the build leaves
# out what needs it and says so.
header_packages=(nlohmann-json3-dev libboost1.74-dev libglm-dev)

# The PDF reader that a test opens rendered pages with: its headers, the library, and the one
# library it loads that a system without it may lack. Keel itself never links it.
poppler_packages=(libpoppler-private-dev libpoppler-dev libpoppler126 libopenjp2-7)

is_installed() {
    [[ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null || true)" == "install ok installed" ]]
}

# Each of these packages missing from the system: through apt-get where the package sources
# answer, else unpacked from the machine's package cache into .deps/, which CMake searches.
install_headers() {
    local package archive updated=0
    for package in "${header_packages[@]}" "${poppler_packages[@]}"; do
        is_installed "$package" && continue
        [[ -e ".deps/$package.unpacked" ]] && continue
        if [[ $(id -u) -eq 0 && -d /etc/apt ]]; then
            [[ $updated -eq 1 ]] || apt-get update -qq >/dev/null 2>&1 || true
            updated=1
            DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
                "$package" >/dev/null 2>&1 && continue
        fi
        archive=$(ls /var/cache/apt/archives/"${package}"_*.deb 2>/dev/null | head -n 1 || true)
        if [[ -n "$archive" ]] && dpkg-deb -x "$archive" .deps; then
            touch ".deps/$package.unpacked"
            echo "Unpacked $package into .deps/"
        else
            echo "Not available here: $package (the build leaves out what needs it)" >&2
        fi
    done
}

missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
    has_test_locale || [[ $(id -u) -ne 0 ]] || localedef -i de_DE -f UTF-8 "$test_locale" || true
    install_headers
    exit 0
fi

command=(apt-get install -y --no-install-recommends "${missing[@]}")
if [[ $(id -u) -eq 0 ]]; then
    prefix=()
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    prefix=(sudo -n)
else
    echo "Keel needs these packages: ${missing[*]}" >&2
    echo "Install them with:  sudo apt-get update && sudo ${command[*]}" >&2
    exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${prefix[@]}" apt-get update -qq
"${prefix[@]}" "${command[@]}" -qq
has_test_locale || "${prefix[@]}" localedef -i de_DE -f UTF-8 "$test_locale" || true
install_headers
