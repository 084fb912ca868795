# What the verbs of ./run need of Debian's packages. Sourced by ./run.
# shellcheck shell=bash disable=SC2034 # the lists are used by ./run

build_packages=(g++ cmake ninja-build pkg-config libcjson-dev libcli11-dev libavformat-dev
    libavcodec-dev libavutil-dev libswscale-dev libswresample-dev)
test_packages=(libgtest-dev nftables)
bench_packages=(libbenchmark-dev libgstrtspserver-1.0-dev)
run_packages=(ffmpeg iproute2 util-linux)
fuzz_packages=(clang-14 libclang-rt-14-dev llvm-14)
lint_packages=(clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 shellcheck)

# Installs the packages that are missing: at once as root or in CI, otherwise after asking.
need() {
    local missing=() package answer=
    for package in "$@"; do
        dpkg-query -W -f '${Status}\n' "$package" 2> /dev/null | grep -q ' installed$' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    local install=(apt-get install -y --no-install-recommends "${missing[@]}")
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo)
        if [ -z "${CI-}" ]; then
            printf 'These packages are missing; this would install them:\n  sudo %s\nGo on? [y/N] ' "${install[*]}"
            read -r answer || true
            case $answer in y | Y | yes) ;; *) echo 'Nothing was installed.' >&2 && exit 1 ;; esac
        fi
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${as_root[@]}" "${install[@]}" ||
        { "${as_root[@]}" apt-get update && "${as_root[@]}" "${install[@]}"; }
}
