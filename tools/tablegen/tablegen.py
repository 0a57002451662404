#!/usr/bin/python3
"""tablegen.py - writes the packed conversion tables of the text library

Usage:
    tablegen.py OUTDIR              write the C++ table sources into OUTDIR
    tablegen.py --reference FILE    write what the sources map, for the tests

Each code page comes from one mapping source on this machine: a codec of
Debian's Python (whose charmap codecs follow the published vendor mapping
files) or a glibc iconv converter, as SOURCES below says. Where glibc has a
converter for the same page, its one-way mappings (Unicode to charset only)
are added as best-fit entries. Run with /usr/bin/python3 so that the output is
the same on every Debian 12 machine; the output is deterministic.
"""

import base64
import bz2
import ctypes
import ctypes.util
import os
import struct
import subprocess
import sys

PIECE_CHARS = 400
MAGIC = 0xB394A7E1

# code page -> (primary source, glibc converter for best-fit entries or None).
# A primary source is "py:<codec>", "iconv:<name>", "perl:<name>" (Encode of
# Debian's perl, for the Apple pages nothing else here has) or "hand:<name>".
SOURCES = {
    437: ("py:cp437", "CP437"), 708: ("iconv:ASMO-708", None),
    720: ("py:cp720", None), 737: ("py:cp737", "CP737"),
    775: ("py:cp775", "CP775"), 850: ("py:cp850", "CP850"),
    852: ("py:cp852", "CP852"), 855: ("py:cp855", "CP855"),
    857: ("py:cp857", "CP857"), 858: ("py:cp858", "CP858"),
    860: ("py:cp860", "CP860"), 861: ("py:cp861", "CP861"),
    862: ("py:cp862", "CP862"), 863: ("py:cp863", "CP863"),
    864: ("py:cp864", "CP864"), 865: ("py:cp865", "CP865"),
    866: ("py:cp866", "CP866"), 869: ("py:cp869", "CP869"),
    874: ("py:cp874", "CP874"),
    1250: ("py:cp1250", "CP1250"), 1251: ("py:cp1251", "CP1251"),
    1252: ("py:cp1252", "CP1252"), 1253: ("py:cp1253", "CP1253"),
    1254: ("py:cp1254", "CP1254"), 1255: ("py:cp1255", "CP1255"),
    1256: ("py:cp1256", "CP1256"), 1257: ("py:cp1257", "CP1257"),
    1258: ("py:cp1258", "CP1258"),
    10000: ("py:mac_roman", "MACINTOSH"), 10004: ("py:mac_arabic", None),
    10005: ("perl:MacHebrew", None), 10006: ("py:mac_greek", None),
    10007: ("py:mac_cyrillic", None), 10010: ("py:mac_romanian", None),
    10017: ("iconv:MAC-UK", None), 10029: ("py:mac_latin2", None),
    10079: ("py:mac_iceland", None), 10081: ("py:mac_turkish", None),
    10082: ("py:mac_croatian", None),
    20105: ("iconv:ISO_646.IRV:1991", None), 20127: ("py:ascii", None),
    20261: ("iconv:T.61-8BIT", None), 20269: ("iconv:ISO_6937", None),
    20866: ("py:koi8_r", "KOI8-R"), 21866: ("py:koi8_u", "KOI8-U"),
    28591: ("py:latin_1", None), 28592: ("py:iso8859_2", None),
    28593: ("py:iso8859_3", None), 28594: ("py:iso8859_4", None),
    28595: ("py:iso8859_5", None), 28596: ("py:iso8859_6", None),
    28597: ("py:iso8859_7", None), 28598: ("py:iso8859_8", None),
    28599: ("py:iso8859_9", None), 28600: ("py:iso8859_10", None),
    28601: ("py:iso8859_11", None), 28603: ("py:iso8859_13", None),
    28605: ("py:iso8859_15", None), 38598: ("py:iso8859_8", None),
    37: ("py:cp037", "IBM037"), 500: ("py:cp500", "IBM500"),
    870: ("iconv:IBM870", None), 875: ("py:cp875", "IBM875"),
    1026: ("py:cp1026", "IBM1026"), 1047: ("iconv:IBM1047", None),
    1140: ("py:cp1140", "IBM1140"), 1141: ("iconv:IBM1141", None),
    1142: ("iconv:IBM1142", None), 1143: ("iconv:IBM1143", None),
    1144: ("iconv:IBM1144", None), 1145: ("iconv:IBM1145", None),
    1146: ("iconv:IBM1146", None), 1147: ("iconv:IBM1147", None),
    1148: ("iconv:IBM1148", None), 1149: ("iconv:IBM1149", None),
    10021: ("perl:MacThai", None),
    20106: ("iconv:ISO646-DE", None), 20107: ("iconv:ISO646-SE", None),
    20108: ("iconv:ISO646-NO", None), 20273: ("py:cp273", "IBM273"),
    20277: ("iconv:IBM277", None), 20278: ("iconv:IBM278", None),
    20280: ("iconv:IBM280", None), 20284: ("iconv:IBM284", None),
    20285: ("iconv:IBM285", None), 20290: ("iconv:IBM290", None),
    20297: ("iconv:IBM297", None), 20420: ("iconv:IBM420", None),
    20423: ("iconv:IBM423", None), 20424: ("py:cp424", "IBM424"),
    20838: ("iconv:IBM1160", None), 20871: ("iconv:IBM871", None),
    20880: ("iconv:IBM880", None), 20905: ("iconv:IBM905", None),
    20924: ("hand:ibm924", None), 21025: ("iconv:IBM1025", None),
    932: ("py:cp932", "CP932"), 936: ("iconv:CP936", None),
    949: ("py:cp949", "CP949"), 950: ("py:cp950", "CP950"),
    1361: ("py:johab", "JOHAB"), 51932: ("py:euc_jp", None),
    51949: ("py:euc_kr", "EUC-KR"),
}

NOT_ASCII = {37, 500, 870, 875, 1026, 1047, 1140, 1141, 1142, 1143, 1144, 1145,
             1146, 1147, 1148, 1149, 10021, 20106, 20107, 20108, 20273, 20277,
             20278, 20280, 20284, 20285, 20290, 20297, 20420, 20423, 20424,
             20838, 20871, 20880, 20905, 20924, 21025}
MULTI_BYTE = [932, 936, 949, 950, 1361, 51932, 51949]
# ISO 8859 pages: the C1 controls 0x80-0x9F are no characters of these
# charsets in mail, so they stay unmapped and a conversion reports them.
NO_C1 = {28591, 28592, 28593, 28594, 28595, 28596, 28597, 28598, 28599, 28600,
         28601, 28603, 28605, 38598}
# Pages whose stored constant is another page's: they hold the same data.
SAME_AS = {51936: 936, 52936: 936}

# Best-fit entries that no source here provides but the pages are known for.
EXTRA_BEST_FIT = {932: {0x00A0: b"\x20"}}


class Iconv:
    """One glibc converter, driven through ctypes for single conversions."""
    libc = ctypes.CDLL(ctypes.util.find_library("c"), use_errno=True)
    libc.iconv_open.restype = ctypes.c_void_p
    libc.iconv_open.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
    libc.iconv.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_char_p),
                           ctypes.POINTER(ctypes.c_size_t),
                           ctypes.POINTER(ctypes.c_char_p),
                           ctypes.POINTER(ctypes.c_size_t)]
    libc.iconv_close.argtypes = [ctypes.c_void_p]

    def __init__(self, to, frm):
        self.cd = self.libc.iconv_open(to.encode(), frm.encode())
        if self.cd in (None, ctypes.c_void_p(-1).value):
            raise SystemExit("iconv cannot convert %s to %s" % (frm, to))

    def convert(self, data):
        """The whole of `data` converted, or None when any of it fails."""
        self.libc.iconv(self.cd, None, None, None, None)
        inbuf = ctypes.create_string_buffer(data, len(data))
        out = ctypes.create_string_buffer(64)
        inp = ctypes.c_char_p(ctypes.addressof(inbuf))
        outp = ctypes.c_char_p(ctypes.addressof(out))
        inleft = ctypes.c_size_t(len(data))
        outleft = ctypes.c_size_t(64)
        rc = self.libc.iconv(self.cd, ctypes.byref(inp), ctypes.byref(inleft),
                             ctypes.byref(outp), ctypes.byref(outleft))
        if rc == ctypes.c_size_t(-1).value or inleft.value != 0:
            return None
        rc = self.libc.iconv(self.cd, None, None, ctypes.byref(outp),
                             ctypes.byref(outleft))
        return out.raw[:64 - outleft.value]


def decoder(source):
    kind, name = source.split(":", 1)
    if kind == "py":
        def dec(b):
            try:
                return b.decode(name)
            except UnicodeDecodeError:
                return None
        return dec
    if kind == "iconv":
        conv = Iconv("UTF-16LE", name)
        return lambda b: (lambda r: None if r is None else r.decode("utf-16le"))(conv.convert(b))
    if kind == "perl":
        table = perl_single_bytes(name)
        return lambda b: table.get(b[0]) if len(b) == 1 else None
    return HAND[name]


_IBM1047 = None


def hand_ibm924(b):
    # IBM 924 is IBM 1047 with the eight changes that make Latin-9 of Latin-1.
    global _IBM1047
    if _IBM1047 is None:
        _IBM1047 = decoder("iconv:IBM1047")
    s = _IBM1047(b)
    if s is None:
        return None
    swap = {0xA4: 0x20AC, 0xA6: 0x0160, 0xA8: 0x0161, 0xB4: 0x017D,
            0xB8: 0x017E, 0xBC: 0x0152, 0xBD: 0x0153, 0xBE: 0x0178}
    return "".join(chr(swap.get(ord(c), ord(c))) for c in s)


HAND = {"ibm924": hand_ibm924}


def perl_single_bytes(name):
    """byte -> text for all 256 bytes, by one run of perl's Encode."""
    script = ('use Encode; binmode STDOUT; for my $b (0..255) { my $s = eval { '
              'decode("%s", chr($b), Encode::FB_CROAK) }; print defined($s) ? '
              'join(",", map { sprintf("%%04x", ord) } split(//, $s)) : "-", "\\n"; }' % name)
    out = subprocess.run(["perl", "-e", script], stdout=subprocess.PIPE, check=True).stdout
    result = {}
    for b, line in enumerate(out.decode("ascii").split("\n")[:256]):
        if line not in ("-", ""):
            result[b] = "".join(chr(int(h, 16)) for h in line.split(","))
    return result


def encoder(source):
    """Unicode character -> code bytes by the primary source, or None."""
    kind, name = source.split(":", 1)
    if kind == "py":
        def enc(ch):
            try:
                return ch.encode(name)
            except UnicodeEncodeError:
                return None
        return enc
    if kind == "iconv":
        conv = Iconv(name, "UTF-16LE")
        return lambda ch: conv.convert(ch.encode("utf-16le"))
    return None


def decode_map(cp):
    """code bytes -> code point, for every 1- and 2-byte code the source maps."""
    dec = decoder(SOURCES[cp][0])
    result = {}
    singles = set()
    for b in range(256):
        if cp in NO_C1 and 0x80 <= b <= 0x9F:
            continue
        s = dec(bytes([b]))
        if s is not None and len(s) == 1:
            result[bytes([b])] = ord(s)
            singles.add(b)
    if cp in MULTI_BYTE:
        for lead in range(0x80, 0x100):
            if lead in singles:
                continue
            for trail in range(0x21, 0x100):
                code = bytes([lead, trail])
                s = dec(code)
                if s is not None and len(s) == 1:
                    result[code] = ord(s)
    return result


def glibc_one_way(name, known):
    """u -> code for characters glibc encodes that the primary never decodes."""
    probe = [u for u in range(0x80, 0x10000)
             if not 0xD800 <= u <= 0xDFFF and u not in known]
    text = "".join(chr(u) + "\n" for u in probe).encode("utf-8")
    sep = Iconv(name, "UTF-8").convert(b"\n")
    out = subprocess.run(["iconv", "-c", "-f", "UTF-8", "-t", name], input=text,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    parts = out.split(sep)[:-1]
    if len(parts) != len(probe):
        raise SystemExit("best-fit probe of %s lost its alignment" % name)
    return {u: code for u, code in zip(probe, parts) if code}


def is_ascii_compatible(cp):
    return cp not in NOT_ASCII


def mapping(cp):
    """(decode map, entries) where entries are (u, code) in stored order."""
    source, bestfit_conv = SOURCES[cp]
    dec = decode_map(cp)
    enc = encoder(source)
    ascii_ok = is_ascii_compatible(cp)
    entries = []
    for code, u in dec.items():
        preferred = enc(chr(u)) if enc else code
        entries.append((u, 0 if preferred == code else 1, code))
    known = set(dec.values())
    best = dict(glibc_one_way(bestfit_conv, known)) if bestfit_conv else {}
    best.update(EXTRA_BEST_FIT.get(cp, {}))
    for u, code in best.items():
        if u in known or len(code) > 2:
            continue
        if code in dec and dec[code] > u:
            continue  # would shadow the code's own mapping on the way back
        if code not in dec and not (ascii_ok and len(code) == 1 and code[0] < 0x80):
            continue
        entries.append((u, 0, code))
    candidates = []
    for u, rank, code in sorted(entries):
        if u == 0 or code[0] == 0 or u > 0xFFFF:
            continue
        if ascii_ok and u < 0x80 and code[0] < 0x80:
            continue  # ASCII passes the table in both directions
        candidates.append((u, code))
    kept = drop_repeated_codes(candidates)
    check_preferred(cp, kept, dec, enc)
    return dec, kept


def drop_repeated_codes(entries):
    """A code delta of 0 ends a section, so a run of one code keeps its first."""
    kept = []
    previous = {1: b"\0", 2: b"\0\0"}
    for u, code in entries:
        if previous[len(code)] == code:
            continue
        previous[len(code)] = code
        kept.append((u, code))
    return kept


def from_unicode(entries):
    """u -> code as the loader sees it: one-byte section first, first entry wins."""
    first = {}
    for width in (1, 2):
        for u, code in entries:
            if len(code) == width:
                first.setdefault(u, code)
    return first


def check_preferred(cp, entries, dec, enc):
    if enc is None:
        return
    first = from_unicode(entries)
    for u in set(dec.values()):
        if u in first and enc(chr(u)) != first[u]:
            sys.stderr.write("tablegen: %d: U+%04X encodes to %s, table gives %s\n"
                             % (cp, u, enc(chr(u)), first[u]))


def pack_full(ascii_ok, entries):
    out = bytearray(b"a" if ascii_ok else b"x")
    out += b"u"
    for width in (1, 2):
        code_prev = 0
        u_prev = 0
        mask = 0xFF if width == 1 else 0xFFFF
        for u, code in entries:
            if len(code) != width:
                continue
            value = code[0] if width == 1 else (code[0] << 8) | code[1]
            delta = (value - code_prev) & mask
            out += struct.pack("<B" if width == 1 else "<H", delta)
            out += struct.pack("<H", (u - u_prev) & 0xFFFF)
            code_prev, u_prev = value, u
        out += b"\0" * width
    return bytes(out)


def pack_diff_10001():
    # Mac Japanese differs from 932 in the single bytes A0, FD and FE, which
    # 932 gives to private-use characters.
    out = bytearray(b"ad")
    for u in (0xF8F0, 0xF8F1, 0xF8F2):
        out += struct.pack("<H", u)
    out += b"\0\0"
    for code, u in ((0xA0, 0x00A0), (0xFD, 0x00A9), (0xFE, 0x2122)):
        out += struct.pack("<BH", code, u)
    out += b"\0"
    out += b"\0\0"
    return bytes(out)


def stored_text(table):
    packed = struct.pack("<II", MAGIC, len(table)) + bz2.compress(table, 9)
    return "c" + base64.b64encode(packed).decode("ascii")


def pieces(text):
    return [text[i:i + PIECE_CHARS] for i in range(0, len(text), PIECE_CHARS)]


HEAD = ("// %s - generated by tools/tablegen/tablegen.py; do not edit\n"
        "//\n// Packed conversion tables; see textlib/charset/ConversionTables.h.\n\n"
        "#include \"textlib/charset/tables/StoredTables.h\"\n\n"
        "namespace textlib_tables {\n\n")


def literal_lines(name, parts):
    lines = ["static const char* const %s[] = {" % name]
    lines += ['    "%s",' % p for p in parts]
    lines.append("};")
    return lines


def write_file(outdir, name, body):
    with open(os.path.join(outdir, name), "w", newline="\n") as f:
        f.write(HEAD % name + "\n".join(body) + "\n\n}  // namespace textlib_tables\n")


def single_byte_pages():
    return sorted(cp for cp in SOURCES if cp not in MULTI_BYTE)


def generate(outdir):
    os.makedirs(outdir, exist_ok=True)
    index = []
    body = []
    for cp in single_byte_pages():
        _, entries = mapping(cp)
        text = stored_text(pack_full(is_ascii_compatible(cp), entries))
        body += literal_lines("kCp%d" % cp, pieces(text))
        body.append("extern const StoredTable kTable%d = {kCp%d, %d};\n"
                    % (cp, cp, len(pieces(text))))
        index.append(cp)
    write_file(outdir, "SingleByteTables.cpp", body)
    for cp in MULTI_BYTE:
        _, entries = mapping(cp)
        parts = pieces(stored_text(pack_full(True, entries)))
        body = literal_lines("kCp%d" % cp, parts)
        body.append("extern const StoredTable kTable%d = {kCp%d, %d};" % (cp, cp, len(parts)))
        if cp == 932:
            diff = pieces(stored_text(pack_diff_10001()))
            body += [""] + literal_lines("kCp10001Diff", diff)
            body.append("const StoredTable kDiff10001 = {kCp10001Diff, %d};" % len(diff))
        write_file(outdir, "Cp%dTable.cpp" % cp, body)
        index.append(cp)
    write_index(outdir, sorted(index))
    write_ibm_extension(outdir)


# The IBM extension area of Shift-JIS (lead bytes FA-FC) by JIS row and cell.
# The decoder's table is the full, regular layout (FA 80-8F and FC 40-4B
# included), so that text from any encoder comes back; our own encoder keeps
# its narrower ranges.
IBM_FORWARD = [(0xFA, 0x5C, 0x7E, 0x79, -0x3B), (0xFA, 0x80, 0xBA, 0x79, -0x3C),
               (0xFA, 0xBB, 0xFC, 0x7A, -0x9A), (0xFA, 0x40, 0x49, 0x7C, 0x31),
               (0xFA, 0x55, 0x57, 0x7C, 0x27), (0xFB, 0x40, 0x5B, 0x7A, 0x23),
               (0xFB, 0x5C, 0x7E, 0x7B, -0x3B), (0xFB, 0x80, 0xBA, 0x7B, -0x3C),
               (0xFB, 0xBB, 0xFC, 0x7C, -0x9A), (0xFC, 0x40, 0x4B, 0x7C, 0x23)]


def jis_to_sjis(row, cell):
    lead = (row + 1) // 2 + (0x70 if row < 0x5F else 0xB0)
    if row % 2 == 0:
        trail = cell + 0x7E
    else:
        trail = cell + (0x1F if cell < 0x60 else 0x20)
    return bytes([lead, trail])


def ibm_extension_table():
    """376 Shift-JIS pairs for JIS rows 0x79-0x7C, cells 0x21-0x7E."""
    folded = {}
    for lead, low, high, row, shift in IBM_FORWARD:
        for trail in range(low, high + 1):
            folded.setdefault((row, trail + shift), bytes([lead, trail]))
    out = bytearray()
    for row in range(0x79, 0x7D):
        for cell in range(0x21, 0x7F):
            code = folded.get((row, cell))
            if code is None:
                standard = jis_to_sjis(row, cell)
                try:
                    code = standard.decode("cp932").encode("cp932")
                except UnicodeError:
                    code = standard
            out += code
    return base64.b64encode(bytes(out)).decode("ascii")


def write_ibm_extension(outdir):
    body = ["extern const char kIbmExtensionTable[] =",
            "    \"%s\";" % ibm_extension_table()]
    write_file(outdir, "IbmExtensionTable.cpp", body)


def write_index(outdir, pages):
    body = ["extern const StoredTable %s;" % ", ".join("kTable%d" % cp for cp in pages), ""]
    body.append("const StoredTable* storedTable(uint32_t codePage) {")
    body.append("    switch (codePage) {")
    for cp in pages:
        same = [k for k, v in SAME_AS.items() if v == cp]
        for alias in sorted(same):
            body.append("    case %d:" % alias)
        body.append("    case %d: return &kTable%d;" % (cp, cp))
    body.append("    default: return nullptr;")
    body.append("    }")
    body.append("}")
    write_file(outdir, "StoredTableIndex.cpp", body)


def write_reference(path):
    """Per page: what the source decodes and how it encodes it, as hex lines."""
    with open(path, "w") as f:
        for cp in sorted(SOURCES):
            dec, entries = mapping(cp)
            ascii_ok = is_ascii_compatible(cp)
            f.write("page %d %s\n" % (cp, "a" if ascii_ok else "x"))
            for code, u in sorted(dec.items()):
                if u == 0 or u > 0xFFFF or (ascii_ok and code[0] < 0x80):
                    continue
                f.write("d %s %04x\n" % (code.hex(), u))
            first = from_unicode(entries)
            for u in sorted(first):
                if ascii_ok and u < 0x80:
                    continue  # written as itself, never looked up
                f.write("e %04x %s\n" % (u, first[u].hex()))


def main(argv):
    if len(argv) == 3 and argv[1] == "--reference":
        write_reference(argv[2])
    elif len(argv) == 2:
        generate(argv[1])
    else:
        sys.stderr.write(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
