"""Reads the files of a jffs2 image as the kernel does: nodes with a wrong checksum do not count."""

import struct
import zlib


def crc(data):
    """jffs2 begins with 0 and does not invert the result."""
    return zlib.crc32(data, 0xFFFFFFFF) ^ 0xFFFFFFFF


def unpack_rtime(data, size):
    out, places = bytearray(), [0] * 256
    for value, repeat in zip(data[::2], data[1::2]):
        out.append(value)
        start, places[value] = places[value], len(out)
        for n in range(repeat):
            out.append(out[start + n])
    return bytes(out[:size])


def unpack_lzo(data):
    """The format that the kernel documents as LZO1X."""
    out, at, state = bytearray(), 0, 0

    def take(count):
        nonlocal at
        at += count
        return data[at - count:at]

    def length(bits, mask):
        count = bits & mask
        if count == 0:
            count = mask
            while data[at] == 0:
                count += 255
                take(1)
            count += take(1)[0]
        return count

    if data[0] > 17:
        count = take(1)[0] - 17
        out += take(count)
        state = min(count, 4)
    while True:
        code = take(1)[0]
        low = code & 3
        if code < 16 and state == 0:
            out += take(3 + length(code, 15))
            state = 4
            continue
        if code < 16:
            size, back = (3, 2049) if state == 4 else (2, 1)
            back += (take(1)[0] << 2) + (code >> 2)
        elif code >= 64:
            size, back = (code >> 5) + 1, (take(1)[0] << 3) + (code >> 2 & 7) + 1
        else:
            size = 2 + length(code, 31 if code >= 32 else 7)
            word = int.from_bytes(take(2), "little")
            back, low = (word >> 2) + 1, word & 3
            if code < 32:
                back += ((code & 8) << 11) + 16383
                if back == 16384:
                    return bytes(out)
        for _ in range(size):
            out.append(out[-back])
        out += take(low)
        state = low


def nodes(image):
    at = 0
    while (at := image.find(b"\x85\x19", at)) >= 0 and at + 12 <= len(image):
        magic, kind, size, check = struct.unpack_from("<HHII", image, at)
        # The header's checksum was made before a bit marked the node as obsolete.
        if at % 4 or crc(struct.pack("<HHI", magic, kind | 0x2000, size)) != check:
            at += 1
            continue
        if kind & 0x2000:
            yield kind & ~0x2000 & 0xFFFF, image[at:at + size]
        at += max(12, size + 3 & ~3)


def files(image):
    """The files by their paths."""
    names, contents = {}, {}
    for kind, node in nodes(image):
        if kind == 0xC001 and len(node) >= 40:
            parent, version, inode = struct.unpack_from("<III", node, 12)
            length, checks = node[28], struct.unpack_from("<II", node, 32)
            name = node[40:40 + length]
            if checks == (crc(node[:32]), crc(name)) and version >= names.get((parent, name), (0,))[0]:
                names[parent, name] = version, inode, node[29] == 8
        elif kind == 0xC002 and len(node) >= 68:
            inode, version, _, _, total = struct.unpack_from("<IIIII", node, 12)
            offset, packed, size, method, _, _, data_check, check = struct.unpack_from("<IIIBBHII", node, 44)
            data = node[68:68 + packed]
            if (check, data_check) == (crc(node[:60]), crc(data)):
                contents.setdefault(inode, []).append((version, total, offset, method, size, data))
    return {path: content(contents.get(inode, [])) for path, inode, is_file in walk(names, 1, "") if is_file}


def walk(names, folder, prefix):
    for (parent, name), (_, inode, is_file) in names.items():
        if parent == folder and inode:
            yield prefix + name.decode(), inode, is_file
            yield from walk(names, inode, prefix + name.decode() + "/")


def content(pieces):
    text = bytearray()
    for _, total, offset, method, size, data in sorted(pieces):
        data = {0: lambda: data, 1: lambda: bytes(size), 2: lambda: unpack_rtime(data, size),
                6: lambda: zlib.decompress(data), 7: lambda: unpack_lzo(data)}[method]()
        text = text[:total].ljust(max(total, offset + size), b"\0")
        text[offset:offset + size] = data
        text = text[:total]
    return bytes(text)
