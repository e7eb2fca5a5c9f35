#!/usr/bin/env bash
# Runs the example installer as a user would. Usage: example_test.sh PATH_OF_THE_EXAMPLE
set -euo pipefail
example=$(realpath "$1")
scratch=$(realpath "$(mktemp -d)")
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
umask 022
mkdir products content content/sub
tar='tar --owner=0 --group=0'

fail() {
    printf '%s\n' "$1" '--- output:'
    cat output
    printf -- '--- log:\n'
    cat log
    exit 1
}

# input LINE...: writes the input file; a later line for a key replaces an earlier one.
input() {
    printf '%s\n' "install_dir = $scratch/app" 'product_dir = products' 'overwrite = yes' \
        product.Basic_Tools "$@" >input
}

# archive ARGUMENT...: creates the archive of the product; the arguments are those of tar.
archive() { $tar -czf products/Basic_Tools.tar.gz -C content "$@"; }

# run STATUS TEXT [COMMAND...]: runs the installer, through the COMMAND if given, and checks that it
# exits with the STATUS and that its log contains the TEXT.
run() {
    local status=0
    rm -f log
    "${@:3}" "$example" input log >output 2>&1 || status=$?
    if [ "$status" != "$1" ] || ! grep -qF -- "$2" log; then
        fail "status $status, not status $1 and: $2"
    fi
}

# installed CONTENT: checks that the installed file has the CONTENT and that no work folder is left.
installed() {
    [ "$(cat app/file)" = "$1" ] || fail "not installed: $1"
    [ ! -e .app.installing ] || fail 'the work folder is left'
}

# refused TEXT [COMMAND...]: runs the installer, and checks that it fails, prints and logs the TEXT,
# and does not change the previous installation.
refused() {
    previous
    run 1 "$@"
    grep -qF -- "$1" output || fail "not shown: $1"
    installed previous
    [ "$(ls -A app)" = file ] || fail "not as before: $1"
}

# wait_for COMMAND...: waits until the COMMAND succeeds, for at most 30 seconds.
wait_for() {
    local attempt
    for ((attempt = 0; attempt < 300; ++attempt)); do
        ! "$@" 2>/dev/null || return 0
        sleep 0.1
    done
    fail "timed out: $*"
}

# previous: creates a previous installation.
previous() {
    rm -rf app
    mkdir app
    printf 'previous\n' >app/file
}

# start: starts an installer in the background, which replaces the previous installation and pauses
# in the middle of unpacking.
start() {
    previous
    rm -f log
    EXAMPLE_INSTALLER_PAUSE='' "$example" input log >output 2>&1 &
    wait_for grep -q 'unpacked Basic Tools: file' log
    [ -e .app.installing/app/file ] || fail 'not in the middle of unpacking'
    [ "$(stat -c %a .app.installing)" = 700 ] || fail 'others can read what is being unpacked'
}

# Successful installations: into a folder that is missing, empty, or contains an older or equal version.
printf 'first\n' >content/file
printf 'tool\n' >content/sub/Wörld
ln -s ../file content/sub/link
ln content/file content/sub/hard
chmod 4755 content/file
chmod 555 content/sub
archive --format=pax file sub
chmod 755 content/sub
input 'install_dir = new/app/' 'mode = full' 'port = 80' 'licence_file = input' 'overwrite = no'
run 0 'installation finished' env LC_ALL=de_AT.UTF-8
for name in file sub/Wörld sub/link sub/hard; do
    grep -qF "unpacked Basic Tools: $name" log || fail "not logged: $name"
done
grep -qF 'port = 80' log || fail 'the input file is not in the log'
grep -qF 'locale: de_AT' log || fail 'wrong locale'
[ "$(cat new/app/sub/link new/app/sub/Wörld)" = $'first\ntool' ] || fail 'wrong content'
[ new/app/file -ef new/app/sub/hard ] || fail 'not a hard link'
[ "$(stat -c %a new/app/file new/app/sub)" = $'755\n755' ] || fail 'wrong permissions'
[ "$(ls -A new)" = app ] || fail 'more than the installation is left'
mkdir app
archive file
input 'overwrite = no'
run 0 'installation finished'
installed first
printf 'second\n' >content/file
$tar --zstd -cf products/Basic_Tools.tar.zst -C content --no-recursion . file
chmod 2710 app
[ "$(id -u)" != 0 ] || chown 2:3 app
before=$(stat -c %u:%g:%a app)
for version in '' 1.9 1.10.0; do
    touch app/obsolete
    input "installed_version = $version"
    run 0 'workflow: ordinary'
    installed second
    [ ! -e app/obsolete ] || fail "not replaced: $version"
    [ "$(stat -c %u:%g:%a app)" = "$before" ] || fail "other permissions: $version"
done
rm products/Basic_Tools.tar.zst

# Progress: a line for each product in a file, a bar on a terminal, and neither in the log.
[ "$(grep -c 'unpacking Basic Tools' output)" = 1 ] || fail 'not one line for the product'
script -qec "$example input log" /dev/null </dev/null >output || fail 'failed on a terminal'
grep -qF '[#########################] 100 %  Basic Tools' output || fail 'no progress bar'
! grep -E '%|unpacking' log || fail 'the progress is in the log'

# The sandbox workflow.
mkdir -p box/bin
touch box/qx_anchor
cp "$example" box/bin
rm -rf app
(example=$scratch/box/bin/$(basename "$example") && run 0 'workflow: sandbox')
[ -e "box/sandbox$scratch/app/file" ] || fail 'not installed in the sandbox'
[ ! -e app ] || fail 'installed outside the sandbox'
grep -qF "installing to $scratch/box/sandbox$scratch/app" log || fail 'the log does not name the sandbox'

# Inputs that are refused: the text of the refusal, and the lines of the input file.
while IFS='|' read -r text lines; do
    input "${lines//;/$'\n'}"
    refused "$text"
done <<EOF_INPUTS
E100: The installation cannot start. the input file has no install_dir (example_installer::make_plan)|install_dir =
the input file has no product_dir|product_dir =
E101: The installation cannot start. installed_version is not a version number: rc1|installed_version = rc1
E102: The installation cannot start. a newer version is installed: 1.10.1|installed_version = 1.10.1
E103: The installation cannot start. install_dir cannot be replaced: /|install_dir = /
install_dir cannot be replaced: $scratch/input|install_dir = input
key='product' value='$scratch/products/Help.tar.gz' rule='rfile' (example_installer::make_plan)|product.Help
key='product' value='/none/Basic_Tools.tar.gz' rule='rfile'|product_dir = /none
E104: The installation cannot start. install_dir would be replaced together with $scratch/products|install_dir = products
install_dir would be replaced together with app/file|licence_file = app/file
E107: The installation cannot start. the name of a product contains '/': /none/Basic Tools|product./none/Basic_Tools
the name of a product contains '/': a/../../products/Basic Tools|product.a/../../products/Basic_Tools
E108: The installation cannot start. not the key of a product line: products|products.Basic_Tools
E106: The installation cannot start. overwrite is not yes, but there are files in $scratch/app|overwrite = No
overwrite is not yes|overwrite = FALSE
key='overwrite' value='' rule='boolval' (example_installer::make_plan)|overwrite =
key='mode' value='odd' rule='strval:full,minimal'|mode = odd
key='port' value='http' rule='intval'|port = http
key='licence_file' value='/none' rule='rfile'|licence_file = /none
EOF_INPUTS
printf 'install_dir = app\nproduct_dir = products\n' >input
refused 'the input file has no product (example_installer::make_plan)'
input
for arguments in 'input app/log' 'app/input log'; do
    previous
    cp input app
    ! "$example" $arguments >output 2>&1 || fail "replaced together with one of: $arguments"
    grep -qF 'install_dir would be replaced together with' output || fail "not refused: $arguments"
    [ -e app/input ] || fail "replaced: $arguments"
done
rm input
refused 'input file does not exist! (example_installer::run)'
input

# Archives that are refused: the text of the refusal, and the arguments of tar.
ln -s sub content/inside
ln -s /etc content/absolute
ln -s .. content/sub/top
ln -s sub/top/../file content/climbing
ln -s ../../file content/sub/outside
ln -s ../file content/sub/up
ln content/file content/twin
ln -P content/sub/up content/moved
mkfifo content/pipe
ln -s .. content/esc
touch content/$'line\nfeed' content/$'latin\xe9'
printf 'outside\n' >file
while IFS='|' read -r text arguments; do
    eval "archive $arguments"
    refused "E300: Nothing was installed. $scratch/products/Basic_Tools.tar.gz: $text"
done <<'EOF_ARCHIVES'
../../file: Path contains '..' (ProductArchive::unpackEntry)|-P --transform 's|^|../../|' file
/file: Path is absolute|-P --transform 's|^|/|' file
inside/file: Cannot extract through symlink|--transform 's|^file|inside/file|' inside file
absolute: a symbolic link that leads out of the installation (ProductArchive::checkEntry)|absolute
climbing: a symbolic link that leads out|sub/top climbing
inside: a symbolic link that leads out|--transform 'flags=s;s|.*||' inside
esc/: a symbolic link that leads out|--transform 'flags=r;s|^esc$|esc/|' esc
esc/.: a symbolic link that leads out|--transform 'flags=r;s|^esc$|esc/.|' esc
sub/outside: a symbolic link that leads out|sub/outside
twin: Path contains '..'|-P --transform 'flags=h;s|^|../../|' file twin
twin: Path is absolute|-P --transform "flags=h;s|^|$scratch/|" file twin
twin: not a file, a folder|-P --transform 'flags=h;s|^|../../none/|' file twin
moved: not a file, a folder, a symbolic link or a hard link to a file|file sub/up moved
pipe: not a file, a folder|pipe
entry 2: its name is not UTF-8 or has control characters|file $'line\nfeed'
entry 1: its name is not UTF-8|$'latin\xe9'
EOF_ARCHIVES
[ "$(cat file)" = outside ] || fail 'a file outside was changed'
mkdir parent
archive pipe
input 'install_dir = parent/new/er/app'
run 1 'pipe: not a file'
[ -z "$(ls -A parent)" ] || fail 'a new parent folder is left'
head -c 100000 /dev/urandom >content/large
archive large
head -c 50000 products/Basic_Tools.tar.gz >products/Help.tar.gz
input product.Help
refused 'truncated gzip input'
printf 'not an archive\n' >products/Help.tar.gz
refused "$scratch/products/Help.tar.gz: header: Unrecognized archive format"
: >products/Help.tar.gz
refused "key='product' value='$scratch/products/Help.tar.gz' rule='rfile'"
input

# A full disk: simulated by a limit on the size of files, and by a small file system if mounting is allowed.
archive file large
refused 'large: Write failed: File too large (ProductArchive::' bash -c 'ulimit -f 64 && exec "$@"' -
small_disk() {
    local status=0
    mount -t tmpfs -o size=64k none disk || return 3
    mkdir disk/app
    touch disk/app/file
    "$@" || status=$?
    [ "$(find disk -mindepth 1 | sort | xargs)" = 'disk/app disk/app/file' ] || status=4
    return "$status"
}
export -f small_disk
mkdir disk
input 'install_dir = disk/app'
if unshare -rm bash -c 'small_disk true' 2>/dev/null; then
    run 1 'No space left on device (ProductArchive::' unshare -rm bash -c 'small_disk "$@"' -
fi
input

# A folder that cannot be locked. The capabilities of root would override its permissions.
ordinary=(env)
[ "$(id -u)" != 0 ] || ordinary=(setpriv '--bounding-set=-dac_override,-dac_read_search')
mkdir -m 300 unreadable
input 'install_dir = unreadable/app'
run 1 "opening $scratch/unreadable: Permission denied (example_installer::carry_out)" "${ordinary[@]}"
chmod 700 unreadable
input

# Ctrl-C and SIGTERM in the middle. Before the signal, a second installer is refused.
archive file sub/link
for signal in INT TERM; do
    start
    mv log log.first
    run 1 "E105: The installation cannot start. another installer is using $scratch"
    kill -"$signal" %%
    status=0
    wait %% || status=$?
    [ "$status" = 130 ] || fail "status $status after SIG$signal"
    grep -qF 'Interrupted. env EXAMPLE_INSTALLER_PAUSE is set. (example_installer::carry_out)' log || fail 'not logged as interrupted'
    installed previous
done

# An installer that is killed in the middle, and the next installation.
start
kill -KILL %%
wait %% 2>/dev/null || true
[ "$(cat app/file)" = previous ] || fail 'the killed installer changed the installation'
run 0 "removing what a killed installer left in $scratch/.app.installing"
installed second

# File systems that cannot exchange folders or have no locks, a parent folder that another process creates
# at the same time, and an installer killed just before and just after the exchange.
cat >shim.c <<'EOF_SHIM'
#define _GNU_SOURCE
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned flags) {
    if (getenv("KILL_BEFORE")) raise(SIGKILL);
    if (getenv("KILL_AFTER")) {
        syscall(SYS_renameat2, from_folder, from, to_folder, to, flags);
        raise(SIGKILL);
    }
    if (getenv("RENAME")) return syscall(SYS_renameat2, from_folder, from, to_folder, to, flags);
    errno = EXDEV;
    return -1;
}

int flock(int descriptor, int operation) {
    if (getenv("CREATE_FOLDER")) mkdir("fresh", 0777), mkdir("fresh/other", 0777);
    if (!getenv("NO_LOCKS")) return syscall(SYS_flock, descriptor, operation);
    errno = ENOLCK;
    return -1;
}
EOF_SHIM
"${CC:-cc}" -shared -fPIC -o shim.so shim.c
shim=(env LD_PRELOAD="$scratch/shim.so" ASAN_OPTIONS=verify_asan_link_order=0)
refused "replacing (not every file system can exchange folders) $scratch/app: Invalid cross-device link (" \
    "${shim[@]}"
refused "locking $scratch: No locks available (example_installer::carry_out)" "${shim[@]}" NO_LOCKS=
input 'install_dir = fresh/app'
run 1 "$scratch/fresh: Directory not empty (example_installer::carry_out)" "${shim[@]}" CREATE_FOLDER= RENAME=
[ -e fresh/other ] || fail 'the new folder of another process was replaced'
input
for when in BEFORE:previous AFTER:second; do
    previous
    run 137 'unpacked Basic Tools: file' "${shim[@]}" "KILL_${when%:*}="
    [ "$(cat app/file)" = "${when#*:}" ] || fail "not whole after KILL_$when"
    [ -e .app.installing ] || fail "not killed: $when"
    run 0 "removing what a killed installer left in $scratch/.app.installing"
    installed second
done
