# shellcheck shell=bash
# The Debian packages that building, running, testing and measuring need. Sourced by ./run, ./test and benchmarks/run;
# the names are those that Debian 12 and 13 share.
#   install_missing GROUP...   installs, through apt-get, what these groups lack; prints nothing when that is nothing
# Groups: build, page, run, test, arm, machine, bench.

# What the page is built with counts as installed when its commands are there: a newer node brings its own npm along.
packages_page=()
for tool in nodejs:node npm:npm; do
  command -v "${tool#*:}" >/dev/null || packages_page+=("${tool%:*}")
done

# The presets configure the tests with everything else, so the test library belongs to building.
packages_build=(
  g++ cmake ninja-build pkg-config
  libjsoncpp-dev libboost-dev libmosquitto-dev libssl-dev libhiredis-dev libevent-dev libspdlog-dev libsodium-dev
  libcli11-dev libvalijson-dev libncurses-dev libgtest-dev
)
packages_run=(mosquitto mosquitto-clients redis-server redis-tools psmisc iproute2)
packages_test=(
  git openssl clang clang-format clang-tidy cppcheck libclang-rt-dev libbenchmark-dev tmux
  dpkg-dev file systemd curl stunnel4 python3-jsonschema python3-yaml chromium
)
packages_bench=(libbenchmark-dev valgrind python3-paho-mqtt python3-redis)
packages_machine=(mmdebstrap)
packages_arm=(g++-arm-linux-gnueabihf qemu-user)

reason_build="the compiler and the libraries that the programs are built with"
reason_page="what the web page is built with"
reason_run="the broker, the store and their command-line clients, killall, and what arranges networks"
reason_test="the tests' own tools: formatter, analysers, sanitizers, fuzzer, what makes and checks the package, the second validator, a browser"
reason_bench="the micro-benchmark library, the profiler, and what the Python handler is written with"
reason_machine="what makes a small Debian system, in which the packages are installed"
reason_arm="the cross-compiler for the 32-bit board and its emulator"

# Prints those of the given packages that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | sort -u)" = installed ] || echo "$package"
  done
}

install_missing() {
  local group list reason missing=() lacking
  for group in "$@"; do
    list="packages_$group[@]"
    reason="reason_$group"
    mapfile -t lacking < <(missing_packages "${!list}")
    [ ${#lacking[@]} -gt 0 ] || continue
    echo "installing ${lacking[*]}: ${!reason}"
    missing+=("${lacking[@]}")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  local as_root=()
  if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "these packages need root: run  apt-get install ${missing[*]}  as root, then this again" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "apt-get could not install ${missing[*]}" >&2
    return 1
  fi
  rm -f "$log"
}
