# shellcheck shell=bash disable=SC2016,SC2154
# The life of an installation. Sourced by run.

step="first installation"
boot "$base"
set_up
owners
owners_own_is_kept
say "previous: $(version business-server)"

step="upgrade"
before=$(pid_of business-server)
install new
works
eventually runs business-server-relay
[ "$(pid_of business-server)" != "$before" ] || fail "the old daemon still runs"
inside sh -c 'readlink /proc/$(systemctl show -P MainPID business-server)/exe' | grep -qx /usr/bin/business_server || fail "it runs a file that is gone"
owners
owners_own_is_kept
say "upgrade: $(version business-server)"

step="what was stopped or disabled stays so"
inside systemctl disable --now business-server-export.timer 2>/dev/null || true
inside systemctl stop business-server-relay
inside systemctl mask --now business-server-hub-console 2>/dev/null
install new
works_but_masked() { runs business-server-bus business-server-store business-server business-server-hub && ! runs business-server-hub-console && ! runs business-server-relay; }
eventually works_but_masked
inside systemctl unmask business-server-hub-console 2>/dev/null
inside systemctl start business-server-hub-console business-server-relay

step="downgrade"
install previous
works
owners_own_is_kept
say "downgrade: $(version business-server)"

step="removal"
install new
works
inside dpkg --remove business-server business-server-site >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
for unit in $device_units $hub_units business-server-relay; do
  if runs "$unit"; then fail "$unit still runs"; fi
done
for file in /etc/business-server/mosquitto.conf /etc/business-server/bus/integrator /var/lib/business-server/store/appendonlydir \
  /etc/business-server-site/accounts /etc/business-server-site/tls/hub.pem; do
  inside test -e "$file" || fail "$file is gone"
done
expect "programs that are left" "" "$(inside sh -c 'ls /usr/bin/business_server /usr/bin/park_relay /usr/lib/business-server 2>/dev/null' || true)"
install new
# shellcheck disable=SC2086
inside systemctl start $device_units $hub_units business-server-relay
works
owners
owners_own_is_kept
say "removal: configuration and documents stay, and are found again"

step="purge"
inside dpkg --purge business-server business-server-site >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
left=$(inside sh -c 'find / -xdev \( -path /packages -o -path /proc -o -path /sys -o -path /run \) -prune -o -name "*business-server*" -print' |
  grep -v -e '^/etc/systemd/system/business-server.service.d$' || true)
expect "files that are left" "" "$left"
expect "units that are left" "" "$(inside systemctl list-units --all --no-legend 'business-server*' | grep -v not-found || true)"
say "purge: nothing is left but what the owner made himself"
say "installed, upgraded, downgraded, removed, purged: as it should be"
scrap
