#!/usr/bin/env bash
# Installs the Debian packages Keel builds with, if any is missing:
# apt-get as root, else through sudo, else prints the command to run and stops.
set -euo pipefail

packages=(
    cmake ninja-build pkg-config ccache g++ clang clang-format libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libxml2-dev libxslt1-dev libxml2-utils libzip-dev libgsf-1-dev libglib2.0-dev libpcre2-dev
    libsqlite3-dev sqlite3 unixodbc-dev libcairo2-dev libmuparser-dev libedit-dev locales
)

# Tests of locale independence need a locale whose decimal point is a comma.
test_locale=de_DE.UTF-8

has_test_locale() { locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; }

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
    has_test_locale || [[ $(id -u) -ne 0 ]] || localedef -i de_DE -f UTF-8 "$test_locale" || true
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
