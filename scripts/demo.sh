#!/usr/bin/env bash
# Builds the camera host and lets it log into rotating text files, crash, or track exceptions; then reads
# what it has left.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/demo.sh [OPTION]...

Builds the camera host and runs it in mode 0x14 (own log files) with the log folder
build/demo/logs. The options are the camera host's, for example
  --crash segv   crashes half way, and shows what the crash file saves
  --crash kill --blackbox /dev/shm/NAME
                 is killed half way, and shows what the next process finds in the black box.
                 /dev/shm is a memory file system, as /tmp often is; any folder will do
  --storm 1000   lets a thousand processes crash at full load, one after the other, each at a random
                 moment and in a random thread, and looks for every record in their files; those of
                 a process that lost one stay in build/demo/storm
  --storm 1000 --ends --blackbox /dev/shm/NAME
                 lets them end in ways that leave no crash file, such as SIGKILL; another process
                 then finds the records in the black box. Without --blackbox it shows what is lost
  --exceptions   reports camera exceptions while the pipeline logs, and shows who is told of them;
                 the Android log goes into logcat.txt beside the log files, too
At the end jlog reports what the files hold, and makes a page of them, build/demo/report.html.
On a bare Debian machine it first installs the packages that it needs.

Lines that the library itself writes to the Android log go to stderr. ANDROID_LOG_TAGS
chooses among them, for example ANDROID_LOG_TAGS="*:V" for all (a line for every record).

TEXT
    build_preset release --target camera_host
    exec build/release/examples/camera_host --help
fi

build_preset release --target camera_host jlog
folder=build/demo/logs
tags='FileAloneJLogger:I JLogInit:W *:I'
if [[ " $* " = *' --storm '* ]]; then
    folder=build/demo/storm
    tags='*:F' # thousands of starts would fill the screen
elif [[ " $* " = *' --exceptions '* ]]; then
    tags='FileAloneJLogger:I *:D'
fi
# What is reported is what this run has logged.
rm -rf build/demo/logs
status=0
ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-$tags}" \
    build/release/examples/camera_host --mode 0x14 --folder "$folder" "$@" || status=$?
if [ $status -gt 1 ] || ! compgen -G 'build/demo/logs/cam_jlog_*.txt' >/dev/null; then
    exit $status # nothing was logged, or not there
fi

# What an engineer does with it.
jlog=build/release/tools/jlog/jlog
see() {
    printf '\n$ jlog %s\n' "$*"
    "$jlog" "$@"
}
if [ -f build/demo/logs/logcat.txt ]; then
    see report build/demo/logs --logcat build/demo/logs/logcat.txt
else
    see report build/demo/logs
fi
if compgen -G 'build/demo/logs/*_[BN][BE]_*.txt' >/dev/null; then
    see crash build/demo/logs
fi
see export html build/demo/logs -o build/demo/report.html
echo "file://$PWD/build/demo/report.html"
exit $status
