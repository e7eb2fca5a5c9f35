#!/usr/bin/env bash
# Runs the example installer as a user would. Usage: example_test.sh PATH_OF_THE_EXAMPLE
set -uo pipefail
example=$1
cd "$(dirname "$0")/.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
log=$scratch/log

# expect STATUS TEXT INPUT_FILE: the example ends with the status and says the text, in its log too.
expect() {
    rm -f "$log"
    output=$(env LC_ALL=de_AT.UTF-8 "$example" "$3" "$log" 2>&1)
    status=$?
    if [ "$status" != "$1" ] || ! grep -qF -- "$2" <<<"$output" || ! grep -qF -- "$2" "$log"; then
        printf 'not status %s and "%s" but status %s and:\n%s\n' "$1" "$2" "$status" "$output"
        exit 1
    fi
}

input() { printf '%s\n' "$@" >"$scratch/input"; }

expect 0 'installing Base Tools to /opt/app' examples/inputs.txt
expect 0 'installed version: 1.9, older' examples/inputs.txt
expect 0 'locale: de_AT' examples/inputs.txt
expect 0 'installation finished' /dev/stdin <examples/inputs.txt
expect 1 'input file does not exist!' /none
expect 1 'text is not UTF-8: malformed at offset 0' $'\xff'
expect 1 'E100: The installation cannot start. the input file names no install_dir (example_installer::validate_inputs)' /dev/null
input 'install_dir = /x' 'mode = odd'
expect 1 "key='mode' value='odd' rule='strval:full,minimal'" "$scratch/input"
input 'install_dir = /x' 'installed_version = rc1'
expect 1 'E101: The installation cannot start. installed_version is no version number: rc1' "$scratch/input"
input 'install_dir = /x' 'licence_file = /none'
expect 1 "key='licence_file' value='/none' rule='rfile'" "$scratch/input"
grep -qF "File '/none' does not exist or it's empty" "$log" || exit 1

# Ctrl-C while it works: once the log tells of the workflow, the work has begun.
cat >"$scratch/interrupted" <<EOF
#!/usr/bin/env bash
EXAMPLE_INSTALLER_PAUSE= "$example" "\$@" &
for ((attempt = 0; attempt < 300; ++attempt)); do
    grep -q 'installed version' "\$2" 2>/dev/null && break
    sleep 0.1
done
kill -INT \$!
wait \$!
EOF
chmod +x "$scratch/interrupted"
example=$scratch/interrupted
expect 130 'Interrupted. env EXAMPLE_INSTALLER_PAUSE is set.' examples/inputs.txt
