#!/usr/bin/env bash
# A batch through GNU parallel, one file per job on one core, must give exactly what one `redact FILE… -o DIR`
# gives, here with two cores a document.
set -euo pipefail
cli=$1
samples=$2
if ! command -v parallel >/dev/null; then
    echo "GNU parallel is not installed (Debian package parallel)" >&2
    exit 1
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/in" "$scratch/batch" "$scratch/parallel"
cp "$samples/specimen-id-card.jpg" "$scratch/in/card one.jpg"
cp "$samples/specimen-id-card.jpg" "$scratch/in/card-two.JPG"
"$cli" redact -j 4 "$scratch/in/card one.jpg" "$scratch/in/card-two.JPG" -o "$scratch/batch" 2>/dev/null
printf '%s\n' "$scratch/in/card one.jpg" "$scratch/in/card-two.JPG" |
    parallel --will-cite -j 2 "$cli" redact -j 1 {} -o "$scratch/parallel/{/.}-redacted.png" 2>/dev/null
for f in "$scratch"/batch/*; do
    cmp "$f" "$scratch/parallel/$(basename "$f")"
done
[[ $(ls "$scratch/parallel" | wc -l) -eq 2 ]]
echo "1 passed, 0 failed"
