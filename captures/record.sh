#!/bin/bash
# Records the project's captures from real programs that talk to each other on this machine.
#
#   sudo captures/record.sh           all of them
#   sudo captures/record.sh crowd     the crowd's alone; the others stay as they are
#
# Hosts and routers are network namespaces joined by veth pairs. All of it lives in a mount, PID
# and network namespace of its own, so that the end of this script, however it comes, ends every
# program and takes every device and working file with it; five minutes are its limit. The files
# of this directory change only after every recording has succeeded.
#
#   office  (192.0.2.0/24)      ---- trunk, Ethernet ------------ hub --- servers (203.0.113.0/24)
#   branch  (198.51.100.0/25)   ---- 802.1Q and 802.1ad tags ----- |      web, dns, cache, files,
#   remote  (198.51.100.128/25) ---- MTU 600 --------------------- |      logs
#   crowd   (198.18.100.0/24)   ---- one wire, 230 addresses ----- |
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here
readonly work=/run/recording
readonly web=203.0.113.10 dns=203.0.113.53 cache=203.0.113.20 files=203.0.113.30
readonly logs=203.0.113.40
readonly packages=(iproute2 ethtool tcpdump tshark nginx-light curl dnsmasq-base bind9-dnsutils
                   redis-server redis-tools rsync iputils-ping traceroute socat bsdextrautils
                   bsdutils python3-minimal)
mac_count=0
captures_running=()

fail() {
    echo "record.sh: $*" >&2
    exit 1
}

# Packages that bring a service must not start it on this machine.
install_programs() {
    local policy=/usr/sbin/policy-rc.d
    if dpkg-query -W -f '${Status}\n' "${packages[@]}" 2> /dev/null |
        grep -c '^install ok installed' | grep -qx "${#packages[@]}"; then
        return
    fi
    if [[ ! -e $policy ]]; then
        # shellcheck disable=SC2064
        trap "rm -f $policy" EXIT
        printf '#!/bin/sh\nexit 101\n' > $policy
        chmod 755 $policy
    fi
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${packages[@]}"
}

in_host() {
    ip netns exec "$@"
}

add_host() {
    ip netns add "$1"
    in_host "$1" sysctl -qw net.ipv6.conf.default.disable_ipv6=1 net.ipv6.conf.all.disable_ipv6=1 \
        net.ipv4.ip_forward="${2:-0}"
    ip -n "$1" link set lo up
}

# Fixed MAC addresses, and no offload: no frame may exceed the MTU or lack its checksum.
ready_device() {
    local host=$1 device=$2 mtu=$3
    mac_count=$((mac_count + 1))
    ip -n "$host" link set "$device" address "$(printf '02:00:00:00:00:%02x' $mac_count)" \
        mtu "$mtu"
    in_host "$host" ethtool -K "$device" rx off tx off sg off tso off gso off gro off \
        > /dev/null 2>&1 || true
    ip -n "$host" link set "$device" up
}

join_hosts() {
    local host=$1 device=$2 peer=$3 peer_device=$4 mtu=$5
    ip link add "$device" netns "$host" type veth peer name "$peer_device" netns "$peer"
    ready_device "$host" "$device" "$mtu"
    ready_device "$peer" "$peer_device" "$mtu"
}

# A host behind a router: a cable of its own, the router's address as its way to everything.
attach_host() {
    local host=$1 address=$2 router=$3 gateway=$4
    add_host "$host"
    join_hosts "$host" eth0 "$router" "$host" 1500
    ip -n "$host" address add "$address/32" dev eth0
    ip -n "$host" route add "$gateway" dev eth0
    ip -n "$host" route add default via "$gateway"
    ip -n "$router" address add "$gateway/32" dev "$host"
    ip -n "$router" route add "$address/32" dev "$host"
}

# Two routers' addresses on the link between them, and the routes over it.
route_link() {
    local site=$1 device=$2 network=$3 hub_device=$4 prefix=$5
    ip -n "$site" address add "$network.1/30" dev "$device"
    ip -n hub address add "$network.2/30" dev "$hub_device"
    ip -n hub route add "$prefix" via "$network.1"
}

build_servers() {
    add_host hub 1
    attach_host web $web hub 203.0.113.1
    attach_host dns $dns hub 203.0.113.1
    attach_host cache $cache hub 203.0.113.1
    attach_host files $files hub 203.0.113.1
    attach_host logs $logs hub 203.0.113.1
}

build_office() {
    local number device host
    add_host office 1
    for number in {11..18}; do attach_host "desk$number" "192.0.2.$number" office 192.0.2.1; done
    join_hosts office trunk hub office 1500
    route_link office trunk 198.18.1 office 192.0.2.0/24
    ip -n office route add default via 198.18.1.2
    for device in office/trunk/1 hub/office/2; do
        IFS=/ read -r host device number <<< "$device"
        in_host "$host" sysctl -qw "net.ipv6.conf.$device.disable_ipv6=0"
        ip -n "$host" address add "2001:db8:18::$number/64" dev "$device" nodad
    done
}

wait_for() {
    local what=$1 attempt
    shift
    for ((attempt = 0; attempt < 100; attempt++)); do
        if "$@" > /dev/null 2>&1; then return; fi
        sleep 0.1
    done
    fail "$what was not there after 10 seconds"
}

# The branch's two networks share one wire: data under one tag, guests under two.
build_branch() {
    local number router device network prefix length
    add_host branch 1
    for number in {11..14}; do
        attach_host "till$number" "198.51.100.$number" branch 198.51.100.1
    done
    for number in {71..73}; do
        attach_host "guest$number" "198.51.100.$number" branch 198.51.100.65
    done
    join_hosts branch wire hub wire 1600
    for router in branch hub; do
        in_host $router /usr/bin/python3 "$here/vlan_tap.py" --wire wire --port data0=8021q:110 \
            --port guest0=8021ad:200,8021q:30 &
        for device in data0 guest0; do
            wait_for "$device of $router" ip -n $router link show $device
            ready_device $router $device 1500
        done
    done
    for network in data0/198.18.2/198.51.100.0/26 guest0/198.18.3/198.51.100.64/26; do
        IFS=/ read -r device network prefix length <<< "$network"
        route_link branch "$device" "$network" "$device" "$prefix/$length"
    done
    ip -n branch route add default via 198.18.2.2
    ip -n branch route add default via 198.18.3.2 table 30
    ip -n branch rule add from 198.51.100.64/26 to 203.0.113.0/24 lookup 30
}

build_remote() {
    local number
    add_host remote 1
    for number in {131..133}; do
        attach_host "hut$number" "198.51.100.$number" remote 198.51.100.129
    done
    join_hosts remote narrow hub narrow 600
    route_link remote narrow 198.18.4 narrow 198.51.100.128/25
    ip -n remote route add default via 198.18.4.2
}

# One host that has many addresses, as a gateway's users would.
build_crowd() {
    local number
    add_host crowd
    join_hosts crowd lane hub crowd 1500
    ip -n hub address add 198.18.100.1/24 dev crowd
    for number in {11..240}; do ip -n crowd address add "198.18.100.$number/24" dev lane; done
    ip -n crowd route add default via 198.18.100.1
}

# Pages from 1 to about 40 kB, an archive, and what the clients send to the file server.
make_content() {
    local number
    mkdir -p $work/{pages,uploads,outbox,boot,cache,nginx}
    for number in {1..24}; do
        {
            echo "<html><body><h1>Page $number</h1>"
            seq -f "<p>line %g of page $number</p>" $((20 + number * number * 2))
            echo '</body></html>'
        } > "$work/pages/page$number.html"
    done
    seq -f 'archive record %g' 7000 > $work/pages/archive.txt
    for number in {1..6}; do
        seq -f "ledger $number entry %g" $((number * 500)) > "$work/outbox/ledger$number.txt"
    done
    seq -f 'boot block %g' 900 > $work/boot/image
}

start_web() {
    cat > $work/nginx.conf << CONFIG
user root;
pid $work/nginx/pid;
error_log $work/nginx/error.log;
events { worker_connections 256; }
http {
    access_log off;
    keepalive_timeout 20s;
    default_type text/html;
    client_body_temp_path $work/nginx/body;
    proxy_temp_path $work/nginx/proxy;
    fastcgi_temp_path $work/nginx/fastcgi;
    uwsgi_temp_path $work/nginx/uwsgi;
    scgi_temp_path $work/nginx/scgi;
    server { listen $web:80; listen $web:8080; root $work/pages; }
}
CONFIG
    in_host web nginx -e $work/nginx/error.log -c $work/nginx.conf -g 'daemon off;' &
    wait_for 'the web server' in_host web curl -sf http://$web/page1.html
}

# Names of one label. The answer for "racks" is far longer than any MTU here.
start_dns() {
    local number
    {
        printf 'no-resolv\nno-hosts\nno-daemon\nuser=root\nlocal-ttl=60\nlocal=//\n'
        printf 'listen-address=%s\nbind-interfaces\nedns-packet-max=4096\n' $dns
        printf 'enable-tftp\ntftp-root=%s/boot\ntftp-no-fail\n' $work
        printf 'pid-file=%s/dnsmasq.pid\n' $work
        printf 'host-record=web,%s\nhost-record=cache,%s\n' $web $cache
        printf 'host-record=files,%s\nhost-record=logs,%s\nhost-record=dns,%s\n' $files $logs $dns
        for number in {11..18}; do
            printf 'host-record=desk%d,192.0.2.%d\n' "$number" "$number"
        done
        for number in {1..12}; do
            printf 'txt-record=racks,"rack %d:%s"\n' "$number" "$(seq -s ' ' 1000 1040)"
        done
    } > $work/dnsmasq.conf
    in_host dns dnsmasq --conf-file=$work/dnsmasq.conf 2> $work/dnsmasq.log &
    wait_for 'the DNS server' in_host dns dig +time=1 +tries=1 @$dns web
}

start_servers() {
    start_web
    start_dns
    # Without COMMAND: redis-cli would fetch 300 kB of help with it on every connection.
    in_host cache redis-server --bind $cache 127.0.0.1 --port 6379 --save '' --appendonly no \
        --dir $work/cache --protected-mode no --rename-command COMMAND '' > $work/redis.log &
    cat > $work/rsyncd.conf << CONFIG
use chroot = no
reverse lookup = no
uid = root
gid = root
log file = $work/rsyncd.log
pid file = $work/rsyncd.pid
[inbox]
path = $work/uploads
read only = no
CONFIG
    in_host files rsync --daemon --no-detach --address=$files --config=$work/rsyncd.conf &
    in_host logs socat -u UDP4-RECVFROM:514,bind=$logs,fork OPEN:$work/syslog,creat,append &
    wait_for 'the cache' in_host cache redis-cli -h $cache ping
    wait_for 'the file server' in_host files rsync rsync://$files/
}

# capture FILE HOST DEVICE SNAPLEN [TCPDUMP OPTION...]
start_capture() {
    local file=$1 host=$2 device=$3 snaplen=$4
    shift 4
    # Not in_host: the process id must be that of tcpdump itself.
    ip netns exec "$host" tcpdump -n -Z root -B 8192 -i "$device" -s "$snaplen" \
        -w "$work/$file" "$@" 2> "$work/$file.log" &
    captures_running+=("$!:$work/$file.log")
    wait_for "the capture of $file" grep -q 'listening on' "$work/$file.log"
}

stop_captures() {
    local capture
    sleep 1.5
    for capture in "${captures_running[@]}"; do
        kill -TERM "${capture%%:*}"
        wait "${capture%%:*}" || true
        grep -q '^0 packets dropped by kernel' "${capture#*:}" ||
            fail "packets were lost: $(tail -n 1 "${capture#*:}")"
    done
    captures_running=()
}

# The clients' deeds. Each takes the host that acts first.
look_up() { in_host "$1" dig +time=2 +tries=1 @$dns "${@:2}" > /dev/null; }

fetch() { in_host "$1" curl -s -m 20 -o /dev/null "${@:2}"; }

upload() {
    in_host "$1" rsync -t --timeout=20 --whole-file "$work/outbox/ledger$2.txt" \
        "rsync://$files/inbox/$1-$2.txt"
}

send_log() {
    in_host "$1" logger --server $logs --port 514 --udp --rfc3164 -t "$1" "${@:2}"
}

# One connection, a command at a time: store some values, read back more of them.
use_cache() {
    local host=$1 server=$2 rounds=$3 round
    for ((round = 1; round <= rounds; round++)); do
        echo "SET basket:$host:$round $(seq -s , $((round * 60)))"
        echo "GET basket:$host:$round"
        echo "GET basket:$host:$((round / 2 + 1))"
        echo 'INCR visits'
    done | in_host "$host" redis-cli -h "$server" > /dev/null
}

# A visit: ask for the name, then take one to four pages over one connection. Low numbers of
# pages are wanted more often than high ones.
visit_web() {
    local host=$1 port=$2 pages count page
    look_up "$host" web
    count=$((RANDOM % 4 + 1))
    pages=()
    for ((page = 0; page < count; page++)); do
        pages+=(-o /dev/null "http://$web:$port/page$((RANDOM % (RANDOM % 24 + 1) + 1)).html")
    done
    in_host "$host" curl -s -m 20 "${pages[@]}"
}

work_at_desk() {
    local number=$1 host=desk$1 visit
    RANDOM=$number
    for visit in {1..11}; do
        visit_web "$host" $((RANDOM % 5 == 0 ? 8080 : 80))
        case $((visit % 6)) in
            1) look_up "$host" "desk$((11 + RANDOM % 8))" ;;
            2) upload "$host" $((RANDOM % 6 + 1)) ;;
            3) look_up "$host" cache; use_cache "$host" $cache $((6 + RANDOM % 5)) ;;
            4) send_log "$host" "visit $visit of the day, everything as usual" ;;
            5) look_up "$host" "printer$RANDOM" ;;
        esac
        sleep 0.$((RANDOM % 6))
    done
    in_host "$host" ping -q -n -c $((number - 7)) -i 0.1 $web > /dev/null
}

# What one sees beside the daily work: downloads, closed ports, a traced path, other protocols.
roam_office() {
    fetch desk12 http://$web/archive.txt
    fetch desk17 http://$web/archive.txt --limit-rate 400k
    in_host desk14 traceroute -n -q 1 -w 1 $files > /dev/null
    in_host desk16 traceroute -n -q 2 -w 1 $logs > /dev/null
    fetch desk15 http://$files:81/ || true
    fetch desk15 http://$cache:80/ || true
    in_host desk15 dig +time=1 +tries=1 @$files files > /dev/null || true
    fetch desk18 tftp://$dns/image
    in_host desk13 ping -q -n -c 12 -i 0.1 -s 600 $files > /dev/null
    in_host office ping -6 -q -n -c 5 -i 0.2 2001:db8:18::2 > /dev/null
    in_host office timeout 1.5 socat -u UDP4-RECV:9000,ip-add-membership=233.252.0.9:198.18.1.1 \
        /dev/null || true
}

record_office() {
    local number clients=()
    start_capture office-lan.pcap hub office 128
    for number in {11..18}; do
        work_at_desk "$number" &
        clients+=($!)
    done
    roam_office
    wait_for_all "${clients[@]}"
    stop_captures
}

wait_for_all() {
    local client
    for client in "$@"; do wait "$client" || fail 'a client failed'; done
}

work_at_branch() {
    local host=$1 visit
    RANDOM=$2
    for visit in {1..5}; do
        visit_web "$host" 80
        send_log "$host" "receipt $RANDOM printed"
        sleep 0.$((RANDOM % 5))
    done
    case $host in
        till*) upload "$host" $((RANDOM % 2 + 1)); use_cache "$host" $cache 6 ;;
        guest*) fetch "$host" tftp://$dns/image --tftp-blksize 1024 ;;
    esac
    in_host "$host" ping -q -n -c 6 -i 0.2 $web > /dev/null
}

record_branch() {
    local number clients=()
    start_capture tagged-link.pcap hub wire 200
    for number in {11..14}; do work_at_branch "till$number" "$number" & clients+=($!); done
    for number in {71..73}; do work_at_branch "guest$number" "$number" & clients+=($!); done
    wait_for_all "${clients[@]}"
    stop_captures
    editcap -F pcapng $work/tagged-link.pcap $work/tagged-link.pcapng
}

work_at_remote() {
    local host=$1 round
    RANDOM=$2
    for round in {1..4}; do
        look_up "$host" +bufsize=4096 +ignore racks TXT
        look_up "$host" web
        in_host "$host" ping -q -n -M dont -c 2 -i 0.2 -s $((1000 * (RANDOM % 3 + 1))) $web \
            > /dev/null
        fetch "$host" "http://$web/page$((RANDOM % 12 + 1)).html"
        send_log "$host" --size 4000 "round $round: $(seq -s ' ' 100 420)" || true
    done
    fetch "$host" tftp://$dns/image --tftp-blksize 1428
}

record_remote() {
    local number clients=()
    start_capture small-mtu.pcap hub narrow 262144
    for number in {131..133}; do work_at_remote "hut$number" "$number" & clients+=($!); done
    wait_for_all "${clients[@]}"
    stop_captures
}

# Seen on every device of one server at once, its loopback too.
record_server() {
    local number clients=()
    start_capture server-any.pcap cache any 160 -y LINUX_SLL
    for number in {11..18}; do
        use_cache "desk$number" $cache $((number - 8)) & clients+=($!)
    done
    use_cache cache 127.0.0.1 8
    for number in {1..3}; do
        look_up cache files
        upload cache "$number"
        send_log cache "backup $number sent"
    done
    in_host desk18 redis-benchmark -q -h $cache -c 4 -n 120 -d 90 -t set,get > /dev/null
    in_host cache ping -q -n -c 8 -i 0.1 $logs > /dev/null
    wait_for_all "${clients[@]}"
    stop_captures
}

# Each address asks for a name and pings; every third takes a page too.
record_crowd() {
    local number address
    start_capture many-sources.pcap hub crowd 96
    for number in {11..240}; do
        address=198.18.100.$number
        look_up crowd -b "$address" web
        in_host crowd ping -q -n -c 1 -I "$address" $web > /dev/null
        if ((number % 3 == 0)); then
            fetch crowd --interface "$address" "http://$web/page$((number % 4 + 1)).html"
        fi
    done
    stop_captures
}

first_line() { "$@" 2>&1 | sed -n 1p; }

write_versions() {
    printf '## Programs\n\nThe programs that made the traffic, as they were at the recording:\n\n'
    printf '| program | version |\n|---|---|\n'
    printf '| %s | %s |\n' \
        nginx "$(nginx -v 2>&1 | sed 's/.*nginx.//')" \
        curl "$(first_line curl --version | cut -d ' ' -f 2)" \
        dnsmasq "$(first_line dnsmasq --version | cut -d ' ' -f 3)" \
        dig "$(first_line dig -v | cut -d ' ' -f 2)" \
        redis-server "$(redis-server --version | sed 's/.* v=\([^ ]*\).*/\1/')" \
        'redis-cli, redis-benchmark' "$(redis-cli --version | cut -d ' ' -f 2)" \
        rsync "$(first_line rsync --version | cut -d ' ' -f 4)" \
        ping "$(first_line ping -V | sed 's/.*iputils //')" \
        traceroute "$(first_line traceroute --version | grep -o '[0-9][0-9.]*' | head -n 1)" \
        logger "$(logger --version | sed 's/.*util-linux //')" \
        socat "$(socat -V | sed -n 's/^socat version \([^ ]*\).*/\1/p')" \
        iproute2 "$(ip -V | sed 's/.*iproute2-\([^,]*\).*/\1/')" \
        'Python (vlan_tap.py)' "$(/usr/bin/python3 --version | cut -d ' ' -f 2)" \
        tcpdump "$(first_line tcpdump --version | cut -d ' ' -f 3)" \
        libpcap "$(tcpdump --version 2>&1 | sed -n 's/^libpcap version \([^ ]*\).*/\1/p')" \
        'editcap, tshark' "$(tshark --version 2> /dev/null | sed -n '1s/.*) \([^ ]*\) (.*/\1/p')"
}

prepare() {
    mount -t tmpfs tmpfs /run
    mkdir -p $work
    hostname recorder
    make_content
    build_servers
}

record_all() {
    prepare
    build_office
    build_branch
    build_remote
    build_crowd
    start_servers
    record_office
    record_branch
    record_remote
    record_server
    record_crowd
    cp $work/{office-lan,small-mtu,server-any,many-sources}.pcap $work/tagged-link.pcapng "$here"
    write_versions > "$here/COUNTS.md"
    "$here/count.sh"
}

record_crowd_alone() {
    prepare
    build_crowd
    start_web
    start_dns
    record_crowd
    cp $work/many-sources.pcap "$here"
    "$here/count.sh"
}

# Runs this script again in namespaces of its own. Their first process takes all others with it.
record_apart() {
    local apart
    RECORDING_APART=1 timeout --kill-after=1 300 unshare --mount --uts --ipc --net --pid --fork \
        --mount-proc --kill-child "$here/record.sh" "$@" &
    apart=$!
    # shellcheck disable=SC2064
    trap "kill $apart 2> /dev/null || true" EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    wait $apart
}

main() {
    [[ $# -eq 0 || $* == crowd ]] || fail "takes nothing, or 'crowd', not '$*'"
    [[ $EUID -eq 0 ]] || fail 'needs root, for network namespaces'
    if [[ -z ${RECORDING_APART-} ]]; then
        install_programs
        record_apart "$@"
        return
    fi
    trap 'exit 143' INT TERM
    if [[ $# -eq 0 ]]; then record_all; else record_crowd_alone; fi
}

main "$@"
