# shellcheck shell=bash
# A machine of its own for tests: Debian packages unpacked in a folder, systemd as its process 1, in namespaces of its own
# and without any network. Needs root, a kernel with overlayfs and cgroup2, and, the first time, the package source that
# this machine uses. Sourced; the caller sets scratch, a folder of its own.
# shellcheck disable=SC2016,SC2154

# make_root RELEASE FILE PACKAGE...   an archive of a minimal system with these packages; one that is there and has all
# of them stays.
make_root() {
  local release=$1 file=$2 mirror
  shift 2
  if [ "$(cat "$file.packages" 2>/dev/null)" = "$*" ] && [ -s "$file" ]; then return; fi
  mirror=$(apt-get indextargets --format '$(COMPONENT) $(REPO_URI)' 'Created-By: Packages' "Origin: Debian" |
    awk '$1 == "main" && !/security/ {print $2; exit}')
  [ -n "$mirror" ] || { echo "no Debian main among this machine's apt sources" >&2; return 1; }
  mkdir -p "$(dirname "$file")"
  echo "making $file, $release" >&2
  # What apt is told about its sources on this machine holds there as well.
  if ! TMPDIR=$scratch unshare --mount mmdebstrap --variant=minbase --mode=root --skip=check/empty \
    --include="$(IFS=, && echo "$*")" "$release" "${file%.tar}.new.tar" \
    "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" >"$scratch/root.log" 2>&1; then
    sed 's|https\?://[^ ]*|SOURCE|g' "$scratch/root.log" >&2
    return 1
  fi
  mv "${file%.tar}.new.tar" "$file"
  echo "$*" >"$file.packages"
}

# As process 1 of a new process namespace, in a mount namespace of its own: the folder becomes the root, with file systems
# of the kernel and devices as a machine has them.
enter_root() {
  local root=$1 node
  mount --rbind "$root" "$root"
  mount -t proc proc "$root/proc"
  mount -t sysfs -o ro sysfs "$root/sys"
  mount -t tmpfs -o mode=755 tmpfs "$root/run"
  mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
  mount -t tmpfs -o mode=755 tmpfs "$root/dev"
  mkdir "$root/dev/pts" "$root/dev/shm"
  for node in null zero full random urandom tty; do
    : >"$root/dev/$node"
    mount --bind "/dev/$node" "$root/dev/$node"
  done
  mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
  mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
  ln -s pts/ptmx "$root/dev/ptmx"
  ln -s /proc/self/fd "$root/dev/fd"
  cd "$root"
  pivot_root . mnt
  umount -l /mnt
}

machine_main() {
  enter_root "$1"
  mount -t cgroup2 cgroup2 /sys/fs/cgroup
  ip link set lo up
  mount --make-rshared /  # the supervisor makes credentials in a namespace of their own, and they are to come back
  exec env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd </dev/null >/dev/null 2>&1
}

# boot LOWER...   starts a machine on these folders, the first on top; what it writes goes to $scratch/disk, which stays.
# Returns when it is up.
boot() {
  local lower tries
  lower=$(IFS=: && echo "$*")
  mkdir -p "$scratch/disk" "$scratch/work" "$scratch/root"
  # In this namespace alone, over a folder that is nobody's in a test.
  mountpoint -q /mnt || mount -t cgroup2 cgroup2 /mnt
  group=/mnt/business-server-machine.$$
  mkdir -p "$group"
  mountpoint -q "$scratch/root" ||
    mount -t overlay -o "lowerdir=$lower,upperdir=$scratch/disk,workdir=$scratch/work" overlay "$scratch/root"
  (
    echo "$BASHPID" >"$group/cgroup.procs"
    export -f machine_main enter_root
    exec unshare --net --pid --fork --kill-child --mount --uts --ipc --cgroup \
      bash -ec 'machine_main "$1"' machine "$scratch/root"
  ) 9>&- &
  machine=$!
  init=
  for ((tries = 0; tries < 600; ++tries)); do
    init=$(pgrep -P "$machine" || true)
    case $([ -z "$init" ] || inside systemctl is-system-running 2>/dev/null) in
      running | degraded) return ;;
    esac
    sleep 0.1
  done
  echo "the machine does not come up" >&2
  return 1
}

# inside COMMAND...   as root of the machine.
inside() {
  nsenter --target "$init" --mount --uts --ipc --net --pid --cgroup --root --wd \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive LC_ALL=C "$@"
}

# The power fails: whatever runs ends where it is. What was written stays, for the next boot.
power_off() {
  [ -n "${machine:-}" ] || return 0
  kill -KILL "$init" "$machine" 2>/dev/null || true
  echo 1 >"$group/cgroup.kill" 2>/dev/null || true
  wait "$machine" 2>/dev/null || true
  machine=
  local tries
  for ((tries = 0; tries < 100; ++tries)); do
    [ -n "$(find "$group" -name cgroup.procs -exec cat {} +)" ] || break
    sleep 0.05
  done
  find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || true
}

# Gone with all that it wrote.
scrap() {
  power_off
  if mountpoint -q "$scratch/root"; then umount "$scratch/root"; fi
  rm -rf --one-file-system "$scratch/disk" "$scratch/work"
}
