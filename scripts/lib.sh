# What the scripts share; they source it in the root of the project.
# shellcheck shell=bash disable=SC2034

library_packages=(build-essential cmake ninja-build uthash-dev)
simulator_packages=(nlohmann-json3-dev libcli11-dev)
tool_packages=("${simulator_packages[@]}" scdoc libpcap-dev)
test_packages=("${library_packages[@]}" "${tool_packages[@]}" libgtest-dev libgmock-dev iproute2
    nftables util-linux)

script=scripts/$(basename "$0")

# Prints the comment at the head of the script, and ends it.
usage() {
    sed -n '2,/^[^#]/s/^# //p' "$script" >&2
    exit 2
}

# build_preset PRESET [ARGUMENT...]: configures and builds; the arguments are those of cmake --build.
build_preset() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$@"
}

# enter_namespace ARGUMENT...: runs the script anew with these arguments in a network namespace, which
# goes away with the last process in it, and so do its links.
enter_namespace() {
    local enter=(unshare --net)
    [ "$(id -u)" -eq 0 ] || enter=(unshare --net --user --map-root-user)
    if ! "${enter[@]}" true 2>/dev/null; then
        echo "This machine lets you make no network namespace: run as root, or allow" \
            "unprivileged user namespaces (sysctl kernel.unprivileged_userns_clone=1)." >&2
        exit 1
    fi
    exec "${enter[@]}" "$script" "$@"
}

# make_link NAME NAME: a veth pair in the namespace, and the loopback.
make_link() {
    ip link set lo up
    if ! ip link add "$1" type veth peer name "$2"; then
        echo "This kernel makes no veth pairs: load its module (modprobe veth)." >&2
        exit 1
    fi
    ip link set "$1" up
    ip link set "$2" up
}
