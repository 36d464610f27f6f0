#!/usr/bin/env bash
# Builds the .deb, installs it with apt as a user would, and runs what it installed: both programs'
# versions, a redaction of the specimen, and the window offscreen.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVEL_BUILD_DIR:-$root/build}
(cd "$build" && rm -f quorvel_*.deb && cpack >/dev/null)
package=$(ls "$build"/quorvel_*.deb)
echo "==> Installing $(basename "$package")"
DEBIAN_FRONTEND=noninteractive apt-get install -y --reinstall "$package" >/dev/null
version=$(sed -n 's/^project(Quorvel VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
cli=$(/usr/bin/quorvel-cli --version)
window=$(QT_QPA_PLATFORM=offscreen /usr/bin/quorvel --version)
echo "    quorvel-cli --version: $cli"
echo "    quorvel --version:     $window"
[[ "$cli" == *" $version" && "$window" == *" $version" ]] || { echo "version mismatch: package $version" >&2; exit 1; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
/usr/bin/quorvel-cli redact "$root/samples/specimen-id-card.jpg" -o "$scratch/clean.png"
[[ -s "$scratch/clean.png" ]] || { echo "redact wrote nothing" >&2; exit 1; }
XDG_CONFIG_HOME="$scratch" QT_QPA_PLATFORM=offscreen timeout 120 /usr/bin/quorvel --screenshot "$scratch/window.png" \
    "$root/samples/specimen-id-card.jpg" 2>/dev/null
[[ -s "$scratch/window.png" ]] || { echo "the window did not start" >&2; exit 1; }
echo "==> The installed package works"
