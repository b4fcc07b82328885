# shellcheck shell=bash disable=SC2016,SC2154
# An upgrade that a power failure cuts, at each step. Sourced by run. The machine must work again at the next boot as it
# is, half upgraded, and  dpkg --configure -a  and the upgrade once more must mend it.

step="preparing the cuts"
boot "$base"
set_up
power_off
umount "$scratch/root"
mv "$scratch/disk" "$scratch/installed"
rm -rf "$scratch/work"
cuts=0

# after_the_cut PACKAGE   the machine is off.
after_the_cut() {
  local state
  boot  # what is mounted already
  state=$(inside dpkg-query -W -f '${db:Status-Status}' "$1")
  say "$step: $state"
  works_before_mending
  if [ -e "$scratch/script" ]; then inside sh -c "cat >/var/lib/dpkg/info/$script" <"$scratch/script"; fi
  inside dpkg --force-confold --configure -a >"$scratch/log" 2>&1 || say "  dpkg --configure -a: $(tail -n 1 "$scratch/log")"
  install new
  works
  expect "version" "$(dpkg-deb -f "$new/$1"_*.deb Version)" "$(version "$1")"
  expect "state" installed "$(inside dpkg-query -W -f '${db:Status-Status}' "$1")"
  owners
  owners_own_is_kept
  scrap
  rm -f "$scratch/script"
  cuts=$((cuts + 1))
}
# A unit that only the new release has may wait until it is mended.
works_before_mending() {
  eventually runs business-server-bus business-server-store business-server business-server-relay business-server-hub \
    business-server-hub-console
  eventually answers
  keeps_documents
}

# Whether this one of all cuts is wanted.
number=0
wanted() { number=$((number + 1)) && [ $((number % every)) = 0 ]; }

# statements SCRIPT   the numbers of the lines before which another statement can stand.
statements() {
  awk 'FNR > 2 && !continued && !/^ *(#|$)/ {print FNR} {continued = /\\$/}' "$1"
}

# cut_in PACKAGE SCRIPT LINE COMMAND...   cuts while dpkg runs this script, before this line.
cut_in() {
  local package=$1 line=$3
  script=$package.$2
  shift 3
  step="$script, before line $line"
  inside cat "/var/lib/dpkg/info/$script" >"$scratch/script"
  awk -v line="$line" 'FNR == line {print "touch /tmp/cut-here; sleep 1000"} {print}' "$scratch/script" |
    inside sh -c "cat >/var/lib/dpkg/info/$script"
  inside "$@" >"$scratch/log" 2>&1 &
  local dpkg=$! reached=
  while kill -0 "$dpkg" 2>/dev/null; do
    if inside test -e /tmp/cut-here; then reached=yes; break; fi
    sleep 0.1
  done
  power_off
  wait "$dpkg" 2>/dev/null || true
  if [ -z "$reached" ]; then  # a line that an upgrade does not come to
    scrap
    rm -f "$scratch/script"
    return
  fi
  after_the_cut "$package"
}

for package in business-server business-server-site; do
  deb=/packages/new/$(cd "$new" && echo "$package"_*.deb)
  rm -rf "$scratch/control"
  dpkg-deb -e "$new/$package"_*.deb "$scratch/control"
  for kind in prerm postrm; do
    for line in $(statements "$scratch/installed/var/lib/dpkg/info/$package.$kind"); do
      wanted || continue
      boot "$scratch/installed" "$base"
      cut_in "$package" "$kind" "$line" dpkg --force-confold -i "$deb"
    done
  done
  # Each file of a package becomes what it is by a rename.
  files=$(dpkg-deb -c "$new/$package"_*.deb | grep -c '^-')
  for part in 1 2 4 8 12 16; do
    wanted || continue
    step="$package, unpacking, rename $((files * part / 8))"
    boot "$scratch/installed" "$base"
    inside strace -f -o /dev/null -e trace=rename -e "inject=rename:signal=KILL:when=$((files * part / 8))" \
      dpkg --force-confold --unpack "$deb" >"$scratch/log" 2>&1 || true
    power_off
    after_the_cut "$package"
  done
  for line in $(statements "$scratch/control/postinst"); do
    wanted || continue
    boot "$scratch/installed" "$base"
    inside dpkg --force-confold --unpack "$deb" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
    cut_in "$package" postinst "$line" dpkg --force-confold --configure -a
  done
done
say "an upgrade was cut $cuts times, and mended each time"
