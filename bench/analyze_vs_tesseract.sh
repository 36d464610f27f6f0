#!/usr/bin/env bash
# Whole-process timing: `quorvel-cli analyze` (load, centering, orientation, text lines, zone, faces,
# barcodes, detection) beside the plain one-thread `tesseract` command with the same models, on a
# 12 MP phone-style photo of the specimen card and on every real image of ../shared/realdocs (when
# present), the two interleaved image by image. Prints each pair and the median ratio.
# Run from the project root after a build: bash bench/analyze_vs_tesseract.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
if ! command -v tesseract >/dev/null; then
    echo "the tesseract command is needed for the comparison: apt-get install tesseract-ocr" >&2
    exit 1
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
photo="$scratch/specimen-12mp.jpg"
"$build/tools/quorvel-specimen" --photo --portrait build-data/astronaut.png -o "$photo" 2>/dev/null
images=("$photo")
if [[ -d ../shared/realdocs ]]; then
    images+=(../shared/realdocs/*.jpg ../shared/realdocs/*.png)
fi
seconds() { # the wall time of one run of the command
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    end=$(date +%s.%N)
    echo "$end - $start" | bc
}
# The models are read once by each before timing starts, so that neither pays for a cold disk cache.
"$build/cli/quorvel-cli" analyze "$photo" >/dev/null 2>&1 || true
OMP_THREAD_LIMIT=1 tesseract "$photo" - -l eng+rus+ell >/dev/null 2>&1 || true
printf "%-52s %9s %9s %6s\n" image quorvel tesseract ratio
for image in "${images[@]}"; do
    q=$(seconds "$build/cli/quorvel-cli" analyze "$image")
    t=$(seconds env OMP_THREAD_LIMIT=1 tesseract "$image" - -l eng+rus+ell)
    printf "%-52s %9.2f %9.2f %6.2f\n" "$(basename "$image")" "$q" "$t" "$(echo "$q / $t" | bc -l)"
done | tee "$scratch/pairs"
awk 'NR > 0 { print $4 }' "$scratch/pairs" | sort -n | awk '{ r[NR] = $1 } END { m = (NR % 2) ? r[(NR + 1) / 2] : (r[NR / 2] + r[NR / 2 + 1]) / 2; printf "median ratio (quorvel / tesseract) over %d images: %.2f\n", NR, m }'
