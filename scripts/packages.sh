# The Debian packages the scripts need, in one place; sourced by them. Each
# script installs only the groups its job needs:
#   scripts/run-ztdiag  windowsBuild wine
#   scripts/run-page    windowsBuild wine sheet
#   scripts/test-all    all of them
# needPackages PACKAGE... installs those that are missing with apt-get (as root;
# otherwise it names them and fails).

# The windows preset: the DLL, the tool and their tests (the configure reads the JSON library).
windowsBuildPackages=(cmake make mingw-w64 g++-mingw-w64-x86-64-win32 binutils-mingw-w64-x86-64
                      nlohmann-json3-dev)
# Running what that build makes.
winePackages=(wine wine64)
# The DLL's pages in a real property sheet: Wine's fonts, a display, PNG screenshots.
sheetPackages=(fonts-wine xvfb imagemagick)
# The host presets: tests, icongen, the bench.
hostPackages=(cmake make g++ googletest libgtest-dev nlohmann-json3-dev zlib1g-dev libbenchmark-dev)
# scripts/fuzz and scripts/lint.
fuzzPackages=(clang libclang-rt-14-dev)
lintPackages=(clang-format clang-tidy)
# The metrics' real readers: promtool for the file and the alert rules, and
# node_exporter's textfile collector, scraped over HTTP.
metricsPackages=(prometheus prometheus-node-exporter curl)

needPackages() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  if [[ $(id -u) -ne 0 ]]; then
    echo "missing packages: ${missing[*]}; run as root to install them" >&2
    exit 1
  fi
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
