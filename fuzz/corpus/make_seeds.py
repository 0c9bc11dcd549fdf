#!/usr/bin/env python3
"""Writes the seed corpora of fuzz_identify, fuzz_unzip and fuzz_signatures:
small archives of every kind the identification knows, zip archives in the
shapes the reader must cope with (hostile ones included), and the real files
of tests/fixtures/identify. Run from anywhere; the outputs are committed."""

import io
import os
import shutil
import struct
import warnings
import zipfile
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
FIXTURES = os.path.join(HERE, '..', '..', 'tests', 'fixtures', 'archives')
IDENTIFY = os.path.join(HERE, '..', '..', 'tests', 'fixtures', 'identify')


def zip_of(members, compression=zipfile.ZIP_DEFLATED, comment=b''):
    out = io.BytesIO()
    with zipfile.ZipFile(out, 'w', compression) as z:
        for name, data in members:
            info = zipfile.ZipInfo(name, date_time=(2024, 1, 2, 3, 4, 6))
            info.compress_type = compression
            z.writestr(info, data)
        z.comment = comment
    return out.getvalue()


def zip64_of(members):
    """The same archive with a zip64 end record and locator in front of the
    classic end record."""
    data = zip_of(members)
    end = data.rfind(b'PK\x05\x06')
    _, _, _, count, _, size, offset, _ = struct.unpack('<IHHHHIIH', data[end:end + 22])
    body = data[:end]
    record = struct.pack('<IQHHIIQQQQ', 0x06064b50, 44, 45, 45, 0, 0, count, count, size, offset)
    locator = struct.pack('<IIQI', 0x07064b50, 0, len(body), 1)
    classic = struct.pack('<IHHHHIIH', 0x06054b50, 0xffff, 0xffff, 0xffff, 0xffff,
                          0xffffffff, 0xffffffff, 0)
    return body + record + locator + classic


def write(folder, name, data):
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), 'wb') as f:
        f.write(data)


def main():
    text = b''.join(b'line %d of some text\n' % i for i in range(40))
    zips = {
        'plain.zip': zip_of([('a.txt', b'alpha\n'), ('dir/', b''), ('dir/b.txt', text)]),
        'stored.zip': zip_of([('a.txt', b'alpha\n'), ('b.bin', bytes(range(256)))], zipfile.ZIP_STORED),
        'docx.zip': zip_of([('[Content_Types].xml', b'<Types/>'), ('word/', b''),
                            ('word/document.xml', b'<w:document/>'), ('_rels/.rels', b'<R/>')]),
        'xlsx.zip': zip_of([('xl/workbook.xml', b'<workbook/>'), ('xl/_rels/a.rels', b'<R/>')]),
        'pptx.zip': zip_of([('ppt/presentation.xml', b'<p/>')]),
        'capital.zip': zip_of([('Word/', b''), ('Word/document.xml', b'<w/>')]),
        'names.zip': zip_of([('back\\slash\\', b''), ('a//b', b'x'), ('word', b'leaf'), ('word/x', b'y')]),
        'empty.zip': zip_of([]),
        'comment.zip': zip_of([('c.txt', b'c')], comment=b'an archive comment'),
        'zip64.zip': zip64_of([('word/document.xml', b'<w/>'), ('z.txt', b'zz')]),
    }
    # The shapes that once went wrong: a 64 KiB name of 32767 folders, a name
    # held by two members, a member inflating far beyond its size.
    with warnings.catch_warnings():
        warnings.simplefilter('ignore')
        zips['deep.zip'] = zip_of([('a/' * 32767 + 'a', b'deep')])
        zips['twice.zip'] = zip_of([('a.txt', b'first'), ('b.txt', b'b'), ('a.txt', b'second')])
    zips['bomb.zip'] = zip_of([('zeros', bytes(4 << 20))])
    macro_types = (b'<?xml version="1.0"?><Types><Override PartName="/xl/workbook.xml" '
                   b'ContentType="application/vnd.ms-excel.sheet.macroEnabled.main+xml"/></Types>')
    zips['macros.zip'] = zip_of([('[Content_Types].xml', macro_types), ('xl/workbook.xml', b'<w/>'),
                                 ('xl/vbaProject.bin', b'vba')])
    zips['doctype.zip'] = zip_of([('[Content_Types].xml', b'<!DOCTYPE Types [<!ENTITY a "aaaa">]><Types>&a;</Types>'),
                                  ('word/document.xml', b'<w/>')])
    for name, data in zips.items():
        write(os.path.join(HERE, 'fuzz_unzip'), name, data)
        write(os.path.join(HERE, 'fuzz_identify'), name, data)

    for name in ('word.doc', 'setup.msi', 'secret.docx', 'book95.xls', 'sheet.xlsm'):
        shutil.copy(os.path.join(IDENTIFY, name), os.path.join(HERE, 'fuzz_identify', name))
    for name in ('text.pdf', 'image.png', 'image.jpg', 'image.gif', 'image.bmp', 'image.tif', 'drawing.emf',
                 'drawing.wmf', 'word.rtf', 'program.exe', 'object.macho', 'object64.obj', 'movie.mp4',
                 'tagged.mp3', 'frames.mp3', 'sound.wav', 'movie.mpg', 'types.xml'):
        write(os.path.join(HERE, 'fuzz_signatures'), name, open(os.path.join(IDENTIFY, name), 'rb').read())
    write(os.path.join(HERE, 'fuzz_signatures'), 'java.class', bytes.fromhex('cafebabe00000034') + bytes(32))
    write(os.path.join(HERE, 'fuzz_signatures'), 'metafile.wmf',
          struct.pack('<9H', 1, 9, 0x300, 0x100, 0, 0x40, 0, 0, 0))

    for name in ('sample.gz', 'sample.bz2', 'sample.7z', 'sample.xz', 'sample.zst',
                 'gnu.tar', 'ustar.tar', 'v7.tar', 'sample.docx'):
        shutil.copy(os.path.join(FIXTURES, name), os.path.join(HERE, 'fuzz_identify', name))
    write(os.path.join(HERE, 'fuzz_identify'), 'rar.bin', b'Rar!\x1a\x07\x00' + bytes(40))
    write(os.path.join(HERE, 'fuzz_identify'), 'text.txt', text)
    magic = bytearray(300)
    magic[257:262] = b'ustar'
    write(os.path.join(HERE, 'fuzz_identify'), 'ustar300.bin', bytes(magic))


if __name__ == '__main__':
    main()
