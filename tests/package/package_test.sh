#!/usr/bin/env bash
# The Debian package as an administrator gets it: built with CPack from this
# build (nothing is compiled again), checked by lintian, unpacked into a
# throw-away root where every file's place, owner and mode is checked, its
# maintainer scripts run against that root, the systemd unit verified and rated,
# the bash completion driven in a fresh bash, and the help and manual pages read.
#
#   package_test.sh <build folder>
set -uo pipefail

build="$(cd "$1" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
failures=0
passes=0

check() { # description, command...
    local what=$1
    shift
    if "$@"; then
        passes=$((passes + 1))
    else
        failures=$((failures + 1))
        echo "FAILED: $what" >&2
    fi
}

same() { # expected, actual
    [[ $1 == "$2" ]] || {
        printf 'expected:\n%s\nactual:\n%s\n' "$1" "$2" >&2
        return 1
    }
}

# ------------------------------------------------------------------ package
if ! cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log" >&2
    echo "FAILED: cpack" >&2
    exit 1
fi
deb=("$work"/out/orvclient_*_amd64.deb)
deb=${deb[0]}
echo "package: $(basename "$deb"), $(stat -c %s "$deb") bytes"

lintian_out="$(lintian --fail-on error "$deb" 2>&1)"
check "lintian finds no error: $lintian_out" [ $? -eq 0 ]

# Every entry of the package: mode, owner, path. Nothing more, nothing less.
expected_entries="drwxr-xr-x root/root ./etc/
drwxr-xr-x root/root ./etc/orvclient/
drwx------ root/root ./etc/orvclient/config/
-rw-r--r-- root/root ./etc/orvclient/config/orvclient.conf
drwxr-xr-x root/root ./lib/
drwxr-xr-x root/root ./lib/systemd/
drwxr-xr-x root/root ./lib/systemd/system/
-rw-r--r-- root/root ./lib/systemd/system/orvd.service
drwxr-xr-x root/root ./usr/
drwxr-xr-x root/root ./usr/bin/
-rwxr-xr-x root/root ./usr/bin/orvV2
-rwxr-xr-x root/root ./usr/bin/orvd
drwxr-xr-x root/root ./usr/share/
drwxr-xr-x root/root ./usr/share/bash-completion/
drwxr-xr-x root/root ./usr/share/bash-completion/completions/
-rw-r--r-- root/root ./usr/share/bash-completion/completions/orvV2
drwxr-xr-x root/root ./usr/share/doc/
drwxr-xr-x root/root ./usr/share/doc/orvclient/
-rw-r--r-- root/root ./usr/share/doc/orvclient/changelog.gz
-rw-r--r-- root/root ./usr/share/doc/orvclient/copyright
drwxr-xr-x root/root ./usr/share/lintian/
drwxr-xr-x root/root ./usr/share/lintian/overrides/
-rw-r--r-- root/root ./usr/share/lintian/overrides/orvclient
drwxr-xr-x root/root ./usr/share/man/
drwxr-xr-x root/root ./usr/share/man/man1/
-rw-r--r-- root/root ./usr/share/man/man1/orvV2.1.gz
drwxr-xr-x root/root ./usr/share/man/man8/
-rw-r--r-- root/root ./usr/share/man/man8/orvd.8.gz"
check "files, owners and modes" same "$expected_entries" \
    "$(dpkg-deb -c "$deb" | awk '{print $1, $2, $6}' | sort -k3)"
check "the configuration is a conffile" same "/etc/orvclient/config/orvclient.conf" \
    "$(dpkg-deb -I "$deb" conffiles)"
check "the SQLite plugin is a dependency" grep -q 'libqt5sql5-sqlite' <<<"$(dpkg-deb -f "$deb" Depends)"
check "libsystemd is a dependency" grep -q 'libsystemd0' <<<"$(dpkg-deb -f "$deb" Depends)"

# ------------------------------------------------- maintainer scripts, by root
root="$work/root"
dpkg-deb -x "$deb" "$root"
dpkg-deb -e "$deb" "$work/control"
mode_of() { stat -c '%a %U' "$1" 2>/dev/null || echo missing; }
# A folder an older installation left open is tightened.
mkdir -p -m 0755 "$root/var/lib/orvclient"
check "postinst configure" env DPKG_ROOT="$root" "$work/control/postinst" configure
for folder in etc/orvclient/config var/lib/orvclient var/log/orvclient; do
    check "$folder after postinst" same "700 root" "$(mode_of "$root/$folder")"
done
echo "secret" >"$root/etc/orvclient/config/local.key"
check "postrm remove" env DPKG_ROOT="$root" "$work/control/postrm" remove
check "remove keeps the configuration" [ -f "$root/etc/orvclient/config/local.key" ]
check "remove keeps the data" [ -d "$root/var/lib/orvclient" ]
check "postrm purge" env DPKG_ROOT="$root" "$work/control/postrm" purge
for folder in etc/orvclient var/lib/orvclient var/log/orvclient; do
    check "purge removes $folder" [ ! -e "$root/$folder" ]
done

# ------------------------------------------------------------------- the unit
unit="$root/lib/systemd/system/orvd.service"
check "the unit starts /usr/bin/orvd" grep -qx 'ExecStart=/usr/bin/orvd' "$unit"
# The programs are not installed on this machine: point the unit at the build's.
mkdir -p "$work/unit"
sed "s#^ExecStart=/usr/bin/orvd#ExecStart=$build/bin/orvd#" "$unit" >"$work/unit/orvd.service"
check "systemd-analyze verify" systemd-analyze verify --man=no "$work/unit/orvd.service"
exposure="$(systemd-analyze security --offline=yes "$work/unit/orvd.service" 2>&1 |
    sed -n 's/.*Overall exposure level for orvd.service: \([0-9.]*\).*/\1/p')"
echo "systemd-analyze security: $exposure"
check "exposure $exposure is at most 6" awk -v e="$exposure" 'BEGIN { exit !(e != "" && e <= 6) }'

# ------------------------------------------------------------- the completion
completes() { # expected words, then the words typed with the cursor after the last
    local expected=$1
    shift
    local got
    got="$(bash --norc --noprofile -c '
        source "$1"; shift
        COMP_WORDS=("$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        _orvV2; printf "%s\n" "${COMPREPLY[@]}"' completion \
        "$root/usr/share/bash-completion/completions/orvV2" orvV2 "$@" | sort | xargs)"
    same "$expected" "$got"
}
check "registered for orvV2" bash --norc --noprofile -c \
    "source '$root/usr/share/bash-completion/completions/orvV2' && complete -p orvV2 | grep -q _orvV2"
check "a group" completes "account" ac
check "a command" completes "add delete edit help info list sync" account ''
check "an account type" completes "s3compatible sftp" account add s
check "a setting" completes "threadcount" config set thr
check "an option" completes "--secret-key --signature-version --ssl" account add s3compatible --s
check "an option's words" completes "aws2 aws4" account add s3compatible --signature-version ''
check "words after a one-dash option" completes "Debug Disable" config set logging -mode D
check "nothing after an unknown word" completes "" accuont ''

# ---------------------------------------------------- help and manual pages
help="$(env -u ORV_ROOT "$root/usr/bin/orvd" --help)"
for needle in ORV_ROOT /etc/orvclient/config /var/lib/orvclient /var/log/orvclient/orvd.log \
    /run/orvclient/orvd.sock SIGHUP; do
    check "orvd --help names $needle" grep -qF -- "$needle" <<<"$help"
done
for page in usr/share/man/man1/orvV2.1.gz usr/share/man/man8/orvd.8.gz; do
    warnings="$(MANWIDTH=80 man --warnings -l "$root/$page" 2>&1 >/dev/null)"
    check "$page renders without warnings: $warnings" [ -z "$warnings" ]
done
page="$(MANWIDTH=200 man -l "$root/usr/share/man/man1/orvV2.1.gz" 2>/dev/null)"
check "the manual page lists a command and its options" \
    grep -qE -- '--signature-version signatureVersion' <<<"$page"
check "the manual page names the key to back up" grep -qF /etc/orvclient/config/local.key <<<"$page"

echo "$passes passed, $failures failed"
((failures == 0))
