#!/usr/bin/env python3
"""Carries several TAP devices over one wire, each under its own stack of VLAN tags.

A frame read from a TAP device goes out on the wire with that device's tags after the two MAC
addresses; a frame from the wire loses its tags and goes to the device whose stack they are.
With one instance at each end of a veth pair, a link carries real 802.1Q and 802.1ad frames on a
kernel that has no VLAN device of its own.
"""

import argparse
import fcntl
import os
import selectors
import socket
import struct
import sys

TUN_SET_INTERFACE = 0x400454CA
TAP_WITHOUT_HEADER = 0x0002 | 0x1000
SOL_PACKET = 263
PACKET_AUXDATA = 8
PACKET_IGNORE_OUTGOING = 23
ETHERTYPE_OF_EVERY_FRAME = 0x0003
VLAN_TAG_VALID = 0x10
VLAN_TYPE_VALID = 0x40
AUXDATA = struct.Struct("=IIIHHHH")
MAC_ADDRESSES_LENGTH = 12
TAG_LENGTH = 4
LONGEST_FRAME = 65536
TAG_TYPES = {"8021q": 0x8100, "8021ad": 0x88A8}
TAG_TYPE_NUMBERS = frozenset(TAG_TYPES.values())


def parse_tag(text):
    """Turns 8021q:110 into (0x8100, 110)."""
    kind, separator, number = text.partition(":")
    if kind not in TAG_TYPES:
        raise argparse.ArgumentTypeError(
            f"'{text}': a tag is TYPE:ID with TYPE one of {', '.join(TAG_TYPES)}")
    if not separator or not number.isdecimal() or not 1 <= int(number) <= 4094:
        raise argparse.ArgumentTypeError(f"'{text}': the VLAN id must be within 1..4094")
    return TAG_TYPES[kind], int(number)


def parse_port(text):
    """Turns data0=8021ad:200,8021q:30 into a device name and its tags, outermost first."""
    device, separator, tags = text.partition("=")
    if not device or not separator:
        raise argparse.ArgumentTypeError(f"'{text}': a port is DEVICE=TAG[,TAG...]")
    return device, tuple(parse_tag(tag) for tag in tags.split(","))


def open_tap(device):
    tap = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
    fcntl.ioctl(tap, TUN_SET_INTERFACE, struct.pack("16sH22x", device.encode(), TAP_WITHOUT_HEADER))
    return tap


def open_wire(device):
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETHERTYPE_OF_EVERY_FRAME))
    wire.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
    wire.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
    wire.bind((device, 0))
    return wire


def open_or_exit(open_device, device):
    try:
        return open_device(device)
    except OSError as error:
        sys.exit(f"vlan_tap: {device}: {error.strerror}")


def push_tags(frame, tags):
    encoded = b"".join(struct.pack("!HH", kind, number) for kind, number in tags)
    return frame[:MAC_ADDRESSES_LENGTH] + encoded + frame[MAC_ADDRESSES_LENGTH:]


def pop_tags(frame):
    """Returns the tags, outermost first, and the frame without them."""
    tags = []
    at = MAC_ADDRESSES_LENGTH
    while at + TAG_LENGTH <= len(frame):
        kind, control = struct.unpack_from("!HH", frame, at)
        if kind not in TAG_TYPE_NUMBERS:
            break
        tags.append((kind, control & 0x0FFF))
        at += TAG_LENGTH
    return tuple(tags), frame[:MAC_ADDRESSES_LENGTH] + frame[at:]


def receive(wire):
    """Reads one frame as it was on the wire: the kernel hands the outermost tag over apart."""
    frame, ancillary, _, _ = wire.recvmsg(LONGEST_FRAME, socket.CMSG_SPACE(AUXDATA.size))
    for level, kind, data in ancillary:
        if level != SOL_PACKET or kind != PACKET_AUXDATA:
            continue
        status, _, _, _, _, control, tag_type = AUXDATA.unpack(data[:AUXDATA.size])
        if status & VLAN_TAG_VALID:
            outer = tag_type if status & VLAN_TYPE_VALID else TAG_TYPES["8021q"]
            frame = push_tags(frame, [(outer, control)])
    return frame


def carry(wire, taps_by_tags):
    selector = selectors.DefaultSelector()
    selector.register(wire, selectors.EVENT_READ, None)
    for tags, tap in taps_by_tags.items():
        selector.register(tap, selectors.EVENT_READ, tags)
    while True:
        for key, _ in selector.select():
            if key.data is not None:
                wire.send(push_tags(os.read(key.fd, LONGEST_FRAME), key.data))
                continue
            tags, frame = pop_tags(receive(wire))
            if tags in taps_by_tags:
                os.write(taps_by_tags[tags], frame)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--wire", required=True, metavar="DEVICE",
                        help="the Ethernet device that carries the tagged frames")
    parser.add_argument("--port", required=True, action="append", type=parse_port,
                        metavar="DEVICE=TAG[,TAG...]", dest="ports",
                        help="a TAP device to make, and its tags, outermost first: "
                             "data0=8021q:110 or guest0=8021ad:200,8021q:30")
    options = parser.parse_args()
    devices_by_tags = {}
    for device, tags in options.ports:
        if tags in devices_by_tags:
            parser.error(f"{device} has the same tags as {devices_by_tags[tags]}")
        devices_by_tags[tags] = device
    wire = open_or_exit(open_wire, options.wire)
    carry(wire, {tags: open_or_exit(open_tap, device) for tags, device in devices_by_tags.items()})


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(130)
