# The guest's kernel: fetched, unpacked and kept; and the folder that it starts from. Sourced.
# After prepare_machine: kernel_folder holds vmlinux and lib/modules, kernel_version names the modules' folder.

# kernel_package: the name of the package with Debian's current generic kernel; empty when the lists are.
kernel_package() {
    apt-cache depends linux-image-amd64 2>/dev/null |
        sed -n 's/^ *Depends: \(linux-image-[0-9].*-amd64\)$/\1/p' | head -n 1
}

# unpack_vmlinux IMAGE: the kernel proper, out of the image that would otherwise unpack itself at every start.
# The image's head tells where: sectors of the setup code, then the payload's offset and length behind these.
unpack_vmlinux() {
    local setup offset length
    setup=$(od -An -t u1 -j $((0x1f1)) -N 1 "$1")
    read -r offset length < <(od -An -t u4 -j $((0x248)) -N 8 "$1")
    # The last four bytes are the unpacked length, and no part of the xz stream.
    dd if="$1" bs=64K iflag=skip_bytes,count_bytes skip=$(((setup + 1) * 512 + offset)) count=$((length - 4)) \
        status=none | xz --decompress --stdout
}

# fetch_kernel PACKAGE FOLDER: made beside FOLDER and renamed, so that what stands there is always whole.
fetch_kernel() (
    umask 022
    local package=$1 made
    echo "== fetching $package" >&2
    made=$(mktemp -d "$2.XXXXXX")
    trap 'rm -rf "$made"' EXIT
    cd "$made"
    mkdir download
    # As root apt gives up its rights for the download, with which it could not write here.
    (cd download && apt-get download -qq -o APT::Sandbox::User=root "$package")
    dpkg-deb -x download/*.deb .
    rm -r download
    depmod -b . "${package#linux-image-}"
    unpack_vmlinux "boot/vmlinuz-${package#linux-image-}" >vmlinux
    rm -r boot
    chmod 755 .
    cd /
    mv -T "$made" "$2"
)

# prepare_machine: installs and fetches what is missing, with messages on standard error. One run of the lab at a time:
# others may begin beside it.
prepare_machine() {
    local lock cache=${XDG_CACHE_HOME:-$HOME/.cache}/qelcd-lab
    mkdir -p "$cache"
    exec {lock}>"$cache/lock"
    flock "$lock"
    "$here/install-packages" lab >&2
    find_kernel "$cache"
    exec {lock}>&-
}

find_kernel() {
    local package
    package=$(kernel_package)
    if [[ -z $package && $EUID == 0 ]]; then
        apt-get update -qq
        package=$(kernel_package)
    fi
    if [[ -z $package ]]; then
        echo "lab.sh: the package lists name no kernel; apt-get update may help" >&2
        exit 125
    fi
    kernel_version=${package#linux-image-}
    kernel_folder=$1/$kernel_version
    [[ -e $kernel_folder ]] || fetch_kernel "$package" "$kernel_folder"
}

# make_first_folder INIT FILE: the folder that the kernel starts from, as the archive it wants: busybox, the
# modules that reach this machine's files, in the order in which they must be loaded, and INIT.
make_first_folder() {
    local made=$2.d modules module number=100
    modules=$(modprobe --dirname "$kernel_folder" --set-version "$kernel_version" --show-depends --all \
        virtio_pci 9p 9pnet_virtio overlay | sed -n 's/^insmod \([^ ]*\).*/\1/p' | awk '!seen[$0]++')
    mkdir -p "$made"/{bin,modules,proc,dev,layer,machine,root}
    cp /bin/busybox "$made/bin/busybox"
    cp "$1" "$made/init"
    for module in $modules; do
        cp "$module" "$made/modules/$((number++))-${module##*/}"
    done
    (cd "$made" && find . | cpio --quiet --create --format newc) >"$2"
    rm -r "$made"
}
