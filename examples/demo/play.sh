#!/usr/bin/env bash
# A router with two uplinks and a modem, played in namespaces of its own. Every connection leads to a
# provider with a real name server; every provider calls www.example.net something else. The hardware
# that a PC lacks is simulated.
#
#     play.sh BUILD      BUILD: the build tree with the library and the example programs
#
# Exits non-zero if any step did not come out as promised.
set -uo pipefail

build=$(realpath "$1")
if [[ ${2:-} != inside ]]; then
    user=()
    [[ $(id -u) -eq 0 ]] || user=(--user --map-root-user)
    exec timeout 50 unshare "${user[@]}" --mount --net --pid --fork --kill-child --mount-proc \
        "$0" "$build" inside
fi

# The build tree may lie where the private folders go.
mount --bind "$build" /mnt
export LD_LIBRARY_PATH=/mnt
connectiond=/mnt/examples/connectiond wanctl=/mnt/examples/wanctl
for folder in /var /tmp /run; do mount -t tmpfs demo "$folder"; done
mount -t sysfs demo /sys
[[ -e /dev/log ]] && mount --bind /dev/null /dev/log # the machine's own log stays out of it
: >/var/resolv.conf
failures=0

bold='' plain=''
[[ -t 1 ]] && bold=$'\e[1m' plain=$'\e[0m'
say() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }

# check WHAT EXPECTED ACTUAL
check() {
    if [[ $2 == "$3" ]]; then
        printf '   ok      %s: %s\n' "$1" "${3:-(none)}"
    else
        printf '   FAILED  %s: %s, expected %s\n' "$1" "${3:-(none)}" "${2:-(none)}"
        failures=$((failures + 1))
    fi
}

show_system() {
    echo "   \$ ip route";            ip route | sed 's/^/     /'
    echo "   \$ cat /var/resolv.conf"; sed 's/^/     /' /var/resolv.conf
    echo "   \$ readlink /var/wan/active"; readlink /var/wan/active | sed 's/^/     /'
}

# state: what the kernel and the system's files show, one line each.
state() {
    readlink /var/wan/active
    ip route show default | sed 's/^default //; s/ *$//'
    cat /var/resolv.conf
}

# expect_main ACTIVE ROUTE SERVER: what they must come to show, within 10 s.
expect_main() {
    for _ in $(seq 200); do
        [[ $(state) == "$(printf '%s\n' "$@" | sed '/^$/d')" ]] && break
        sleep 0.05
    done
    show_system
    check "main connection" "$1" "$(readlink /var/wan/active)"
    check "default route" "$2" "$(ip route show default | sed 's/^default //; s/ *$//')"
    check "name server" "$3" "$(cat /var/resolv.conf)"
}

# provider NAME OUR_IFNAME NETWORK_PREFIX WWW: a namespace with a gateway, a name server, a web host.
provider() {
    local name=$1 ifname=$2 net=$3 www=$4
    ip netns add "$name"
    ip link add "$ifname" type veth peer name down0 netns "$name"
    ip addr add "$net.2/24" dev "$ifname"
    ip link set "$ifname" up
    ip -n "$name" link set lo up
    ip -n "$name" addr add "$net.1/24" dev down0
    ip -n "$name" addr add "$www/32" dev lo
    ip -n "$name" link set down0 up
    # --no-daemon also keeps the user as it is, which a user namespace needs
    ip netns exec "$name" dnsmasq --no-daemon --conf-file=/dev/null --pid-file= \
        --log-facility=/dev/null --no-resolv --no-hosts --listen-address="$net.1" \
        --bind-interfaces --host-record="gateway.example,$net.1" \
        --host-record="www.example.net,$www" 2>/dev/null &
}

# attribute INDEX FILE TEXT
attribute() { mkdir -p "/var/wan/$1" && printf %s "$3" >"/var/wan/$1/$2"; }

connection() { # INDEX TYPE IFNAME NETWORK_PREFIX
    attribute "$1" type "$2"
    attribute "$1" con_iface "$3"
    attribute "$1" ip "$4.2/24"
    attribute "$1" gateway "$4.1"
    attribute "$1" resolv.conf "nameserver $4.1"$'\n'
    attribute "$1" status "01 disconnected"
    attribute "$1" inet ""
}

start() { # INDEX: a daemon that holds this connection up
    "$connectiond" "$1" gateway.example &
}

say "A router: WAN1 on eth1, WAN2 (type PPPoE, parent WAN1) on ppp0, WAN3 on the modem usb0"
ip link set lo up
provider isp1 eth1 10.1.0 198.51.100.1
provider isp2 ppp0 10.2.0 198.51.100.2
provider isp3 usb0 10.3.0 198.51.100.3
connection 1 1 eth1 10.1.0
connection 2 3 ppp0 10.2.0
connection 3 1 usb0 10.3.0
attribute 2 parent 1
attribute 3 modem 2
ln -s 2 /var/wan/default
ln -s default /var/wan/active
echo usb0 >/tmp/modem-iface
"$wanctl" table

say "WAN1 comes up: nothing better is there"
start 1
expect_main 1 "via 10.1.0.1 dev eth1" "nameserver 10.1.0.1"

say "WAN2 comes up: the configured default connection takes over"
start 2
expect_main 2 "via 10.2.0.1 dev ppp0" "nameserver 10.2.0.1"

say "A name, asked of WAN2's own server, and a ping through WAN2; WAN1 knows another address"
check "www.example.net through WAN2" 198.51.100.2 "$("$wanctl" look-up 2 www.example.net)"
check "www.example.net through WAN1" 198.51.100.1 "$("$wanctl" look-up 1 www.example.net)"
check "ping through WAN2" "www.example.net answers" "$("$wanctl" ping 2 www.example.net)"

say "The modem comes up in the background: the verdict is logged anew, the wired connection stays"
start 3
for _ in $(seq 100); do [[ -e /var/wan/modem-up ]] && break; sleep 0.05; done
expect_main 2 "via 10.2.0.1 dev ppp0" "nameserver 10.2.0.1"
"$wanctl" table

say "WAN2 fails (its provider goes silent): its parent WAN1 takes over"
ip -n isp2 link set down0 down
expect_main 1 "via 10.1.0.1 dev eth1" "nameserver 10.1.0.1"
check "www.example.net through WAN1" 198.51.100.1 "$("$wanctl" look-up 1 www.example.net)"

say "WAN1 fails too: the modem takes over"
ip -n isp1 link set down0 down
expect_main 3 "via 10.3.0.1 dev usb0" "nameserver 10.3.0.1"
check "ping through WAN3" "www.example.net answers" "$("$wanctl" ping 3 www.example.net)"

say "The modem fails: no connection is left"
ip -n isp3 link set down0 down
expect_main default "" ""

say "The connections"
"$wanctl" table

# hardware COMMAND...: on a PC that has none of it
export ROUTERKIT_SIM=/tmp/hardware
hardware() { LD_PRELOAD=/mnt/librouterkit-sim.so /mnt/examples/hardware "$@" 2>&1; }
mkdir -p $ROUTERKIT_SIM/{eth1,wlan0-va0,flash}

say "The switch (simulated) sees the WAN port's cable pulled and put back"
for state in up down up; do
    echo $state >$ROUTERKIT_SIM/eth1/link
    check "link" $state "$(hardware link)"
done

say "A wireless setting (simulated) is written and read back"
echo 'str Factory' >$ROUTERKIT_SIM/wlan0-va0/ssid
check "ssid of wlan0-va0" "Factory" "$(hardware get 0x10 ssid)"
hardware set 0x10 ssid "Home net"
check "ssid of wlan0-va0" "Home net" "$(hardware get 0x10 ssid)"
check "what the driver keeps" "str Home net" "$(cat $ROUTERKIT_SIM/wlan0-va0/ssid)"

say "A firmware image is checked, written to the flash (simulated) and compared"
flash=$ROUTERKIT_SIM/flash/mtd4 # rootfs2
truncate -s $((0x4e0000)) $flash
{
    printf 'firmware\x00\x00\x10\x00\x00\x00\x10\x00' # to byte 4096, 4096 bytes
    printf '\x12\x34\xed\xcc%.0s' $(seq 1024)
} >/tmp/image
{ head -c 4111 /tmp/image && printf '#'; } >/tmp/broken-image
check "before" "different" "$(hardware compare rootfs2 /tmp/image)"
check "a broken image" "not an image" "$(hardware write rootfs2 /tmp/broken-image)"
check "a good one" "written" "$(hardware write rootfs2 /tmp/image)"
check "after" "the same" "$(hardware compare rootfs2 /tmp/image)"
printf '#' | dd of=$flash bs=1 seek=5000 conv=notrunc status=none
check "one byte of the flash went bad" "different" "$(hardware compare rootfs2 /tmp/image)"

if [[ $failures -ne 0 ]]; then
    printf '\n%d steps did not come out as promised.\n' "$failures"
    exit 1
fi
printf '\nEvery step came out as promised.\n'
