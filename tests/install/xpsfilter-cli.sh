#!/usr/bin/env bash
# The installed xpsfilter command as a shell user meets it: installs the build tree into a
# scratch prefix and runs the command there, in a scratch folder, with $TMPDIR of its own.
# Usage: xpsfilter-cli.sh BUILD_DIR SOURCE_DIR CORPUS_DIR
set -u
build="$(cd "${1:?usage: xpsfilter-cli.sh BUILD_DIR SOURCE_DIR CORPUS_DIR}" && pwd)"
source_dir="$(cd "${2:?}" && pwd)"
corpus="$(cd "${3:?}" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null || exit 1
X="$scratch/prefix/bin/xpsfilter"
mkdir -p "$scratch/work" "$scratch/tmp"
cd "$scratch/work" || exit 1
export TMPDIR="$scratch/tmp" FU_DEBUG_SINK=none
unset SOURCE_DATE_EPOCH FU_PRINTER_REGISTRY
set -m  # background jobs keep SIGINT, as in an interactive shell

job="$source_dir/samples/sample_job.xps"
notickets="$corpus/xps/tika_testPPT.xps"  # no job ticket: the editor names a new one
ticket="$source_dir/samples/default_ticket.xml"
caps="$corpus/caps/kip_print-capabilities.xml"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# check NAME STATUS PATTERN -- COMMAND...: COMMAND exits STATUS, every stderr line starts with
# "xpsfilter:", and stderr matches the extended regular expression PATTERN ("" for any).
check() {
    local name=$1 status=$2 pattern=$3
    shift 4
    "$@" >"$scratch/stdout" 2>"$scratch/stderr"
    local got=$?
    [ "$got" -eq "$status" ] || fail "$name: exit $got, expected $status: $(cat "$scratch/stderr")"
    if grep -qv '^xpsfilter: ' "$scratch/stderr"; then
        fail "$name: a message without the xpsfilter: prefix: $(cat "$scratch/stderr")"
    fi
    if [ -n "$pattern" ] && ! grep -Eq -- "$pattern" "$scratch/stderr"; then
        fail "$name: stderr does not match /$pattern/: $(cat "$scratch/stderr")"
    fi
}
mode() { stat -c %a "$1"; }
is_zip() { unzip -tq "$1" >/dev/null 2>&1; }

echo "== output files and streams"
mkdir folder
check "OUT a folder, IN missing" 10 'cannot write folder: is a folder' -- "$X" run missing.xps folder
check "OUT folder/, IN missing" 10 'folder/' -- "$X" run missing.xps folder/
check "OUT in a missing folder" 10 'cannot write nowhere/out.xps: the folder nowhere does not exist' \
    -- "$X" run missing.xps nowhere/out.xps
check "ticket merge -o a folder" 10 'cannot write folder' -- "$X" ticket merge missing.xml missing.xml -o folder
check "set-media -o a missing folder" 10 'nowhere/t.xml' -- \
    "$X" ticket set-media missing.xml --printer p --size 1x1 -o nowhere/t.xml
check "devmode encode -o a folder" 10 'cannot write folder' -- "$X" devmode encode missing.txt -o folder
check "new file" 0 '' -- sh -c "umask 027 && exec '$X' run -q --reproducible '$job' new.xps"
[ "$(mode new.xps)" = 640 ] || fail "new file: mode $(mode new.xps), expected 640 (0666 & ~umask)"
cp "$job" kept.xps && chmod 604 kept.xps
check "existing file" 0 '' -- "$X" run -q "$job" kept.xps
[ "$(mode kept.xps)" = 604 ] && is_zip kept.xps || fail "existing file: mode $(mode kept.xps) or not a package"
echo text >ticket-out.xml && chmod 620 ticket-out.xml
check "ticket merge over a file" 0 '' -- "$X" ticket merge "$ticket" "$ticket" -o ticket-out.xml
[ "$(mode ticket-out.xml)" = 620 ] && grep -q PrintTicket ticket-out.xml || fail "ticket merge: mode or content"
ln -s target.xps link.xps
check "symbolic link" 0 '' -- "$X" run -q --reproducible "$job" link.xps
[ -L link.xps ] && cmp -s target.xps new.xps || fail "symbolic link: replaced, or its target not written"
# A stream gets the package as it is made (data descriptors after each item), a file the same
# items with their sizes in the headers: the same parts, byte for byte.
same_package() {
    python3 - "$1" "$2" <<'PY'
import sys, zipfile
a, b = (zipfile.ZipFile(name) for name in sys.argv[1:3])
same = a.namelist() == b.namelist() and all(a.read(n) == b.read(n) for n in a.namelist())
sys.exit(0 if same and a.testzip() is None else 1)
PY
}
mkfifo out.fifo
cat out.fifo >from-fifo.xps &
check "FIFO" 0 '' -- "$X" run -q --reproducible "$job" out.fifo
exec 4<>out.fifo 4>&-  # a writer that comes and goes: the reader ends even if the run failed
wait
[ -p out.fifo ] && same_package from-fifo.xps new.xps || fail "FIFO: replaced, or the stream differs from a file"
check "- for IN and OUT" 0 '' -- sh -c "cat '$job' | '$X' run --reproducible - - >piped.xps"
same_package piped.xps new.xps || fail "- -: standard output differs from a file"
grep -q -- '- -> -: 3 pages' "$scratch/stderr" || fail "- -: the summary is not on stderr"
check "ticket show -" 0 '' -- sh -c "'$X' ticket show - <'$ticket'"
check "standard input twice" 2 'standard input can be read only once' -- \
    sh -c "'$X' ticket merge - - <'$ticket'"
check "bad package from -" 4 '^xpsfilter: input error: standard input is not a ZIP' -- sh -c "echo junk | '$X' run - out.xps"
[ -z "$(ls -A "$TMPDIR")" ] || fail "temporary files left in TMPDIR: $(ls -A "$TMPDIR")"
[ -z "$(ls -A | grep '^\.')" ] || fail "temporary files left beside OUT: $(ls -A | grep '^\.')"

echo "== signals"
mkfifo hold.ttf in.fifo
cat >hold.xml <<XML
<Filters><Filter name="stamp" builtin="stamp"><Parameter name="File" value="$PWD/hold.ttf"/></Filter></Filters>
XML
# signal NAME SIGNAL STATUS WAITFOR -- COMMAND...: COMMAND started in the background, SIGNAL
# sent once the file WAITFOR matches (the job is under way), the exit status checked.
signal() {
    local name=$1 sig=$2 status=$3 waitfor=$4
    shift 5
    echo old >out.xps
    "$@" 2>/dev/null &
    local pid=$! tries=0
    until compgen -G "$waitfor" >/dev/null || [ $tries -ge 400 ]; do sleep 0.05; tries=$((tries + 1)); done
    kill -s "$sig" "$pid"
    wait "$pid"
    local got=$?
    [ "$got" -eq "$status" ] || fail "$name: exit $got, expected $status"
    [ "$(cat out.xps)" = old ] || fail "$name: OUT changed"
    [ -z "$(ls -A "$TMPDIR")" ] && [ -z "$(ls -A | grep '^\.')" ] ||
        fail "$name: temporary files left: $(ls -A "$TMPDIR") $(ls -A | grep '^\.')"
}
signal "SIGTERM while writing OUT" TERM 143 '.out.xps.*' -- "$X" run --pipeline hold.xml "$job" out.xps
signal "SIGINT while writing OUT" INT 130 '.out.xps.*' -- "$X" run --pipeline hold.xml "$job" out.xps
exec 3<>in.fifo  # a writer that never ends the input: the command waits for more
signal "SIGHUP while reading standard input" HUP 129 "$TMPDIR/xpsfilter.*/stdin" -- \
    sh -c "exec '$X' run - out.xps <in.fifo"
exec 3>&-
signal "SIGTERM before opening a FIFO OUT" TERM 143 "$TMPDIR/xpsfilter.*/output.xps" -- \
    "$X" run "$job" out.fifo

echo "== messages"
check "unknown command" 2 '^xpsfilter: unknown command "rnu"; did you mean "run"\?$' -- "$X" rnu a b
check "unknown ticket command" 2 'did you mean "ticket show"' -- "$X" ticket shwo t.xml
check "parse error" 2 "^xpsfilter: OUT is required \(see 'xpsfilter run --help'\)$" -- "$X" run in.xps
check "bad option value" 2 '' -- "$X" run --queue 0 "$job" out.xps
check "missing IN" 3 '^xpsfilter: input error: cannot open missing.xps' -- "$X" run missing.xps out.xps
check "PrintCapabilities, pass-through" 7 'kip_print-capabilities.xml: is not a PrintTicket' -- \
    "$X" run --ticket "$caps" "$job" out.xps
check "PrintCapabilities, watermark" 7 'is not a PrintTicket' -- \
    "$X" run --pipeline watermark --ticket "$caps" "$job" out.xps
sed "s|hold.ttf|notafont|" hold.xml >bad.xml
check "a filter's reason without -v" 9 'last debug message: stamp: File .*notafont' -- \
    "$X" run --pipeline bad.xml "$job" out.xps
check "-v" 9 '^xpsfilter: debug: stamp: File' -- "$X" run -v -q --pipeline bad.xml "$job" out.xps

echo "== reproducible output"
for input in "$job" "$notickets"; do
    "$X" run -q --reproducible --pipeline setticket-jobscope "$input" r1.xps
    sleep 0.01
    TZ=Asia/Tokyo "$X" run -q --pipeline setticket-jobscope --reproducible "$input" r2.xps
    cmp -s r1.xps r2.xps || fail "--reproducible: two runs over $(basename "$input") differ"
    SOURCE_DATE_EPOCH=1700000000 "$X" run -q --pipeline setticket "$input" e1.xps
    SOURCE_DATE_EPOCH=1700000000 TZ=America/New_York "$X" run -q --pipeline setticket "$input" e2.xps
    cmp -s e1.xps e2.xps || fail "SOURCE_DATE_EPOCH: two runs over $(basename "$input") differ"
    [ "$(zipinfo -T e1.xps | awk '$7 ~ /^[0-9]+[.][0-9]+$/ { print $7 }' | sort -u)" = 20231114.221320 ] ||
        fail "SOURCE_DATE_EPOCH: items not dated 2023-11-14 22:13:20 UTC"
done
unzip -l r1.xps | grep -q 'METADATA/Job_PT_1.xml' || fail "--reproducible: the new job ticket is not Job_PT_1.xml"

echo "== installed for users"
man -l --warnings "$scratch/prefix/share/man/man1/xpsfilter.1" 2>"$scratch/man-warnings" |
    col -b >"$scratch/man.txt"
[ -s "$scratch/man.txt" ] && [ ! -s "$scratch/man-warnings" ] ||
    fail "man -l: $(cat "$scratch/man-warnings")"
# Every command and option --help lists is in the man page, and the man page names no option
# --help does not list.
help_options=""
commands=("")
while [ ${#commands[@]} -gt 0 ]; do
    command=${commands[0]}
    commands=("${commands[@]:1}")
    help=$("$X" $command --help) || fail "$command --help"
    for sub in $(awk '/^Subcommands:$/ { on = 1; next } /^[A-Z]/ { on = 0 } on && NF { print $1 }' <<<"$help"); do
        commands+=("$command $sub")
        grep -qF -- "xpsfilter${command} $sub" "$scratch/man.txt" || grep -qF -- "${command# } $sub" "$scratch/man.txt" ||
            fail "man page: no command '${command# } $sub'"
    done
    for option in $(grep -oE '(^|[ ,])--?[a-z][a-z-]*' <<<"$help" | tr -d ' ,'); do
        help_options+=" $option"
        grep -qE -- "(^|[^a-z-])$option([^a-z-]|$)" "$scratch/man.txt" || fail "man page: no $option (${command# })"
    done
done
for option in $(grep -oE '(^|[ [|(,])--[a-z][a-z-]*' "$scratch/man.txt" | tr -d ' [|(,' | sort -u); do
    grep -qw -- "$option" <<<"$help_options" || fail "man page: $option is not an option of the command"
done
completion="$scratch/prefix/share/bash-completion/completions/xpsfilter"
complete_words() {
    bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _xpsfilter; printf "%s\n" "${COMPREPLY[@]}"' \
        _ "$completion" "$@"
}
complete_words "$X" ti | grep -qx ticket || fail "completion: ticket"
complete_words "$X" ticket merge --sc | grep -qx -- --scope || fail "completion: --scope"
complete_words "$X" run --pipeline st | grep -qx stamp || fail "completion: pipeline names"
if [ ! -d /etc/xpsfilter/printers ]; then
    complete_words "$X" printer forms --printer Zo | grep -q Zorun || fail "completion: printer names"
    check "installed sample printer" 0 '' -- "$X" printer forms "Zorun Sample Printer"
    grep -q ISOA4 "$scratch/stdout" || fail "installed sample printer: no forms"
fi
check "installed sample pipeline by name" 0 '' -- "$X" run -q --pipeline stamp "$job" out.xps
unzip -l out.xps | grep -q '\.ttf' || fail "installed sample pipeline: no font attached"

[ "$failures" -eq 0 ] && echo "xpsfilter command checks passed" || echo "$failures failed"
[ "$failures" -eq 0 ]
