# Sourced by tests/wine/run-e2e and scripts/run-page: the private Wine prefix of
# a windows build and a private Xvfb display.
#   wineEnv BUILD_DIR     exports WINEPREFIX (BUILD_DIR/wine-prefix) and quiet Wine settings
#   preparePrefix         creates the prefix once (about half a minute), safe in parallel
#   startXvfb             starts Xvfb on a free display, exports DISPLAY, and at exit
#                         ends the prefix's Wine session, then Xvfb
#
# One Wine session (wineserver with its desktop process) talks to one display:
# a session left from a run on another display, or one that outlives its
# display, hangs the next program. So each display gets a session of its own,
# and callers don't run two at once on one prefix (the CTest tests hold a
# resource lock).

wineEnv() {
  wineBuild="$1"
  export WINEPREFIX="$wineBuild/wine-prefix"
  export WINEDEBUG=-all
  export WINEDLLOVERRIDES="mscoree,mshtml="  # no Mono or Gecko prompts
  export WINEARCH=win64
}

preparePrefix() {
  mkdir -p "$wineBuild"
  local lock
  exec {lock}>"$wineBuild/wine-prefix.lock"
  flock "$lock"
  # The marker names what the set-up below gives, so a prefix made by an older one is made again.
  local ready="$WINEPREFIX/.ztprop-ready-fonts-unmanaged"
  if [[ ! -f "$ready" ]]; then
    rm -rf "${WINEPREFIX:?}"
    DISPLAY= wineboot -i >/dev/null 2>&1 || true
    # Debian's Wine 8 doesn't load the fonts of its data directory, so every face, Marlett of the
    # caption buttons included, fell back to one system font. From the Fonts folder it loads them.
    cp -n /usr/share/wine/fonts/* "$WINEPREFIX/drive_c/windows/Fonts/"
    # Windows maps the dialog face "MS Shell Dlg" to its MS Sans Serif outline font; Wine to Tahoma,
    # whose wider letters cut captions laid out for it. Wine ships that MS Sans Serif face too.
    wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\FontSubstitutes' \
      /v 'MS Shell Dlg' /t REG_SZ /d 'MS Sans Serif' /f >/dev/null 2>&1
    # Wine draws the title bar itself: Xvfb has no window manager.
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Decorated /t REG_SZ /d N /f >/dev/null 2>&1
    # Nor does it wait for one: a managed window's hiding waits 2 s for a window manager to
    # withdraw it, so each sheet's destruction took 2 s.
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /t REG_SZ /d N /f >/dev/null 2>&1
    # A crash ends the program instead of waiting for someone to close a dialog.
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
    wineserver -w
    touch "$ready"
  fi
  flock -u "$lock"
  exec {lock}>&-
}

endWineSession() {
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
}

startXvfb() {
  endWineSession
  xvfbDir="$(mktemp -d)"
  Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$xvfbDir/display" 2>"$xvfbDir/log" &
  xvfbPid=$!
  trap 'endWineSession; kill "$xvfbPid" 2>/dev/null || true; rm -rf "$xvfbDir"' EXIT
  local _
  for _ in $(seq 100); do
    [[ -s "$xvfbDir/display" ]] && break
    sleep 0.1
  done
  if [[ ! -s "$xvfbDir/display" ]]; then
    echo "Xvfb did not start:" >&2
    cat "$xvfbDir/log" >&2
    return 1
  fi
  export DISPLAY=":$(head -n1 "$xvfbDir/display")"
}

# compareWithExpected MODE NAME OUTPUT EXPECTED: for check, PASS or FAIL (exit 1) on
# a diff of OUTPUT against EXPECTED; for update, OUTPUT becomes EXPECTED.
compareWithExpected() {
  local mode="$1" name="$2" output="$3" expected="$4"
  if [[ $mode == update ]]; then
    cp "$output" "$expected"
    echo "UPDATED $expected"
  elif diff -u "$expected" "$output"; then
    echo "PASS $name"
  else
    echo "FAIL $name (output in $output)"
    return 1
  fi
}
