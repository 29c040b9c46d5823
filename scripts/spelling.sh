#!/usr/bin/env bash
# Spell-checks README, changelog, docs and manual pages, code left out. Words of the trade are in
# docs/words.txt, one per line.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C.UTF-8

misspelt=$(
    {
        # Fenced and inline code, formulas, links and comments are no prose; nor are roff requests
        # that hold names.
        # shellcheck disable=SC2016  # the backquotes are Markdown's
        sed -E '/^```/,/^```$/d; /^    /d; s/`[^`]*`//g; s/\]\([^)]*\)//g; s/<!--.*-->//' \
            README.md CONTRIBUTING.md CHANGELOG.md docs/*.md examples/README.md
        sed -E '/^\.EX/,/^\.EE/d; /^\.(TH|TP|TQ|br|B|I|BR|RB|IR|RI|BI|IB)\b/d; s/\\f.//g
            s/\\\(..//g; s/\\-/-/g; s/\\.//g' man/*.1
    } | aspell list --lang=en_GB --encoding=utf-8 | sort -u | grep -vxFf docs/words.txt
) || exit 0
printf '%s\n' "$misspelt" 'These words are neither English nor in docs/words.txt.' >&2
exit 1
