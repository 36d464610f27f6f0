#!/usr/bin/env bash
# Whole-process timing: `quorvel-cli analyze` (load, centering, text, faces, barcodes, detection) on a
# 12 MP phone-style photo of the specimen card, beside the plain `tesseract` command on the same
# image with the same models. Run from the project root after a build.
set -euo pipefail
build=${1:-build}
if ! command -v tesseract >/dev/null; then
    echo "the tesseract command is needed for the comparison: apt-get install tesseract-ocr" >&2
    exit 1
fi
photo=$(mktemp --suffix=.jpg)
trap 'rm -f "$photo"' EXIT
"$build/tools/quorvel-specimen" --photo --portrait build-data/astronaut.png -o "$photo" 2>/dev/null
runs=3
measure() {
    local label=$1
    shift
    for ((i = 0; i < runs; i++)); do
        /usr/bin/time -a -o "$photo.times" -f "%e %M" "$@" >/dev/null 2>&1 || true
    done
    awk -v label="$label" '{ s += $1; if ($2 > m) m = $2 } END { printf "%-40s %.2f s (mean of %d), peak %d MB\n", label, s / NR, NR, m / 1024 }' "$photo.times"
    rm -f "$photo.times"
}
measure "quorvel-cli analyze" "$build/cli/quorvel-cli" analyze "$photo"
measure "tesseract -l eng+rus+ell" tesseract "$photo" - -l eng+rus+ell
measure "tesseract -l eng+rus+ell, OMP_THREAD_LIMIT=1" env OMP_THREAD_LIMIT=1 tesseract "$photo" - -l eng+rus+ell
