# shellcheck shell=bash
# Shared by the scripts: sourced, it moves to the root of the tree.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '%s\n' "$*" >&2; }

fail() {
    say "$*"
    exit 1
}

# Installs the Debian packages among the given ones that are missing; touches nothing otherwise.
need_packages() {
    local package missing=() as_root=() log
    if ! command -v dpkg-query >/dev/null; then
        say "Not a Debian system: taking it that what these packages hold is there: $*"
        return
    fi
    for package; do
        # shellcheck disable=SC2016 # a field of dpkg-query, not of the shell
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    command -v apt-get >/dev/null || fail "Missing packages, and no apt-get: ${missing[*]}"
    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            fail "Missing packages. As root: apt-get install ${missing[*]}"
        as_root=(sudo)
    fi
    say "Installing ${missing[*]}"
    log=$(mktemp)
    as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300)
    # A source that cannot be reached matters only if the packages cannot be installed either.
    "${as_root[@]}" update >"$log" 2>&1 || true
    if ! "${as_root[@]}" install --no-install-recommends "${missing[@]}" >>"$log" 2>&1 </dev/null; then
        cat "$log" >&2
        rm -f "$log"
        fail "Could not install ${missing[*]}"
    fi
    rm -f "$log"
}

# build PRESET [TARGET...]: configures and builds into build/PRESET.
build() {
    local preset=$1 options=(--parallel "$(nproc)")
    shift
    (($# == 0)) || options+=(--target "$@")
    [[ -t 1 ]] || options+=(-- --quiet) # a log keeps only what fails
    cmake --preset "$preset" >/dev/null
    cmake --build "build/$preset" "${options[@]}"
}
