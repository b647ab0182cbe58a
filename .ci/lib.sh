# What the scripts share. Each of them sources this file first.

set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$top"

missing=()

# need PACKAGE WHY PROBE...: notes that PACKAGE is to be installed unless the command PROBE succeeds.
need() {
    local package=$1 why=$2
    shift 2
    "$@" >/dev/null 2>&1 || missing+=("$package|$why")
}

installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

need_build_tools() {
    need g++ "the compiler" command -v g++
    need cmake "configures the build" command -v cmake
    need ninja-build "runs the build" command -v ninja
}

need_test_tools() {
    need_build_tools
    need googletest "the tests are written with it; it is compiled from its source" test -e /usr/src/googletest/CMakeLists.txt
    need libeigen3-dev "another implementation of linear algebra, to check the normal density with" test -e /usr/include/eigen3/Eigen/Dense
}

need_32_bit_compiler() {
    # Not the package g++-multilib, which cannot be installed beside a cross compiler.
    local version
    version=$(g++ -dumpversion 2>/dev/null) || version=12
    need "g++-$version-multilib" "compiles 32-bit programs" installed "g++-$version-multilib"
}

need_check_tools() {
    need_test_tools
    need clang "the second compiler" command -v clang++
    need libclang-rt-dev "the runtime of its sanitizers" installed libclang-rt-dev
    need llvm "reads what the programs of a build counted" command -v llvm-cov
    need python3 "sums that up" command -v python3
    need clang-format "checks the layout of the sources" command -v clang-format
    need clang-tidy "checks the sources for common mistakes" command -v clang-tidy
    need pkg-config "a program outside is built with it" command -v pkg-config
    need dpkg-dev "finds what the packages depend on" command -v dpkg-shlibdeps
    need file "tells it which files are libraries" command -v file
    need libbenchmark-dev "the benchmark programs are written with it" installed libbenchmark-dev
    need bsdutils "runs an example on a terminal" command -v script
    need git "lists the files of the project" command -v git
}

need_site_tools() {
    need doxygen "reads the headers for the site" command -v doxygen
    need codespell "finds misspelt words" command -v codespell
    need linkchecker "finds links that lead nowhere" command -v linkchecker
    need python3 "compares the code in the pages with the programs, and makes the site" command -v python3
    need python3-venv "keeps what the site is made with apart" python3 -c "import ensurepip"
    need chromium "opens the site" command -v chromium
}

need_playground_build_tools() {
    need cmake "configures the build" command -v cmake
    need ninja-build "runs the build" command -v ninja
    need emscripten "compiles to WebAssembly" command -v em++
    need esbuild "makes one file of the page's modules" command -v esbuild
    need python3 "puts the page together" command -v python3
}

need_playground_test_tools() {
    need_playground_build_tools
    need_build_tools
    need nodejs "runs the tests" command -v node
    need npm "fetches what the tests are written with" command -v npm
    need chromium "the browser that they drive" command -v chromium
}

need_python_tools() {
    need_build_tools
    need python3-venv "makes environments of their own" python3 -c "import venv, ensurepip"
    need python3-dev "the extension is compiled with its headers" \
        python3 -c "import pathlib, sysconfig; assert (pathlib.Path(sysconfig.get_path('include')) / 'Python.h').exists()"
}

need_package_tools() {
    need_build_tools
    need clang "the second compiler" command -v clang++
    need pkg-config "a program is built with it" command -v pkg-config
    need dpkg-dev "finds what the libraries depend on" command -v dpkg-shlibdeps
    need file "tells which files are programs or libraries" command -v file
    need lintian "knows what Debian asks of a package" command -v lintian
    need python3 "reads the manifest for vcpkg" command -v python3
}

# Installs what was found missing, or says what it is and stops.
install_missing() {
    [ ${#missing[@]} -gt 0 ] || return 0
    local packages=("${missing[@]%%|*}") entry
    echo "Packages that this needs and that are not here:" >&2
    for entry in "${missing[@]}"; do
        echo "    ${entry%%|*}: ${entry#*|}" >&2
    done
    if ! command -v apt-get >/dev/null; then
        echo "There is no apt-get here to install them with. Install what they stand for, or see README.md for the plain CMake lines." >&2
        exit 1
    fi
    if [ "$(id -u)" -ne 0 ]; then
        echo "Installing them takes root. Run this as root, then try again:" >&2
        echo "    apt-get update && apt-get install --no-install-recommends ${packages[*]}" >&2
        exit 1
    fi
    echo "Installing them with apt-get ..." >&2
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q >&2
    apt-get install -q -y --no-install-recommends "${packages[@]}" >&2
    missing=()
}

# build PRESET [TARGET...]: configures and builds in build/PRESET; what did not change is not built again. Two checks at once take
# turns in one folder.
build() {
    local preset=$1
    shift
    mkdir -p build
    (
        flock 9
        cmake --preset "$preset" >/dev/null
        cmake --build --preset "$preset" ${1:+--target "$@"}
    ) 9>"build/$preset.lock"
}

# python_environment FOLDER [PYTHON]: a virtual environment with what building and testing the Python package takes.
python_environment() {
    local python=${2:-python3}
    [ -x "$1/bin/python" ] && [ "$("$1/bin/python" -VV)" = "$("$python" -VV)" ] || "$python" -m venv --clear "$1"
    "$1/bin/pip" install -q -r python/tests/requirements.txt
}

# python_wheel ENVIRONMENT BUILD WHEELS: a wheel of the Python package in the folder WHEELS. The folder of the build stays, so that
# only what changed is compiled again.
python_wheel() {
    PATH=$1/bin:$PATH "$1/bin/pip" wheel -q --no-build-isolation --no-deps -w "$3" \
        --config-settings=build-dir="$2" --config-settings=cmake.define.KT_DEVELOPER=ON ./python
}

# step COMMAND...: a check among others; says how long it took.
step() {
    local began=$SECONDS
    printf '\n=== %s\n' "$*"
    "$@" || fail "=== $* failed after $((SECONDS - began)) s"
    printf '=== %s held, %d s\n' "$*" $((SECONDS - began))
}

fail() {
    echo "$*" >&2
    exit 1
}
