#!/bin/bash
# Counts the recorded captures with tshark and writes the tables of COUNTS.md.
#
#   captures/count.sh           rewrite the tables, keep the part about the programs
#   captures/count.sh --check   compare the tables with COUNTS.md, exit 1 when they differ
set -euo pipefail
export LC_ALL=C
cd "$(dirname "${BASH_SOURCE[0]}")"

readonly fields=(frame.len frame.cap_len ip.src ip.dst ip.proto ip.frag_offset ip.flags.mf
                 tcp.srcport tcp.dstport udp.srcport udp.dstport
                 vlan.id ieee8021ad.id)

# One line a packet. Each field's first occurrence: an ICMP error quotes a second IPv4 header.
packet_fields() {
    tshark -n -r "$1" -o ip.defragment:FALSE -T fields -E separator=/t -E occurrence=f \
        "${fields[@]/#/-e}" 2> /dev/null
}

# The sums of the packets on standard input, as the cells of one row of the table. Ports count
# for TCP and UDP alone, and are 0 in every other packet and in fragments after the first.
count_packets() {
    awk -F '\t' '
        { packets++; bytes += $1 }
        $2 < $1 { truncated++ }
        $12 != "" || $13 != "" { tagged++ }
        $13 != "" && $12 != "" { twice_tagged++ }
        $5 == "" { other++; next }
        {
            later_fragment = $6 + 0 > 0
            if (later_fragment || $7 ~ /^(1|True)$/) fragments++
            source = destination = 0
            if (!later_fragment && $5 == 6) { source = $8; destination = $9 }
            if (!later_fragment && $5 == 17) { source = $10; destination = $11 }
            tuples[$5, $3, source, $4, destination] = 1
            destinations[$5, $4, destination] = 1
            addresses[$4] = 1
        }
        END {
            printf "%d | %d | %d | %d | %d | %d | %d | %d | %d | %d |\n", packets, bytes,
                length(tuples), length(destinations), length(addresses), fragments, tagged,
                twice_tagged, truncated, other
        }'
}

link_type() {
    capinfos -E "$1" | sed -n 's/^File encapsulation: *//p'
}

write_tables() {
    local file files=(*.pcap *.pcapng)
    cat << 'TEXT'
# What the captures hold

Written by `captures/count.sh`; `captures/count.sh --check` compares this file with the captures.

TEXT
    printf '| %s ' file octets 'link type' packets 'wire bytes' '5-tuples' 'destination triples' \
        'destination addresses' fragments tagged 'tagged twice' truncated 'not IPv4'
    printf '|\n|---|--:|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n'
    for file in "${files[@]}"; do
        printf '| %s | %d | %s | ' "$file" "$(stat -c %s "$file")" "$(link_type "$file")"
        packet_fields "$file" | count_packets
    done
    printf '| all | %d | | ' "$(cat "${files[@]}" | wc -c)"
    for file in "${files[@]}"; do packet_fields "$file"; done | count_packets
    cat << 'TEXT'

- `octets` is the size of the file.
- `5-tuples` are directional: (protocol, source and destination address, source and destination
  port) of IPv4. `destination triples` are (protocol, destination address, destination port). A
  packet that is not TCP or UDP, and a fragment after the first, counts under port 0.
- `fragments` are IPv4 fragments, the first ones too.
- `tagged twice` is the part of `tagged` with an 802.1ad tag before the 802.1Q one.
- `truncated` packets were longer on the wire than in the file.
- The row `all` counts a 5-tuple, triple or address once, however many files it is in.

The same numbers by hand, for one file:

```sh
cd captures
capinfos -cEs office-lan.pcap                       # packets, link type, size of the file
tshark -n -r office-lan.pcap -o ip.defragment:FALSE -T fields -E occurrence=f \
    -e frame.len | awk '{ n += $1 } END { print n }'                        # wire bytes
tshark -n -r small-mtu.pcap -o ip.defragment:FALSE \
    -Y 'ip.flags.mf == 1 || ip.frag_offset > 0' | wc -l                     # fragments
tshark -n -r tagged-link.pcapng -Y 'vlan || ieee8021ad' | wc -l             # tagged
tshark -n -r office-lan.pcap -Y 'frame.cap_len < frame.len' | wc -l         # truncated
tshark -n -r office-lan.pcap -Y '!ip' | wc -l                               # not IPv4
tshark -n -r office-lan.pcap -o ip.defragment:FALSE -Y 'ip.proto == 6' -T fields \
    -E occurrence=f -e ip.src -e tcp.srcport -e ip.dst -e tcp.dstport | sort -u | wc -l
tshark -n -r office-lan.pcap -q -z conv,ip          # who talks to whom
```

TEXT
}

main() {
    local written
    [[ ${1-} =~ ^(--check)?$ ]] || {
        echo "count.sh: unknown option '$1', known is --check" >&2
        exit 2
    }
    written=$(mktemp)
    # shellcheck disable=SC2064
    trap "rm -f '$written'" EXIT
    write_tables > "$written"
    sed -n '/^## Programs/,$p' COUNTS.md >> "$written"
    if [[ ${1-} == --check ]]; then
        diff -u COUNTS.md "$written"
    else
        cat "$written" > COUNTS.md
    fi
}

main "$@"
