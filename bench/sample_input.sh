# Sourced by the end-to-end benchmarks: sample_input DIR ROWS makes (or
# reuses, when the row count matches) DIR/people.csv of ROWS generated rows,
# so the benchmarks of one run read the same file.
sample_input() {
    local dir=$1 rows=$2 src
    src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    mkdir -p "$dir"
    if [ ! -s "$dir/people.csv" ] || [ "$(cat "$dir/rows" 2>/dev/null)" != "$rows" ]; then
        /usr/bin/python3 "$src/examples/make_samples.py" --rows "$rows" --only utf8 --out "$dir"
        echo "$rows" >"$dir/rows"
    fi
}
