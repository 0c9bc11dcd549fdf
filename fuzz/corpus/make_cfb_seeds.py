#!/usr/bin/env python3
"""Writes the hostile and damaged seeds of fuzz_cfb_open and fuzz_cfb_write:
compound files laid out by hand (streams at the root, each the right sibling
of the one before) and then damaged on purpose. Run from anywhere; the
outputs are committed beside the files of other writers."""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
FIXTURES = os.path.join(HERE, '..', '..', 'tests', 'fixtures', 'cfb')
END, FREE = 0xFFFFFFFE, 0xFFFFFFFF
SS = 512


class Built:
    def __init__(self, streams):
        """streams: (name, bytes); big ones (4096 bytes and more) in sectors,
        small ones in 64-byte blocks of the root's container."""
        mini = b''.join(d.ljust((len(d) + 63) // 64 * 64, b'\0') for _, d in streams if 0 < len(d) < 4096)
        sectors = lambda n: (n + SS - 1) // SS
        big = sum(sectors(len(d)) for _, d in streams if len(d) >= 4096)
        dir_s, minifat_s, mini_s = sectors((len(streams) + 1) * 128), sectors(len(mini) // 16), sectors(len(mini))
        data = dir_s + minifat_s + mini_s + big
        bat = 1
        while bat * (SS // 4) < bat + data:
            bat += 1
        self.bat_sectors = bat
        fat = [FREE] * (bat * SS // 4)
        for s in range(bat):
            fat[s] = 0xFFFFFFFD
        body = bytearray((bat + data) * SS)
        nxt = bat

        def place(count, content=b''):
            nonlocal nxt
            first = nxt
            body[first * SS:first * SS + len(content)] = content
            for s in range(first, first + count):
                fat[s] = s + 1 if s + 1 < first + count else END
            nxt += count
            return first if count else END

        self.dir_sector = place(dir_s)
        minifat_first = place(minifat_s)
        mini_first = place(mini_s, mini)
        minifat = [FREE] * (minifat_s * SS // 4)
        entries = [self.entry('Root Entry', 5, 1 if streams else FREE, FREE, mini_first, mini_s * SS)]
        block = 0
        for i, (name, d) in enumerate(streams):
            if 0 < len(d) < 4096:
                n = (len(d) + 63) // 64
                for b in range(block, block + n):
                    minifat[b] = b + 1 if b + 1 < block + n else END
                start, block = block, block + n
            else:
                start = place(sectors(len(d)), d) if d else END
            entries.append(self.entry(name, 2, FREE, i + 2 if i + 1 < len(streams) else FREE, start, len(d)))
        directory = b''.join(entries)
        body[self.dir_sector * SS:self.dir_sector * SS + len(directory)] = directory
        if minifat_s:
            body[minifat_first * SS:(minifat_first + minifat_s) * SS] = struct.pack('<%dI' % len(minifat), *minifat)
        body[0:bat * SS] = struct.pack('<%dI' % len(fat), *fat)
        header = bytearray(b'\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1'.ljust(SS, b'\0'))
        struct.pack_into('<HHHHH', header, 24, 0x3E, 3, 0xFFFE, 9, 6)
        struct.pack_into('<IIIIIIII', header, 44, bat, self.dir_sector, 0, 4096,
                         minifat_first if minifat_s else END, minifat_s, END, 0)
        struct.pack_into('<109I', header, 76, *([s for s in range(bat)] + [FREE] * (109 - bat)))
        self.bytes = bytearray(header) + body

    @staticmethod
    def entry(name, kind, child, right, start, size):
        encoded = name.encode('utf-16-le')
        e = bytearray(128)
        e[0:len(encoded)] = encoded
        struct.pack_into('<HBB', e, 64, len(encoded) + 2, kind, 1)
        struct.pack_into('<III', e, 68, FREE, right, child)
        struct.pack_into('<II', e, 116, start, size)
        return bytes(e)

    def dir_offset(self, index):
        return (self.dir_sector + 1) * SS + index * 128

    def set32(self, at, value):
        struct.pack_into('<I', self.bytes, at, value)

    def bat_offset(self, sector):
        return SS + sector * 4


def seeds():
    out = {}
    # A directory of one long sibling chain (a listing must stay linear in it).
    out['chain500.cfb'] = Built([('s%04d' % i, b'') for i in range(500)]).bytes
    pattern = bytes((i * 37 + 11) & 0xFF for i in range(9000))
    two = lambda: Built([('big', pattern), ('small', pattern[:1000])])
    # Chains that loop, and one that runs into another stream's sectors.
    f = two()
    first = struct.unpack_from('<I', f.bytes, f.dir_offset(1) + 116)[0]
    f.set32(f.bat_offset(first + 3), first)
    out['loop.cfb'] = f.bytes
    f = two()
    f.set32(f.dir_offset(2) + 120, 5000)
    f.set32(f.dir_offset(2) + 116, first + 10)
    out['crosslinked.cfb'] = f.bytes
    # A root entry of the wrong type, a sibling link to itself, names that differ in case.
    f = two()
    f.bytes[f.dir_offset(0) + 66] = 2
    f.set32(f.dir_offset(2) + 72, 2)
    out['badroot.cfb'] = f.bytes
    out['case.cfb'] = Built([('Data', b'1'), ('DATA', b'2'), ('data', pattern[:5000])]).bytes
    # Files cut short: at an odd size, and just past the header.
    with open(os.path.join(FIXTURES, 'writer.doc'), 'rb') as doc:
        word = doc.read()
    out['cut6000.doc'] = word[:6000]
    out['cut513.doc'] = word[:513]
    return out


def main():
    for name, data in seeds().items():
        for target, prefix in (('fuzz_cfb_open', b''), ('fuzz_cfb_write', bytes([3, 0, 0x81, 9, 9, 1, 2, 3, 4, 2, 0, 40, 1, 3, 1, 5, 7]))):
            folder = os.path.join(HERE, target)
            os.makedirs(folder, exist_ok=True)
            suffix = '.in' if prefix else ''
            with open(os.path.join(folder, name + suffix), 'wb') as f:
                f.write(prefix + bytes(data))


if __name__ == '__main__':
    main()
