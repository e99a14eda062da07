#!/usr/bin/env bash
# Builds the Debian package from a build folder, checks it with Debian's own validators,
# then runs what it holds as a fresh user would: extracted into an empty folder, with a
# PATH that holds no build tree and no tools/, it tells its version, inspects and
# publishes a clip to the local site, serves the site's page, and opens the window on a
# clip through its desktop entry, as a file manager's "Open With" does.
# Usage: installed_package.sh BUILD_DIR SOURCE_DIR [SCREENSHOT_DIR]
set -euo pipefail
build=$(realpath "$1")
source_dir=$(realpath "$2")
shots=${3:-$build/package-screenshots}
mkdir -p "$shots"
work=$(mktemp -d /tmp/vorlen-package.XXXXXX)
root=$work/root
home=$work/home
vorlen=$root/usr/bin/vorlen
xvfb=
cleanup() {
  stop_preview
  # The window was started by gio, not by us directly: it is found by its binary,
  # which lies in this test's own folder.
  for process in /proc/[0-9]*; do
    [[ $(readlink "$process/exe" 2>/dev/null) == "$vorlen" ]] && kill -TERM "${process#/proc/}" 2>/dev/null || true
  done
  [[ -n $xvfb ]] && kill -TERM "$xvfb" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
source "$source_dir/cli/test/local_preview.sh"

version=$(sed -n 's/^project(Vorlen VERSION \([0-9.]*\).*/\1/p' "$source_dir/CMakeLists.txt")
bundle_version=$(node -p "require('$source_dir/worker/manifest.json').version")

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/package" > "$work/cpack.log" 2>&1 || { cat "$work/cpack.log" >&2; fail "cpack"; }
deb=$work/package/vorlen_${version}_amd64.deb
[[ -f $deb ]] || fail "no $deb: $(ls "$work/package")"

# Debian's validators, on the package and on what it installs.
lintian --fail-on error --tag-display-limit 0 "$deb" | tee "$work/lintian.log"
grep -q '^E:' "$work/lintian.log" && fail "lintian reports errors"
dpkg-deb -x "$deb" "$root"
desktop-file-validate "$root/usr/share/applications/vorlen.desktop"
appstreamcli validate --no-net "$root/usr/share/metainfo/org.vorlen.Vorlen.metainfo.xml"
manual=$(MANWIDTH=80 man -l "$root/usr/share/man/man1/vorlen.1.gz" 2>"$work/man.err")
[[ -s $work/man.err ]] && { cat "$work/man.err" >&2; fail "man warns"; }
for heading in NAME SYNOPSIS COMMANDS 'vorlen publish' 'vorlen viewers add' FILES; do
  grep -q "$heading" <<<"$manual" || fail "the manual has no \"$heading\""
done
completed=$(bash -c 'source "$1"; COMP_WORDS=(vorlen video subtitles clip ""); COMP_CWORD=4; _vorlen; echo "${COMPREPLY[*]}"' \
  _ "$root/usr/share/bash-completion/completions/vorlen")
[[ $completed == 'add remove' ]] || fail "bash completes \"vorlen video subtitles clip\" with \"$completed\""
[[ -f $root/usr/share/zsh/vendor-completions/_vorlen ]] || fail "no zsh completion"
for size in 16 22 24 32 48 64 128 256 512; do
  [[ -f $root/usr/share/icons/hicolor/${size}x${size}/apps/vorlen.png ]] || fail "no ${size}px icon"
done
dpkg-deb -f "$deb" Depends | grep -q 'libqt6widgets6' || fail "the dependencies do not name Qt"

# Nothing in the package points back at the machine that built it.
if grep -rlF -e "$source_dir" -e "$build" "$root" > "$work/paths" 2>/dev/null; then
  cat "$work/paths" >&2
  fail "the package names the build machine's folders"
fi

# A fresh user, whose PATH has the package and the system's programs only.
mkdir -p "$home"
export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share \
  XDG_STATE_HOME=$home/.local/state XDG_CACHE_HOME=$home/.cache TMPDIR=$home
export PATH=$root/usr/bin:/usr/bin:/bin
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS
[[ $(command -v vorlen) == "$vorlen" ]] || fail "vorlen is not the package's"
"$vorlen" --version | tee "$work/version"
grep -qx "vorlen $version" "$work/version" || fail "--version tells no program version"
grep -qx "Worker bundle $bundle_version" "$work/version" || fail "--version tells no bundle version"

clip="$home/Harbour Lights.mp4"
ffmpeg -v error -f lavfi -i testsrc2=size=640x360:rate=25:duration=3 -f lavfi -i sine=frequency=330:duration=3 \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$clip"
"$vorlen" inspect "$clip" | tee "$work/inspect"
grep -q '360' "$work/inspect" || fail "inspect shows no rendition"
"$vorlen" publish --poster none "$clip" | tee "$work/publish"
folder_objects=$XDG_DATA_HOME/vorlen/local-site/objects/harbour-lights
[[ -f $folder_objects/master.m3u8 ]] || fail "the publish left no master.m3u8"

start_preview
page=$(curl -sf "http://localhost:$port/harbour-lights") || fail "the preview serves no page"
grep -q 'Harbour Lights' <<<"$page" || fail "the page has no title"
curl -sf "http://localhost:$port/_shaka/shaka-player.ui.js" -o /dev/null || fail "the preview serves no player"
stop_preview

# "Open With Vorlen": the package's desktop entry, made the default for the clip's type
# in this private home, opens the window on the clip's confirm screen.
mkdir -p "$XDG_DATA_HOME/applications"
cp "$root/usr/share/applications/vorlen.desktop" "$XDG_DATA_HOME/applications/"
gio mime video/mp4 vorlen.desktop > /dev/null
exec {display_pipe}<> <(:)
Xvfb -displayfd "$display_pipe" -screen 0 1280x800x24 -nolisten tcp > "$work/xvfb.log" 2>&1 &
xvfb=$!
read -r -t 30 display_number <&"$display_pipe" || fail "Xvfb did not start"
export DISPLAY=:$display_number
gio open "$clip"
log=$XDG_STATE_HOME/vorlen/vorlen.log
for _ in $(seq 1 600); do
  grep -qF "Inspected $clip: it waits for the person to confirm the publish." "$log" 2>/dev/null && break
  sleep 0.1
done
grep -qF "Inspected $clip" "$log" || { cat "$log" >&2 || true; fail "the window did not reach the confirm screen"; }
sleep 1
ffmpeg -v error -y -f x11grab -video_size 1280x800 -i "$DISPLAY" -frames:v 1 "$shots/open-with-confirm.png"
echo "screenshot: $shots/open-with-confirm.png"
echo "PASS"
