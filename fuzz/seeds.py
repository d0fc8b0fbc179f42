#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into the folder given.

The seeds are made here, from small documents that reach every branch of
the codecs we know of; nothing is copied from elsewhere."""
import os
import struct
import sys

TEXTS = [
    b'{"a":[1,2,{"b":null}],"c":"x\\u00e9\\uD83D\\uDE00","d":true,"e":false}',
    b'[1.50,2E3,-0.0e+1,1e40,18446744073709551615,18446744073709551616,-9223372036854775808]',
    b'{"b":"n","a":1,"c":{"x":2,"y":[3]},"d":[{"x":1}],"e":{"k":1},"f":[]}',
    b'\xef\xbb\xbf  [true ,false]\r\n',
    b'"\\b\\f\\n\\r\\t\\"\\\\\\/\\u0000"',
    b'{"a":1,"a":2}',
    b'[[[[[[[[[[]]]]]]]]]]',
    b'{"k":{"k":{"k":{"k":1}}}}',
    b'"caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac"',
    b'{"a":1,}', b'[,1]', b'012', b'1e400', b'"\\uD840\\uDC00"', b'"\xff"',
    b'0.123456789012345678901', b'9' * 330,
]


def pack(value):
    """A small MessagePack writer covering every form the reader takes."""
    if value is None:
        return b'\xc0'
    if value is True:
        return b'\xc3'
    if value is False:
        return b'\xc2'
    if isinstance(value, int):
        if 0 <= value < 128:
            return bytes([value])
        if -32 <= value < 0:
            return struct.pack('b', value)
        if 0 <= value < 1 << 8:
            return b'\xcc' + struct.pack('>B', value)
        if 0 <= value < 1 << 16:
            return b'\xcd' + struct.pack('>H', value)
        if 0 <= value < 1 << 32:
            return b'\xce' + struct.pack('>I', value)
        if 0 <= value:
            return b'\xcf' + struct.pack('>Q', value)
        if value >= -128:
            return b'\xd0' + struct.pack('>b', value)
        if value >= -(1 << 15):
            return b'\xd1' + struct.pack('>h', value)
        if value >= -(1 << 31):
            return b'\xd2' + struct.pack('>i', value)
        return b'\xd3' + struct.pack('>q', value)
    if isinstance(value, float):
        if struct.unpack('>f', struct.pack('>f', value))[0] == value:
            return b'\xca' + struct.pack('>f', value)
        return b'\xcb' + struct.pack('>d', value)
    if isinstance(value, (str, bytes)):
        data = value.encode() if isinstance(value, str) else value
        n = len(data)
        if n < 32:
            return bytes([0xa0 | n]) + data
        if n < 256:
            return b'\xd9' + bytes([n]) + data
        if n < 65536:
            return b'\xda' + struct.pack('>H', n) + data
        return b'\xdb' + struct.pack('>I', n) + data
    if isinstance(value, list):
        n = len(value)
        head = bytes([0x90 | n]) if n < 16 else b'\xdc' + struct.pack('>H', n)
        return head + b''.join(pack(v) for v in value)
    if isinstance(value, dict):
        n = len(value)
        head = bytes([0x80 | n]) if n < 16 else b'\xde' + struct.pack('>H', n)
        return head + b''.join(pack(k) + pack(v) for k, v in value.items())
    raise TypeError(value)


MSGPACK = [
    pack({'a': [1, 2, {'b': None}], 'c': 'x\u00e9', 'd': True, 'e': False}),
    pack([0, 127, 128, 255, 256, 65535, 65536, 1 << 32, (1 << 64) - 1, -1, -32, -33,
          -128, -129, -32768, -32769, -(1 << 31), -(1 << 31) - 1, 1.5, 0.1]),
    pack({'b': 'n', 'a': 1, 'c': {'x': 2, 'y': [3]}, 'd': [{'x': 1}], 'e': {'k': 1}, 'f': []}),
    pack(['s' * 31, 's' * 32, 's' * 300, list(range(20)), {str(i): i for i in range(20)}]),
    pack([b'\xff\xfe', {b'\xff': 1}]),
    b'\xc1', b'\x91\xc1', b'\xc4\x00', b'\x81', b'\x81\x01\x01', b'\x92\x01', b'\xcd\x01',
    b'\x01\x0a\x20', b'\x01\x02', b'\xdd\xff\xff\xff\xff', b'\xdf\xff\xff\xff\xff',
]


def write(folder, items):
    os.makedirs(folder, exist_ok=True)
    for i, data in enumerate(items):
        with open(os.path.join(folder, 'seed-%03d' % i), 'wb') as f:
            f.write(data)


def main():
    root = sys.argv[1]
    # The option byte in front: plain, ordered, lenient UTF-8, compiled table.
    options = [0x00, 0x04, 0x0d, 0x12, 0x40, 0x45]
    write(os.path.join(root, 'fuzz_text'),
          [bytes([o]) + t for o in options for t in TEXTS] +
          [bytes([0x02]) + m for m in MSGPACK])
    write(os.path.join(root, 'fuzz_msgpack'), [bytes([o]) + m for o in options for m in MSGPACK])
    write(os.path.join(root, 'fuzz_roundtrip'), TEXTS)


if __name__ == '__main__':
    main()
