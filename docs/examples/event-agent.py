#!/usr/bin/env python3
"""A whole management agent: serves the event socket, decodes each record of rynd(8) and prints it as one line,
"MICROSECONDS SEQUENCE HOST NAME ARGUMENT...", texts in double quotes. Ends by SIGTERM or SIGINT.
Use: event-agent.py [SOCKET]
"""
import os
import signal
import socket
import struct
import sys

HEADER, TRAILER, LONGEST, BACKLOG = struct.Struct("<QQ38s2xIII"), 4, 65536, 4096
DESCRIPTOR = struct.Struct("<IIQ")
SIGNED, UNSIGNED, TEXT, NULL_TEXT = 1, 2, 3, 4


def decode(record: bytes):
    """(microseconds, sequence, host, name, arguments), an argument an int, bytes or None. ValueError when damaged."""
    if len(record) < HEADER.size:
        raise ValueError("shorter than its header")
    time, sequence, host, total, count, length = HEADER.unpack_from(record)
    if total > len(record):
        raise ValueError("cut short")  # fewer bytes than that; more, all zero, are no error
    if not 0 < length <= 129 or total < HEADER.size + length + TRAILER:
        raise ValueError("the name does not fit")
    name = record[HEADER.size:HEADER.size + length]
    if name[-1] != 0 or host[-1] != 0:
        raise ValueError("a text does not end")
    area = record[HEADER.size + length:total - TRAILER]
    if count * DESCRIPTOR.size > len(area):
        raise ValueError("the arguments do not fit")
    arguments = []
    for index in range(count):
        kind, width, value = DESCRIPTOR.unpack_from(area, index * DESCRIPTOR.size)
        if kind == SIGNED:
            arguments.append(value - (1 << 64) if value >> 63 else value)
        elif kind == UNSIGNED:
            arguments.append(value)
        elif kind == TEXT:
            text = area[value:value + width]
            if width == 0 or len(text) != width or text[-1] != 0:
                raise ValueError("a text argument does not fit")
            arguments.append(text[:-1])
        elif kind == NULL_TEXT:
            arguments.append(None)
        else:
            raise ValueError("an argument of an unknown kind")
    return time, sequence, host.split(b"\0")[0], name.split(b"\0")[0], arguments


def shown(argument) -> bytes:
    if argument is None:
        return b"(null)"
    if isinstance(argument, int):
        return str(argument).encode()
    out = bytearray(b'"')
    for byte in argument:
        if byte in b'"\\':
            out += bytes((0x5C, byte))
        elif byte < 0x20 or byte == 0x7F:
            out += b"\\x%02x" % byte
        else:
            out.append(byte)
    return bytes(out + b'"')


def receive(connection) -> bytes:
    record = b""
    connection.settimeout(1)  # somebody who connects and sends nothing must not hold up the next
    try:
        while len(record) < LONGEST and (more := connection.recv(LONGEST - len(record))):
            record += more
    except OSError:
        pass
    return record


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else "/var/run/corvane/mgmtd-kprob.sock"
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: sys.exit(0))
    listening = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    if os.path.lexists(path):
        os.unlink(path)
    os.umask(0o117)  # rynd is in the group of the folder, which is set-group-id: the socket gets that group
    listening.bind(path)
    listening.listen(BACKLOG)
    try:
        while True:
            with listening.accept()[0] as connection:
                record = receive(connection)
            try:
                time, sequence, host, name, arguments = decode(record)
            except ValueError as wrong:
                print(f"event-agent: a record of {len(record)} bytes is damaged: {wrong}", file=sys.stderr)
                continue
            line = b"%d %d %s %s" % (time, sequence, host, name)
            sys.stdout.buffer.write(b" ".join([line, *map(shown, arguments)]) + b"\n")
            sys.stdout.flush()
    finally:
        os.unlink(path)  # before it is no longer served: events then wait in the daemon


if __name__ == "__main__":
    main()
