#!/usr/bin/env bash
# The whole job on a photo and a PDF, in a network namespace without interfaces and under strace:
# no internet socket may be opened. Temporary files: none may be left behind, also after a failure.
set -euo pipefail
cli=$1
samples=$2
data=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/tmp" "$scratch/out"
export TMPDIR="$scratch/tmp"

# Nothing left behind: a success, a failed export and an unreadable input, with TMPDIR empty before.
"$cli" redact "$samples/specimen-id-card.jpg" -o "$scratch/out/card.png" 2>/dev/null
"$cli" redact "$data/statement.pdf" -o "$scratch/out/statement.pdf" 2>/dev/null
if "$cli" redact "$samples/specimen-id-card.jpg" -o "$scratch/missing/card.png" 2>/dev/null; then
    echo "FAILED: an export into a missing folder succeeded" >&2
    exit 1
fi
printf 'not an image' > "$scratch/bad.jpg"
"$cli" redact "$scratch/bad.jpg" -o "$scratch/out/bad.png" 2>/dev/null && exit 1
leftovers=$(find "$scratch/tmp" "$scratch/out" -mindepth 1 ! -name card.png ! -name statement.pdf)
if [[ -n "$leftovers" ]]; then
    echo "FAILED: files left behind: $leftovers" >&2
    exit 1
fi

# No network.
if ! command -v strace >/dev/null; then
    echo "FAILED: strace is not installed (Debian package strace)" >&2
    exit 1
fi
if ! unshare -n true 2>/dev/null; then
    echo "SKIPPED: this machine does not allow network namespaces (unshare -n: $(unshare -n true 2>&1 || true))"
    exit 77
fi
for input in "$samples/specimen-id-card.jpg" "$data/statement.pdf"; do
    extension=png
    [[ "$input" == *.pdf ]] && extension=pdf
    log="$scratch/network.log"
    # LeakSanitizer cannot work under ptrace; leaks are checked by every other test of a sanitizer build.
    ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0" \
        unshare -n strace -f -qq -e trace=network -o "$log" "$cli" redact "$input" -o "$scratch/out/again.$extension" \
        >/dev/null 2>&1
    if grep -E 'socket\((AF|PF)_INET6?,' "$log"; then
        echo "FAILED: an internet socket was opened while redacting $(basename "$input")" >&2
        exit 1
    fi
    [[ -s "$scratch/out/again.$extension" ]] || { echo "FAILED: nothing written for $input" >&2; exit 1; }
done
echo "2 passed, 0 failed"
