#!/usr/bin/env bash
# Installs what Quorvel needs on Debian 12, builds it, and then either masks the bundled sample
# (`demo`) or runs the whole test suite (`test`). Safe to run again: nothing is installed twice.
set -euo pipefail

mode=${1:-demo}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVEL_BUILD_DIR:-$root/build}

packages=(
    build-essential cmake ninja-build pkg-config
    libicu-dev libpng-dev libjpeg62-turbo-dev libheif-dev libexiv2-dev libopencv-dev
    nlohmann-json3-dev libgtest-dev libgmock-dev libbenchmark-dev
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if ((${#missing[@]})); then
    echo "==> Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends "${missing[@]}"
fi

echo "==> Building in $build"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_WERROR=ON
cmake --build "$build" --parallel "$(nproc)"

case "$mode" in
demo)
    mkdir -p "$root/out"
    "$build/cli/quorvel-cli" mask "$root/samples/specimen-id-card.jpg" \
        --regions "$root/samples/specimen-regions.json" -o "$root/out/specimen-redacted.png"
    echo "==> Masked copy written to out/specimen-redacted.png"
    ;;
test)
    cd "$build"
    ctest --output-on-failure --timeout 600 -j "$(nproc)"
    ;;
*)
    echo "usage: tools/bootstrap.sh [demo|test]" >&2
    exit 2
    ;;
esac
