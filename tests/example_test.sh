#!/usr/bin/env bash
# Runs the example installer as a user would. Usage: example_test.sh [EMULATOR...] PATH_OF_THE_EXAMPLE
set -euo pipefail
example=("${@:1:$#-1}" "$(realpath "${@: -1}")")
scratch=$(realpath "$(mktemp -d)")
trap 'chmod -R u+rwX "$scratch"; rm -rf --one-file-system "$scratch"' EXIT
cd "$scratch"
umask 022
mkdir products content content/sub
tar='tar --owner=0 --group=0'
# The capabilities of root would override permissions.
ordinary=(env)
[ "$(id -u)" != 0 ] || ordinary=(setpriv '--bounding-set=-dac_override,-dac_read_search,-chown')

fail() {
    printf '%s\n' "$1" '--- output:'
    cat output
    printf -- '--- log:\n'
    cat log
    exit 1
}

# input LINE...: writes the input file; a later line for a key replaces an earlier one.
input() {
    printf '%s\n' "install_dir = $scratch/app" 'product_dir = products' 'overwrite = yes' 'version = 1.10' \
        product.Basic_Tools "$@" >input
}

# digest NAME: writes the digest of an archive.
digest() { (cd products && sha256sum "$1" >"$1.sha256"); }

# archive ARGUMENT...: creates the archive of the product; the arguments are those of tar.
archive() {
    $tar -czf products/Basic_Tools.tar.gz -C content "$@"
    digest Basic_Tools.tar.gz
}

# run STATUS TEXT [COMMAND...]: runs the installer, through the COMMAND if given, and checks that it
# exits with the STATUS and that its log contains the TEXT.
arguments=(input log)
run() {
    local status=0
    rm -f log
    "${@:3}" "${example[@]}" "${arguments[@]}" >output 2>&1 || status=$?
    [ "$status" = "$1" ] && grep -qF -- "$2" log ||
        fail "exit status $status; expected $1, and in the log: $2"
}

# installed CONTENT: checks that the installed file has the CONTENT and that no work directory or lock is left.
installed() {
    [ "$(cat app/file)" = "$1" ] || fail "not installed: $1"
    [ -z "$(find . -maxdepth 1 -name '.*.*')" ] || fail 'a work directory or a lock is left'
}

# rejected TEXT [COMMAND...]: runs the installer, and checks that it fails, prints and logs the TEXT,
# and does not change the previous installation.
rejected() {
    previous
    run 1 "$@"
    grep -qF -- "$1" output || fail "not shown: $1"
    installed previous
    diff -r app template || fail "not as before: $1"
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

# previous: creates a previous installation of version 1.9.
previous() {
    rm -rf app app.kept-*
    cp -a template app
}

# start: starts an update of the previous installation in the background, which pauses in the middle of
# unpacking.
start() {
    previous
    rm -f log output
    # The shell starts background processes with SIGINT ignored.
    EXAMPLE_INSTALLER_PAUSE='' env --default-signal "${example[@]}" --verbose input log >output 2>&1 &
    wait_for grep -q 'unpacked file' output
    work=$(echo .app.work-??????)
    [ "$(stat -c %a "$work" .app.lock | xargs)" = '700 600' ] || fail 'open to others'
    [ -e "$work/app/file" ] || fail 'not in the middle of unpacking'
}

# Installations into a directory that is missing or empty. Root's umask does not apply to them.
printf 'previous\n' >content/file
archive file
mkdir app
input 'version = 1.9'
run 0 'installation finished'
installed previous
mv app template
printf 'first\n' >content/file
printf 'tool\n' >content/sub/Wörld
ln -s ../file content/sub/link
ln content/file content/sub/hard
chmod 4755 content/file
chmod 555 content/sub
archive --format=pax file sub
chmod 755 content/sub
input 'install_dir = new/app/' 'overwrite = no' 'greeting = Grüß Gott'
private=(env LC_ALL=de_AT.UTF-8)
[ "$(id -u)" != 0 ] || private+=(bash -c 'umask 077; exec "$@"' -)
run 0 'unpacked Basic Tools 1.10' "${private[@]}"
for text in 'Grüß Gott' 'overwrite = no' 'locale: de_AT' "created $scratch/new"; do
    grep -qF "$text" log || fail "not logged: $text"
done
[ "$(cat new/app/sub/link new/app/sub/Wörld)" = $'first\ntool' ] || fail 'wrong content'
[ new/app/file -ef new/app/sub/hard ] || fail 'not a hard link'
[ "$(stat -c %a new new/app/file new/app/sub | xargs)" = '755 755 755' ] || fail 'wrong permissions'
[ "$(ls -A new)" = app ] || fail 'more than the installation is left'
{
    printf 'product 1.10 Basic Tools\n'
    (cd new/app && sha256sum file sub/Wörld sub/hard | sed 's/^/file /;s/  / /')
    printf 'link %s sub/link\n' "$(printf ../file | sha256sum | cut -d' ' -f1)"
} | sort >expected
grep -v '^sha256' new/app/.receipt | sort | diff - expected >output || fail 'wrong receipt'

# An update keeps the owner and permissions of the directory, and the files that the user added or changed.
printf 'second\n' >content/file
$tar --zstd -cf products/Basic_Tools.tar.zst -C content --no-recursion . file
digest Basic_Tools.tar.zst
rm -rf app
mv new/app app
chmod 2710 app
[ "$(id -u)" != 0 ] || chown 2:3 app
before=$(stat -c %u:%g:%a app)
input
for kept in 1 2; do
    rm app/file
    printf 'changed\n' >app/file
    mkdir -p app/sub/own
    touch app/sub/own/$'added\e'
    run 0 "kept (changed): $scratch/app.kept-$kept/file"
    grep -qF "kept (added): $scratch/app.kept-$kept/sub/own/added"$'\xEF\xBF\xBD' log || fail 'not named'
    [ "$(find app.kept-$kept -type f | wc -l)" = 2 ] || fail 'more is kept'
    installed second
    [ "$(stat -c %u:%g:%a app)" = "$before" ] || fail 'other permissions'
done
[ "$(cat app.kept-1/file)" = changed ] || fail 'another file is kept'
[ "$(sed -n '/unpacked/,$s/^[^)]*) \([a-z]*\).*/\1/p' log | xargs)" = 'unpacked replaced kept kept installation' ] ||
    fail 'another order of entries'

# --uninstall removes what the receipt lists.
printf 'mine\n' >app/mine
arguments=(--uninstall app log)
run 0 "kept (added): $scratch/app.kept-3/mine"
[ "$(find app* -type f | grep -c mine) $(ls -d app 2>&1 | grep -c 'No such')" = '1 1' ] || fail 'not removed'
mkdir app
run 1 "E106: Nothing was changed. no receipt in $scratch/app"
rmdir app
run 1 "E103: Nothing was changed. no directory: $scratch/app"
arguments=(input log)

# A previous file that cannot be removed is kept, and does not affect the next installation.
previous
mkdir app/fixed
touch app/fixed/file
chmod 555 app/fixed
sed -i '$d' app/.receipt
printf 'file %s fixed/file\n' "$(sha256sum </dev/null | cut -d' ' -f1)" >>app/.receipt
printf 'sha256 %s\n' "$(sha256sum <app/.receipt | cut -d' ' -f1)" >>app/.receipt
run 0 "kept (Permission denied): $scratch/app.kept-1/fixed/file" "${ordinary[@]}"
chmod 755 app.kept-1/fixed
run 0 'installation finished'
installed second

# A directory whose path is too long to be read is kept, too.
previous
long=$(printf '%0250d' 0)
(cd app && for ((i = 0; i < 270; ++i)); do mkdir "$long" && cd "$long"; done) 2>/dev/null || true
run 0 "kept (File name too long): $scratch/app.kept-1/"
rm products/Basic_Tools.tar.zst

# Progress: a line for each step and, on a terminal, a percentage that fits and is written only when it changes.
[ "$(grep -cE '^(unpacking Basic Tools|writing to the disk)$' output)" = 2 ] || fail 'not one line for each step'
head -c 20000000 /dev/urandom >content/large
truncate -s 1M content/hole
archive -S file large hole
for columns in 20 40; do
    script -qec "stty cols $columns; $(printf '%q ' "${example[@]}") input log" /dev/null </dev/null >output ||
        fail 'failed on a terminal'
    grep -qF '100 %' output || fail 'no percentage'
    [ "$(grep -aoE '[0-9]+ %' output | sort | uniq -d | wc -l)" = 0 ] || fail 'a percentage is written twice'
    ! tr '\r' '\n' <output | grep -aF '%' | grep -E ".{$columns}" || fail 'a line is too wide'
done
! grep -E '%|unpacking' log || fail 'the progress is in the log'
for name in large hole; do
    grep -qF "file $(sha256sum <app/$name | cut -d' ' -f1) $name" app/.receipt || fail "wrong digest: $name"
done
archive file

# The sandbox workflow.
mkdir -p box/bin
touch box/qx_anchor
cp "${example[-1]}" box/bin
rm -rf app
(example[-1]=$scratch/box/bin/$(basename "${example[-1]}") && run 0 "target: $scratch/box/sandbox$scratch/app (workflow: sandbox")
[ -e "box/sandbox$scratch/app/file" ] || fail 'not installed in the sandbox'
[ ! -e app ] || fail 'installed outside the sandbox'

# Command lines: the status, the output, and the arguments. No log is opened.
mkfifo pipe
truncate -s 1048577 large
printf 'a text\n' >text
while IFS='|' read -r expected text line; do
    rm -f log
    status=0
    eval "timeout 20 ${example[*]@Q} $line" >output 2>&1 || status=$?
    [ "$status" = "$expected" ] && grep -qF -- "$text" output ||
        fail "exit status $status; expected $expected, and in the output: $text"
    [ ! -e log ] && [ "$(cat text)" = 'a text' ] || fail "a file was written: $line"
done <<'EOF_LINES'
0|usage: example_installer|--help
2|unknown option: --unistall|--unistall app log
2|two arguments are expected|input
2|the input file is missing, not a regular file, or larger than 1 MiB: log|log input
2|the input file is missing, not a regular file, or larger than 1 MiB: pipe|pipe log
2|larger than 1 MiB: /dev/fd/63|/dev/fd/63 log 63< <(cat input)
2|larger than 1 MiB: large|large log
2|both arguments name the same file: ./input|input ./input
2|an existing file is not a log: text (are the arguments swapped?)|input text
2|1 MiB: none�|$'none\xff' log
EOF_LINES

# Inputs that are rejected: the text of the message, and the lines of the input file.
rm -f dangling && ln -s nowhere dangling
mkdir -p home/documents
touch home/documents/letter
while IFS='|' read -r text lines; do
    input "${lines//;/$'\n'}"
    rejected "$text"
done <<EOF_INPUTS
E100: Nothing was changed. input: no install_dir (example_installer::make_plan)|install_dir =
no product_dir|product_dir =
E101: Nothing was changed. input: version is not a version number: rc1|version = rc1
version is not a version number: 1.99999999999|version = 1.99999999999
E102: Nothing was changed. a newer version is installed: Basic Tools 1.9|version = 1.8.7
E103: Nothing was changed. input: install_dir cannot be replaced: /|install_dir = /
not a directory, or a dangling link: $scratch/text|install_dir = text
not a directory, or a dangling link: $scratch/dangling|install_dir = dangling
E106: Nothing was changed. no receipt of an earlier installation, but files in $scratch/home|install_dir = home
E104: Nothing was changed. input: install_dir must not contain $scratch/products|install_dir = products
E107: Nothing was changed. input: the name of a product contains '/' or a control|product./none/Basic_Tools
E108: Nothing was changed. input: unknown key: products|products.Basic_Tools
unknown key: overwirte|overwirte = no
E106: Nothing was changed. set overwrite = yes to replace the products in $scratch/app|overwrite = No
input: key='overwrite' value='' rule='boolval' (example_installer::run)|overwrite =
E109: Nothing was changed. input: product Basic Tool: no Basic_Tool.tar.zst or Basic_Tool.tar.gz in $scratch/products|product.Basic_Tool
EOF_INPUTS
printf 'version = 1\ninstall_dir = app\nproduct_dir = products\n' >input
rejected 'input: no product (example_installer::make_plan)'
input 'greeting = '$'\xe9'
rejected 'input: '
input
cp input $'in\xe9put'
arguments=($'in\xe9put' log)
rejected "in"$'\xEF\xBF\xBD'"put: text is not UTF-8"
arguments=(input log)
for names in 'input app/log' 'app/input log'; do
    previous
    cp input app
    ! "${example[@]}" $names >output 2>&1 || fail "replaced together with one of: $names"
    grep -qF 'install_dir must not contain' output || fail "not rejected: $names"
    [ -e app/input ] || fail "replaced: $names"
done
mkdir $'latin\xe9'
input 'install_dir = app'
status=0
(cd $'latin\xe9' && "${example[@]}" "$scratch/input" "$scratch/log") >output 2>&1 || status=$?
[ "$status" = 1 ] && grep -qF "target: $scratch/latin"$'\xEF\xBF\xBD/app' log || fail "status $status in a directory of another encoding"
(cd $'latin\xe9' && ! TMPDIR=$scratch "${example[@]}" "$scratch/input" log) >output 2>&1
grep -qF 'example_installer: log: text is not UTF-8' output || fail 'the log is not named'
input

# Receipts that are rejected.
while IFS='|' read -r text command; do
    previous
    eval "$command app/.receipt"
    run 1 "$text $scratch/app/.receipt" timeout 20
    installed previous
done <<'EOF_RECEIPTS'
the receipt is damaged:|sed -i s/1.9/1.8/
the receipt is damaged:|sed -i 1d
the receipt is damaged:|sed -i '$d'
the receipt is damaged:|sed -i '$a file 0 file'
the receipt is damaged:|truncate -s 0
the receipt is damaged:|rm app/.receipt && mkfifo
cannot open|ln -sf ../template/.receipt
EOF_RECEIPTS

# Archives that are rejected: the text of the message, and the arguments of tar.
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
cp content/file content/.receipt
touch content/$'line\nfeed' content/$'latin\xe9' content/$'bidi\xE2\x80\xAE'
printf 'outside\n' >file
outside='a name outside the installation'
long=$(printf '%0300d' 0)
while IFS='|' read -r text arguments_of_tar; do
    eval "archive $arguments_of_tar"
    rejected "E300: Nothing was changed. $scratch/products/Basic_Tools.tar.gz: $text"
done <<EOF_ARCHIVES
../../file: $outside (ProductArchive::checkEntry)|-P --transform 's|^|../../|' file
/file: $outside|-P --transform 's|^|/|' file
inside/file: |--transform 's|^file|inside/file|' inside file
absolute: a symbolic link that leads out of the installation|absolute
climbing: a symbolic link that leads out|sub/top climbing
inside: a symbolic link that leads out|--transform 'flags=s;s|.*||' inside
esc: a symbolic link that leads out|--transform 'flags=r;s|^esc$|esc/|' esc
esc: a symbolic link that leads out|--transform 'flags=r;s|^esc$|esc/.|' esc
sub/outside: a symbolic link that leads out|sub/outside
twin: $outside|-P --transform 'flags=h;s|^|../../|' file twin
twin: $outside|-P --transform "flags=h;s|^|$scratch/|" file twin
twin: a hard link to something other than an unpacked file|--transform 'flags=h;s|^|none/|' file twin
twin: a hard link to something other than an unpacked file|--transform $'flags=h;s|^|\xe9|' file twin
moved: a hard link to something other than an unpacked file|file sub/up moved
pipe: not a file, a directory|pipe
file: the installation already has an entry|file ./file
.receipt: the installation already has an entry|.receipt
entry 2: its name is not UTF-8 or has control characters|file $'line\nfeed'
entry 1: its name is not UTF-8|$'latin\xe9'
entry 1: its name is not UTF-8 or has control characters|$'bidi\xE2\x80\xAE'
$long: File name too long|--transform "s|file|$long|" file
the archive has no entries|--files-from /dev/null
EOF_ARCHIVES
[ "$(cat file)" = outside ] || fail 'a file outside was changed'
mkdir parent
archive .receipt
input 'install_dir = parent/new/er/app'
run 1 '.receipt: the installation already has'
[ -z "$(ls -A parent)" ] || fail 'a new parent directory is left'
input

# Damaged archives, and digests that are missing or for another file.
gzip=products/Basic_Tools.tar.gz
archive file sub/Wörld
cp $gzip whole
size=$(stat -c %s whole)
for ((i = 0; i < 60; ++i)); do
    offset=$((i * size / 60))
    byte=$(od -An -tu1 -j $offset -N 1 whole)
    cp whole $gzip
    printf "\\x$(printf %x $((byte ^ 1 << i % 8)))" | dd of=$gzip bs=1 seek=$offset conv=notrunc status=none
    rejected "$scratch/$gzip: the archive is damaged"
done
head -c $((size / 2)) whole >$gzip
rejected "$scratch/$gzip: the archive is damaged"
: >$gzip
rejected "input: key='product.Basic_Tools' value='$scratch/$gzip' rule='rfile'"
cp whole $gzip
sed -i 's/Basic/Other/' $gzip.sha256
rejected "the first line of $scratch/$gzip.sha256 is not the output of sha256sum"
rm $gzip.sha256
rejected "the digest file cannot be read: $scratch/$gzip.sha256"

# Two archives in one file: all entries are installed.
archive file
cp $gzip first
archive sub/Wörld
cat first >>$gzip
digest Basic_Tools.tar.gz
run 0 'installation finished'
[ "$(cat app/file app/sub/Wörld)" = $'second\ntool' ] || fail 'only one of two archives is installed'
printf 'not an archive\n' >$gzip
digest Basic_Tools.tar.gz
rejected "$scratch/$gzip: "

# A full disk: simulated by a limit on the size of files, and by a small file system. Mount points are neither
# replaced nor entered. An ordinary user mounts in a user namespace, which the system must allow.
archive file large
rejected 'large: Write failed: File too large (ProductArchive::' bash -c 'ulimit -f 8000 && exec "$@"' -
mounted() {
    mount -t tmpfs -o size=64k none disk
    if [ "$1" = inside ]; then
        previous
        mkdir app/disk app/bound
        touch disk/letter
        mount --bind disk app/disk
        mount --bind home/documents app/bound
    fi
    status=0
    "${@:2}" || status=$?
    [ "$1" != inside ] || ls app.kept-1/disk/letter app.kept-1/bound/letter || status=4
    [ "$(find disk -mindepth 1 -name '.*')" = '' ] || status=5
    return "$status"
}
export -f mounted previous
mkdir disk
mounting=(unshare -m)
[ "$(id -u)" = 0 ] || mounting=(unshare -rm)
input 'install_dir = disk/app'
run 1 'E110: Nothing was changed. not enough space for ' "${mounting[@]}" bash -c 'mounted space "$@"' -
archive file
input 'install_dir = disk'
run 1 "E103: Nothing was changed. a mount point: $scratch/disk" \
    "${mounting[@]}" bash -c 'mounted point "$@"' -
input
run 0 "kept (a mounted file system): $scratch/app.kept-1/disk" "${mounting[@]}" bash -c 'mounted inside "$@"' -
grep -qF "kept (a mounted file system): $scratch/app.kept-1/bound" log || fail 'entered a directory that is mounted'
input
archive file

# A directory in which nothing can be created, an owner that cannot be set, and another user's lock.
mkdir -m 500 fixed
input 'install_dir = fixed/app'
run 1 "cannot open $scratch/fixed/.app.lock: Permission denied (example_installer::run)" "${ordinary[@]}"
input
if [ "$(id -u)" = 0 ]; then
    previous
    chown 2:3 app
    chmod 777 app
    run 1 "cannot set the owner of a new $scratch/app: Operation not permitted" "${ordinary[@]}"
    touch .app.lock
    chown 2:3 .app.lock
    run 1 "E105: Nothing was changed. another user has created $scratch/.app.lock"
    rm .app.lock
fi

# Signals while unpacking. Before the signal, a second installer of the same target is rejected; one of another
# target is not, even if a process has locked the parent directory.
archive file sub/link
for signal in INT TERM HUP; do
    start
    mv log log.first
    run 1 "E105: Nothing was changed. another installer has locked $scratch/.app.lock"
    input "install_dir = other-$signal"
    run 0 "created $scratch/other-$signal" flock -n "$scratch"
    input
    mv log.first log
    kill -"$signal" %%
    status=0
    wait %% || status=$?
    [ "$status" = 130 ] || fail "status $status after SIG$signal"
    grep -qF 'Interrupted. env EXAMPLE_INSTALLER_PAUSE is set. (example_installer::run)' log || fail 'not logged as interrupted'
    installed previous
done

# An installer that is killed while unpacking, and the next installation, which names what is left.
start
kill -KILL %%
wait %% 2>/dev/null || true
[ "$(cat app/file)" = previous ] || fail 'the killed installer changed the installation'
run 0 "a killed installer left a directory, which may contain files of the user: $scratch/$work"
rm -rf "$work"
installed second

# File systems that cannot exchange directories or have no locks, a parent directory that another process
# creates at the same time, Ctrl-C while files are written to the disk, and an installer killed just before
# and just after the exchange.
cat >shim.c <<'EOF_SHIM'
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int renameat2(int from_directory, const char* from, int to_directory, const char* to, unsigned flags) {
    if (getenv("NO_EXCHANGE")) return errno = EINVAL, -1;
    if (getenv("KILL_BEFORE") && strcmp(from, "app") == 0) raise(SIGKILL);
    int result = syscall(SYS_renameat2, from_directory, from, to_directory, to, flags);
    if (getenv("KILL_AFTER") && strcmp(from, "app") == 0) raise(SIGKILL);
    return result;
}

int unlink(const char* name) {
    if (getenv("KILL_REMOVING") && strcmp(name, "file") == 0) raise(SIGKILL);
    return syscall(SYS_unlinkat, AT_FDCWD, name, 0);
}

int flock(int descriptor, int operation) {
    if (!getenv("NO_LOCKS")) return syscall(SYS_flock, descriptor, operation);
    errno = ENOLCK;
    return -1;
}

int syncfs(int descriptor) {
    char const* parent = getenv("CREATE_PARENT");
    if (parent) mkdir(parent, 0777), mkdirat(open(parent, O_RDONLY), "other", 0777);
    if (getenv("INTERRUPT")) {
        _Bool (*is_set)(void) = (_Bool(*)(void))dlsym(RTLD_DEFAULT, "_ZN7install7cpputil9interrupt6is_setEv");
        kill(getpid(), SIGINT);
        struct timespec pause = {0, 10000000};
        for (int i = 0; i < 3000 && !is_set(); ++i) nanosleep(&pause, NULL);
    }
    return syscall(SYS_syncfs, descriptor);
}
EOF_SHIM
${CC:-cc} -shared -fPIC -o shim.so shim.c -ldl
shim=(env LD_PRELOAD="$scratch/shim.so" ASAN_OPTIONS=verify_asan_link_order=0)
rejected "the file system cannot exchange directories: $scratch/app: Invalid argument" "${shim[@]}" NO_EXCHANGE=
run 1 "cannot lock $scratch/.app.lock: No locks available (example_installer::run)" "${shim[@]}" NO_LOCKS=
rm .app.lock
input 'install_dir = fresh/app'
run 1 "cannot create, replace or remove $scratch/fresh: Directory not empty (example_installer::run)" "${shim[@]}" "CREATE_PARENT=$scratch/fresh"
[ -e fresh/other ] || fail 'the new directory of another process was replaced'
input
previous
run 130 'Interrupted. before the exchange' "${shim[@]}" INTERRUPT=
installed previous
for when in BEFORE:previous AFTER:second REMOVING:second; do
    previous
    run 137 'unpacked Basic Tools' "${shim[@]}" "KILL_${when%:*}="
    [ "$(cat app/file)" = "${when#*:}" ] || fail "not whole after KILL_$when"
    [ -e .app.work-??????/app/file ] || fail "not killed: $when"
    [ "$when" != REMOVING:second ] || grep -qF "replaced $scratch/app" log || fail 'the exchange is not logged'
    run 0 "a killed installer left a directory"
    rm -rf .app.work-*
    installed second
done
