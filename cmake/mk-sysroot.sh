#!/usr/bin/env bash
# mk-sysroot.sh DIR   makes what the 32-bit ARM build compiles and links against: Debian's armhf packages and all that
# they depend on, unpacked into DIR. Does nothing when DIR is complete and this file has not changed since.
#
# The machine itself does not learn the foreign architecture: apt gets a state of its own and dpkg's database is not
# touched. A machine that has both architectures breaks on the headers of libevent and the C library.
set -euo pipefail

arch=armhf
# The release of this machine: its compiler and the board's libraries belong together.
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
packages=(
  libc6-dev "libstdc++-$(arm-linux-gnueabihf-g++ -dumpversion)-dev"
  libboost-dev libcli11-dev libevent-dev libhiredis-dev libjsoncpp-dev libmosquitto-dev libssl-dev libsodium-dev libspdlog-dev
  libgtest-dev libvalijson-dev
)

[ $# = 1 ] || { echo "usage: mk-sysroot.sh DIR" >&2; exit 2; }
dir=$(realpath -m "$1")
made_by="$(sha256sum <"$0") ${packages[*]} $release"
stamp=$dir/.made-by
mkdir -p "$(dirname "$dir")"
exec 9>"$dir.lock"
flock 9  # a second build that starts meanwhile waits, and finds it made
if [ "$(cat "$stamp" 2>/dev/null)" = "$made_by" ]; then exit 0; fi

echo "making the ARM sysroot $dir" >&2
state=$dir.apt
rm -rf "$dir" "$state"
mkdir -p "$dir" "$state"/lists/partial "$state"/cache/archives/partial
: >"$state/status"

# The mirror that this machine uses already; one suite, so that the versions agree with each other.
mirror=$(apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
         awk -v release=$release '$1 == release && $2 == "main" {print $3; exit}')
[ -n "$mirror" ] || { echo "no $release main among this machine's apt sources" >&2; exit 1; }
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" >"$state/sources.list"

cat >"$state/apt.conf" <<CONF
APT::Architecture "$arch";
APT::Architectures { "$arch"; };
APT::Sandbox::User "root";
APT::Install-Recommends "false";
Dir::State "$state";
Dir::State::lists "$state/lists";
Dir::State::status "$state/status";
Dir::Cache "$state/cache";
Dir::Etc::SourceList "$state/sources.list";
Dir::Etc::SourceParts "/dev/null";
Acquire::Languages "none";
Debug::NoLocking "true";
CONF
export APT_CONFIG=$state/apt.conf
apt-get -qq update
apt-get -qq -y --download-only install "${packages[@]}" >/dev/null
for package in "$state"/cache/archives/*.deb; do
  dpkg-deb -x "$package" "$dir"
  # Which package has which library, for the dependencies of ours.
  dpkg-deb -I "$package" shlibs >>"$dir/.shlibs" 2>/dev/null || true
done
rm -rf "$state" "$dir"/usr/share/{doc,man,locale}

# A link that starts with / would leave the sysroot (libm.so -> /lib/...).
find "$dir" -type l -lname '/*' | while IFS= read -r link; do
  ln -sfnr "$dir$(readlink "$link")" "$link"
done
echo "$made_by" >"$stamp"
