#!/usr/bin/python3
"""Every leaf of every corpus message, decoded by our engine and by Python's email package.

Usage: crosscheck.py TOOL [CORPUS_DIR] [--max-unexplained=N]

TOOL is telmoraq-mime (its --json mode gives our tree with each body as
stored: UTF-8 for text, the decoded bytes otherwise). Python reads the same
file with policy.default. Leaves are paired in order where both trees have the
same number of leaves; where the numbers differ, a tree rule must make them
agree or the message is unexplained. Leaves must agree on content type, file name and
bytes or text, or differ in a way that a rule of our engine prescribes; each
such class is checked as such, never assumed: the byte and text rules rebuild
what our reading gives (our tolerant base64 and quoted-printable are modelled
here), and the tree rules (REREADS) have Python read the message again with
our rule applied by hand, after which every leaf must agree. Every leaf that no rule explains
is named; the exit status is 1 when there are more of them than
--max-unexplained allows (0 by default), so that the count can only go down.
"""
import codecs
import collections
import concurrent.futures
import difflib
import email
import email.header
import email.policy
import json
import os
import re
import subprocess
import sys

RULES = {
    'no-type': 'no Content-Type: we keep none, Python assumes a default type',
    'bad-type': 'a media type without "/" is kept as written; Python falls back to text/plain',
    'name-as-filename': 'file name only from Content-Disposition; Python falls back to the name parameter',
    'line-ends': 'bare LF line ends repaired to CR LF throughout',
    'latin1': 'us-ascii or no charset with 8-bit bytes read as iso-8859-1',
    'utf8-pair': 'no charset, and a C2/C3 pair: read as UTF-8',
    'cp1252-c1': 'quoted-printable iso-8859-1 with C1 bytes read as windows-1252',
    'raw-text': 'text kept as its raw bytes (an attachment, or zero bytes in a non-UTF-16 part)',
    'replacement': 'bytes the charset does not map: Python puts U+FFFD, our tables drop or map them',
    'binary line-ends': 'binary part without transfer encoding: bare LF repaired to CR LF',
    'last line end': 'the line end before a missing or mangled delimiter stays with the part',
    'python-undecoded': 'broken transfer encoding: Python gives the encoded text back, we decode tolerantly',
    'qp-trailing-blanks': 'quoted-printable: trailing white space of a line is dropped',
    'base64 stop': 'base64 decoding stops at the first "=" (Python reads on)',
    'no delimiter': 'multipart without a delimiter line: the whole body is kept as text (Python keeps what stands before its closer)',
    'unclosed nesting': 'unclosed multiparts nested: each level takes the last two bytes of its body for a line end',
    'qp line breaks': 'quoted-printable hard line break decoded as CR LF (Python: LF)',
    'python-header-cut': 'a header line without a colon: we drop it and read on, Python ends the header there',
    'delimiter without dashes': 'the boundary followed by a line end or "--" is a delimiter wherever it stands (the dashes are not searched)',
    'c1-dropped': 'ISO-8859 C1 control bytes 0x80-0x9F: our tables drop them, Python keeps U+0080-U+009F',
    'jis-table': 'JIS X 0208 read with the Windows table (U+FF5E, U+FF0D, U+2225 ...; Python: the JIS table)',
    'gbk-superset': 'gb2312 declared, read as its superset GBK (code page 936); Python stops at GBK-only bytes',
    'python-no-codec': 'a charset Python has no codec for under this name; checked with its codec under another name',
    'unknown-charset-latin1': 'a charset name we do not know: 8-bit text read as iso-8859-1 (C1 bytes dropped by our table)',
    'gbk-superset, unclosed nesting': 'gb2312 read as GBK, in unclosed multiparts that each take two bytes for a line end',
    'cp936 euro': 'code page 936 reads the single byte 0x80 as the euro sign (Python: not mapped); unmapped bytes dropped',
    'jis via shift-jis': 'iso-2022-jp without escapes goes through Shift-JIS: its 8-bit bytes read with code page 932 (half-width katakana)',
    'gb18030 as GBK': 'gb18030 read as GBK (code page 936): its four-byte sequences are not mapped',
    'bom-dropped': 'UTF-16 byte order mark dropped in the conversion (Python keeps U+FEFF)',
    'second blank line': 'a part that begins with a blank line: up to two CR LF pairs are skipped before the body',
    'type ends at blank': 'media type ends at the first blank (Python reads on to ";")',
    'headerless multipart': 'a file that begins with a delimiter line is read as multipart/mixed with that boundary',
    'bare LF before delimiter': 'the two bytes before a delimiter are taken for CR LF even where the line ends in a bare LF',
    'decoded before parameters': 'encoded words decoded in the whole field before its parameters are read (Python: not in an unquoted value)',
    'blanks removed in parameters': 'blanks and tabs of an unquoted parameter value are removed',
    'quoted string ends at a line end': 'a quoted parameter value ends at a CR or LF in its decoded text',
    'python-tspecial': 'Python ends an unquoted parameter value at a special character such as "/" or "="',
    'header ANSI code page': 'raw 8-bit header without a C2/C3 pair or a charset name: read in the ANSI code page 1252',
    'later parameter wins': 'a parameter given twice: the later wins (messages; Python takes the first)',
    'later Content-Type wins': 'two Content-Type fields: the later wins unless it is the last field (messages)',
    'nesting limit': 'multiparts nested deeper than 100 levels: the innermost is kept whole as a leaf',
    'empty part': 'a part of fewer than 5 bytes between two delimiters makes no node (Python: an empty text part)',
    'header cut, later Content-Type': 'header lines without a colon dropped, then the later of the Content-Type fields wins',
    'multipart kept whole': 'a multipart without a parameter named "boundary" (the starred form is another name), with an empty one, or without a delimiter by our search: one leaf with the whole body',
    'python-bom-header': 'a UTF-8 byte order mark before the first field: our header reads on over it; Python ends the header there',
    'header ends at CR LF CR LF': 'a header of bare LF lines runs on to the first CR LF CR LF (a double LF does not end it): one leaf with what follows',
    'parts cut as ours': 'read again with every multipart cut as ours cuts it: the boundary and its line end found without the dashes, a padded line no delimiter, parts under 5 bytes dropped',
    'zero byte ends repaired copy': 'line ends repaired: the repaired copy ends at the first zero byte',
}


def our_tree(tool, path):
    out = subprocess.run([tool, '--json', path], capture_output=True, timeout=60)
    if out.returncode != 0:
        return None
    nodes = []
    for line in out.stdout.decode('utf-8', 'surrogateescape').splitlines():
        node = json.loads(line)
        node['bytes'] = bytes.fromhex(node.pop('body'))
        nodes.append(node)
    return nodes


def py_leaves(part):
    # message/* stays a leaf, as our engine splits only multipart bodies.
    if part.get_content_maintype() == 'message' or not part.is_multipart():
        return [part]
    leaves = []
    for child in part.get_payload():
        if isinstance(child, email.message.Message):
            leaves.extend(py_leaves(child))
    return leaves


def raw_bytes(part):
    try:
        data = part.get_payload(decode=True)
    except Exception:
        data = None
    return data if isinstance(data, bytes) else b''


def only_replacements(ours, theirs):
    """Every difference is U+FFFD on Python's side, dropped or mapped on ours."""
    matcher = difflib.SequenceMatcher(None, ours, theirs, autojunk=False)
    changed = False
    for tag, _, _, j1, j2 in matcher.get_opcodes():
        if tag == 'equal':
            continue
        if not theirs[j1:j2] or set(theirs[j1:j2]) != {'\ufffd'}:
            return False
        changed = True
    return changed


B64_ALPHABET = b'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/'


def our_base64(text):
    """Our tolerant reading: stop at "=" or NUL, skip what is not in the alphabet."""
    bits, count, out = 0, 0, bytearray()
    for byte in text:
        if byte in (0x3D, 0):
            break
        index = B64_ALPHABET.find(bytes([byte]))
        if index < 0:
            continue
        bits, count = (bits << 6) | index, count + 6
        if count >= 8:
            count -= 8
            out.append((bits >> count) & 0xFF)
    return bytes(out)


def our_quoted_printable(text, line_end=b'\r\n'):
    """Our reading, line by line; trailing blanks go, "=" tests the low 7 bits."""
    out = bytearray()
    hexdigits = b'0123456789abcdefABCDEF'
    lines = text.split(b'\0')[0].split(b'\n')
    for number, line in enumerate(lines):
        has_lf = number < len(lines) - 1
        line = line.rstrip(b'\r \t')
        soft = False
        i = 0
        while i < len(line):
            byte = line[i]
            if byte & 0x7F != 0x3D:
                out.append(byte)
            elif i == len(line) - 1:
                soft = True
            elif i + 2 < len(line) and line[i + 1] in hexdigits and line[i + 2] in hexdigits:
                value = int(line[i + 1:i + 3], 16)
                out.append(value)
                i += 2
            else:
                out.append(byte)
            i += 1
        if has_lf and not soft:
            out += line_end
    return bytes(out)


def encoded_payload(part):
    # The stored payload keeps 8-bit bytes as surrogates; get_payload would
    # replace them.
    payload = part._payload
    if isinstance(payload, str):
        return payload.encode('ascii', 'surrogateescape')
    return b''


def has_defect(part, name):
    return any(type(defect).__name__ == name for defect in part.defects)


def to_crlf(data):
    return data.replace(b'\r', b'').replace(b'\n', b'\r\n')


def after_blank_line(data):
    """What follows the first blank line, as our header reading goes on to it."""
    data = data.replace(b'\r\n', b'\n')
    return data.split(b'\n\n', 1)[1] if b'\n\n' in data else b''


def header_cut(node, part):
    if not has_defect(part, 'MissingHeaderBodySeparatorDefect'):
        return False
    rest = after_blank_line(encoded_payload(part))
    if node['encoding'].strip().lower() == 'base64':
        return node['bytes'] == our_base64(rest)
    return node['bytes'].replace(b'\r\n', b'\n') == rest


def header_cut_text(node, part):
    if not has_defect(part, 'MissingHeaderBodySeparatorDefect'):
        return False
    rest = to_crlf(after_blank_line(encoded_payload(part)))
    if node['encoding'].strip().lower() == 'quoted-printable' and \
            node['bytes'] == our_quoted_printable(rest):
        return True
    ours = lf(node['bytes'].decode('utf-8', 'surrogateescape'))
    try:
        theirs = lf(part.get_content())
    except Exception:
        return False
    return isinstance(theirs, str) and theirs.endswith(ours)


def binary_class(node, raw, part, boundaries=()):
    ours = node['bytes']
    encoding = node['encoding'].strip().lower()
    encoded = encoded_payload(part)
    if encoding == 'base64':
        if ours == our_base64(encoded):
            if raw in (encoded, b''.join(encoded.splitlines())):
                return 'python-undecoded'
            tail = encoded.split(b'=', 1)[1] if b'=' in encoded else b''
            if raw.startswith(ours) and tail.strip(b'=\r\n \t'):
                return 'base64 stop'
        crlf = to_crlf(encoded)
        for boundary in boundaries:
            for pos in (crlf.find(boundary + b'\r\n'), crlf.find(boundary + b'--')):
                if pos >= 4 and ours == our_base64(crlf[:pos - 4]):
                    return 'delimiter without dashes'
        trimmed = encoded.rstrip(b'\r\n')
        depth = node['path'].count('.') + 1
        for cut in range(1, depth + 1):
            if ours == our_base64(trimmed[:-2 * cut]) and ours != raw:
                return 'unclosed nesting'
        return None
    if encoding == 'quoted-printable':
        crlf = encoded.replace(b'\r', b'').replace(b'\n', b'\r\n')
        for text in (encoded, crlf):
            if ours == our_quoted_printable(text) and raw == our_quoted_printable(text, b'\n'):
                return 'qp line breaks'
        return None
    if ours == to_crlf(raw):
        return 'binary line-ends'
    if ours.replace(b'\r\n', b'\n').rstrip(b'\n') == raw.replace(b'\r\n', b'\n').rstrip(b'\n'):
        return 'last line end'
    return None


def no_delimiter(node, part, raw):
    """Our multipart node without parts keeps its whole body; Python's payload is a prefix."""
    if not node['content_type'].startswith('multipart/') or node['parts'] != 0:
        return False
    ours = node['bytes'].replace(b'\r\n', b'\n')
    theirs = raw.replace(b'\r\n', b'\n')
    if not ours.startswith(theirs):
        return 'zero byte ends repaired copy' if b'\0' in theirs and \
            ours == theirs[:theirs.index(b'\0')] else False
    rest = ours[len(theirs):].lstrip(b'\n')
    boundary = (part.get_boundary() or '').encode('utf-8', 'surrogateescape')
    if rest == b'' or boundary and rest.startswith(b'--' + boundary):
        return 'no delimiter'
    return False


def lf(text):
    return text.replace('\r\n', '\n')


def text_class(ours_bytes, part, raw, node):
    ours = ours_bytes.decode('utf-8', 'surrogateescape')
    try:
        theirs = part.get_content()
    except Exception:
        theirs = raw.decode('utf-8', 'replace')
    if isinstance(theirs, bytes):
        theirs = theirs.decode('utf-8', 'replace')
    if not isinstance(theirs, str):
        theirs = raw.decode('utf-8', 'replace')
    if ours == theirs:
        return None
    if lf(ours) == lf(theirs):
        return 'line-ends'
    ours, theirs = lf(ours), lf(theirs)
    raw_text = lf(raw.decode('latin-1'))
    if ours_bytes == raw or lf(ours_bytes.decode('latin-1')) == raw_text:
        if node['disposition'].lower() == 'attachment' or b'\0' in raw:
            return 'raw-text'
    declared = (part.get_param('charset') or '').lower()
    if declared in ('', 'us-ascii', 'ascii') and ours == raw_text:
        return 'latin1'
    try:
        as_utf8 = lf(raw.decode('utf-8'))
    except UnicodeDecodeError:
        as_utf8 = None
    if as_utf8 is not None and declared == '' and ours == as_utf8:
        return 'utf8-pair'
    if declared in ('iso-8859-1', 'latin1', 'us-ascii') and \
            ours == lf(raw.decode('cp1252', 'replace')).replace('\ufffd', ''):
        return 'cp1252-c1'
    if only_replacements(ours, theirs):
        return 'replacement'
    if bare_lf_cut(ours, theirs, part, node):
        return 'bare LF before delimiter'
    if headerless(part) and ours in theirs:
        return 'headerless multipart'
    if theirs.startswith('\n') and theirs[1:] == ours and not node['content_type']:
        return 'second blank line'
    if unclosed_text(ours, theirs, node):
        return 'unclosed nesting'
    if node['encoding'].strip().lower() == 'base64' and \
            ours_bytes == our_base64(encoded_payload(part)) and \
            (has_defect(part, 'InvalidBase64CharactersDefect') or
             has_defect(part, 'InvalidBase64LengthDefect') or
             has_defect(part, 'InvalidBase64PaddingDefect')):
        return 'python-undecoded'
    peer = peer_charset_class(ours, theirs, raw, declared, node)
    if peer:
        return peer
    encoded = part.get_payload(decode=False)
    if isinstance(encoded, str) and lf(encoded) == theirs and \
            part.get('content-transfer-encoding', '').strip().lower() in ('base64', 'quoted-printable'):
        return 'python-undecoded'
    strip = lambda text: '\n'.join(line.rstrip(' \t') for line in text.split('\n'))
    if node['encoding'].lower() == 'quoted-printable' and strip(ours) == strip(theirs):
        return 'qp-trailing-blanks'
    return 'UNEXPLAINED text'


# Windows table on our side, JIS table on Python's: the same JIS X 0208 codes.
JIS_PAIRS = str.maketrans({'\u301c': '\uff5e', '\u2212': '\uff0d', '\u2016': '\u2225',
                           '\u00a2': '\uffe0', '\u00a3': '\uffe1', '\u00ac': '\uffe2',
                           '\u2014': '\u2015'})
codecs.register_error('cp936-euro', lambda error: (
    '\u20ac' if error.object[error.start:error.end] == b'\x80' else '', error.end))


# Unmapped bytes drop one by one.
codecs.register_error('cp932-drop', lambda error: ('', error.start + 1))
PYTHON_CODEC = {'windows-874': 'cp874', 'x-mac-cyrillic': 'mac_cyrillic'}


def decoded(raw, codec):
    return lf(raw.decode(codec, 'replace'))


def bare_lf_cut(ours, theirs, part, node):
    """We lost the last character and the bare LF behind it, which Python drops itself."""
    encoded = encoded_payload(part)
    return bool(theirs) and ours == theirs[:-1] and encoded + b'\n' in node['file'] and \
        encoded + b'\r\n' not in node['file']


def headerless(part):
    """Python's root without header fields, over a file that starts with a delimiter."""
    root = part
    return not root.keys() and root.get_payload(decode=False).lstrip(' \t\r\n').startswith('--')


def unclosed_text(ours, theirs, node):
    ours = ours.replace('\n', '\r\n')
    depth = node['path'].count('.') + 1
    for text in (theirs, theirs.replace('\n', '\r\n'), theirs.replace('\n', '\r\n').rstrip('\r\n')):
        if any(ours == text[:len(text) - 2 * cut] for cut in range(1, depth + 1)):
            return True
    return False


def peer_charset_class(ours, theirs, raw, declared, node):
    if declared.startswith('iso-8859') and \
            ours == ''.join(c for c in theirs if not '\x80' <= c <= '\x9f'):
        return 'c1-dropped'
    if declared in ('iso-2022-jp', 'shift_jis', 'euc-jp') and ours == theirs.translate(JIS_PAIRS):
        return 'jis-table'
    if declared in ('gb2312', 'gb18030'):
        gbk = decoded(raw, 'gbk').replace('\ufffd', '')
        if ours == gbk:
            return 'gbk-superset' if declared == 'gb2312' else 'gb18030 as GBK'
        if unclosed_text(ours, gbk, node):
            return 'gbk-superset, unclosed nesting'
        if ours == lf(raw.decode('gbk', 'cp936-euro')):
            return 'cp936 euro'
    if declared == 'iso-2022-jp' and b'\x1b' not in raw and \
            ours == lf(raw.decode('cp932', 'cp932-drop')):
        return 'jis via shift-jis'
    if declared in PYTHON_CODEC and ours == decoded(raw, PYTHON_CODEC[declared]):
        return 'python-no-codec'
    if declared and not node['charset'] and \
            ours == ''.join(c for c in lf(raw.decode('latin-1')) if not '\x80' <= c <= '\x9f'):
        return 'unknown-charset-latin1'
    if theirs.startswith('\ufeff') and ours == theirs[1:]:
        return 'bom-dropped'
    return None


def raw_param(part, field, name):
    """The parameter as it stands in the raw field, quotes taken off."""
    for key, value in part._headers:
        if key.lower() != field:
            continue
        text = str(value).encode('ascii', 'surrogateescape')
        text = re.sub(rb'\r?\n[ \t]', b' ', text)
        found = re.search(rb'(?i)(?:^|;)\s*' + name.encode() + rb'\s*=\s*("[^"]*"|[^;]*)', text)
        if found:
            return found.group(1).strip().strip(b'"')
    return None


def decode_words(text):
    """Encoded words decoded, a language suffix taken off the charset, backslashes kept."""
    pieces = []
    for chunk, charset in email.header.decode_header(text):
        if isinstance(chunk, str):
            pieces.append(chunk)
            continue
        try:
            pieces.append(chunk.decode((charset or 'latin-1').split('*')[0], 'replace'))
        except LookupError:
            pieces.append(chunk.decode('latin-1'))
    return ''.join(pieces)


def filename_class(node, part, py_name):
    ours = node['filename']
    if header_cut(node, part) or has_defect(part, 'MissingHeaderBodySeparatorDefect') and \
            not py_name and ours.encode() in encoded_payload(part):
        return 'python-header-cut'
    raw = raw_param(part, 'content-disposition', 'filename')
    if raw is None:
        return None
    text = raw.decode('latin-1')
    no_blanks = lambda value: value.replace(' ', '').replace('\t', '')
    if b'=?' in raw:
        decoded = decode_words(text)
        if ours in (decoded, no_blanks(decoded)):
            return 'decoded before parameters'
        if ours == re.split('[\r\n]', decoded)[0] != decoded:
            return 'quoted string ends at a line end'
    if any(byte >= 0x80 for byte in raw) and b'\xc2' not in raw and b'\xc3' not in raw and \
            ours == raw.decode('cp1252', 'ignore'):
        return 'header ANSI code page'
    if ours == no_blanks(text) and ours != text and py_name == text.split()[0]:
        return 'blanks removed in parameters'
    if ours == text and py_name and text.startswith(py_name) and \
            text[len(py_name)] in '()<>@,;:\\"/[]?=':
        return 'python-tspecial'
    return None


def drop_first_duplicate_boundary(data):
    """A field with two boundary parameters loses the first."""
    changed = re.sub(rb'(?i)boundary\s*=\s*("[^"]*"|[^;\s]*)\s*;\s*(?=boundary\s*=)', b'', data, 1)
    return changed if changed != data else None


def drop_earlier_content_type(data):
    """In a header with two Content-Type fields, the earlier goes unless the later is last."""
    lines = data.split(b'\n')
    start = 0
    while start < len(lines):
        fields = []  # [first line, last line] of each field of this block
        end = start
        while end < len(lines) and lines[end].strip(b'\r') != b'':
            if lines[end][:1] in (b' ', b'\t') and fields:
                fields[-1][1] = end
            else:
                fields.append([end, end])
            end += 1
        types = [i for i, (first, _) in enumerate(fields)
                 if lines[first].lower().startswith(b'content-type:')]
        if len(types) >= 2 and types[-1] != len(fields) - 1:
            first, last = fields[types[0]]
            return b'\n'.join(lines[:first] + lines[last + 1:])
        start = end + 1
    return None


def drop_header_lines_without_colon(data):
    """Lines of the message header that hold no colon go, as ours drops them."""
    lines = data.split(b'\n')
    kept = []
    for number, line in enumerate(lines):
        if line.strip(b'\r') == b'':
            kept.extend(lines[number:])
            break
        # A name with blanks is no field name to Python; ours keeps it as a
        # field that nothing looks up.
        if line[:1] in (b' ', b'\t') or b':' in line and not re.search(rb'[ \t]', line.split(b':')[0]):
            kept.append(line)
    return b'\n'.join(kept) if len(kept) != len(lines) else None


def quote_unquoted_boundary(data):
    """An unquoted boundary with special characters gets quotes, as ours reads it whole."""
    changed = re.sub(rb'(?i)(boundary\s*=\s*)([^"\s;]*[()<>@,:\\/\[\]?=][^"\s;]*)',
                     rb'\1"\2"', data)
    return changed if changed != data else None


def our_parts(body, boundary):
    """The parts our multipart road cuts: the boundary with its line end is
    searched without the dashes, the closer only once no delimiter is left."""
    delimiter, bare = boundary + b'\r\n', False
    found = body.find(delimiter)
    if found < 0:
        found = body.find(boundary + b'\n')
        delimiter, bare = (boundary + b'\n', True) if found >= 0 else (delimiter, False)
    if found < 0:
        return None
    start, parts, cut = found + len(boundary), [], 1 if bare else 2
    while True:
        following = body.find(delimiter, start)
        last = False
        if following < 0:
            following = body.find(boundary + b'--', start)
            last = following >= 0
        if following >= 0:
            span, end = following - start - cut, following - 2 * cut
        else:
            span, end = len(body) - start, len(body) - cut
        if span >= 5:
            parts.append(body[start + cut:end])
        if last or following < 0:
            return parts
        start = following + len(boundary)


def header_and_body(data):
    found = re.search(rb'\r?\n\r?\n', data)
    return (data[:found.start()], data[found.end():]) if found else (data, b'')


def resplit(data, depth=0):
    """The message with each multipart cut by our rule and joined again with a
    fresh boundary that Python cannot find anywhere else."""
    data = drop_header_lines_without_colon(data) or data
    header, body = header_and_body(data)
    header = drop_earlier_content_type(header) or header
    field = re.search(rb'(?im)^content-type:[ \t]*((?:.*)(?:\r?\n[ \t].*)*)', header)
    if not field or depth > 50:
        return data
    value = re.sub(rb'\r?\n', b'', field.group(1))
    media = re.split(rb'[ \t;]', value, 1)[0].lower()
    boundary = re.search(rb'(?i)boundary\s*=\s*("[^"]*"|[^;\s]*)', value)
    if not media.startswith(b'multipart/') or not boundary or not boundary.group(1).strip(b'"'):
        return data
    boundary = boundary.group(1).strip(b'"')
    parts = our_parts(body, boundary)
    if parts is None:
        return data
    fresh = b'=_resplit_%d_=' % depth
    lines = header.split(b'\n')
    kept, skipping = [], False
    for line in lines:
        if line[:1] in (b' ', b'\t') and skipping:
            continue
        skipping = line.lower().startswith(b'content-type:')
        if not skipping:
            kept.append(line)
    kept.append(b'Content-Type: %s; boundary="%s"' % (media, fresh))
    joined = b''.join(b'\r\n--' + fresh + b'\r\n' + resplit(part, depth + 1) for part in parts)
    return b'\n'.join(kept) + b'\r\n\r\n' + joined + b'\r\n--' + fresh + b'--\r\n'


def split_ours(data):
    # Bare LF line ends are repaired before anything is cut; the repaired
    # copy ends at the first zero byte.
    repaired = to_crlf(data).split(b'\0')[0] if re.search(rb'(?<!\r)\n', data) else data
    changed = resplit(repaired)
    return changed if changed != data else None


def header_cut_then_later_type(data):
    """Colonless lines dropped, then of the Content-Type fields now in the header the winner kept."""
    changed = drop_header_lines_without_colon(data)
    while changed is not None and drop_earlier_content_type(changed) is not None:
        changed = drop_earlier_content_type(changed)
    return changed


def drop_leading_bom(data):
    return data[3:] if data.startswith(b'\xef\xbb\xbf') else None


# Differences of tree shape that a rule of ours explains: Python reads the
# message again with the rule applied by hand, and then every leaf must agree.
REREADS = [
    ('later parameter wins', drop_first_duplicate_boundary),
    ('later Content-Type wins', drop_earlier_content_type),
    ('python-header-cut', drop_header_lines_without_colon),
    ('python-tspecial', quote_unquoted_boundary),
    ('parts cut as ours', split_ours),
    ('python-bom-header', drop_leading_bom),
    ('header cut, later Content-Type', header_cut_then_later_type),
]


STRUCTURE = 'leaf counts differ'
MAX_NESTING = 100  # MimeMessage2::kMaxNestingDepth


def kept_whole(nodes, data):
    """A multipart message that is one leaf of ours: no parameter named exactly
    "boundary" (a starred form is another name), an empty one, or no delimiter
    by our search; the whole body is kept."""
    header, _ = header_and_body(data)
    field = re.search(rb'(?im)^content-type:[ \t]*((?:.*)(?:\r?\n[ \t].*)*)', header)
    body = to_crlf(after_blank_line(data))
    if len(nodes) != 1 or not nodes[0]['content_type'].startswith('multipart/') or \
            not field or nodes[0]['bytes'] != body:
        return False
    value = re.sub(rb'^([^;\s]*)[\s;]+', rb'\1;', field.group(1))
    value = re.sub(rb'[ \t\r\n]', b'', value)
    found = re.search(rb'(?i);boundary=("[^"]*"|[^;]*)', value)
    boundary = found.group(1).strip(b'"') if found else b''
    return not boundary or our_parts(body, boundary) is None


def header_to_first_crlf_pair(nodes, data):
    """A header of bare LF lines runs on to the first CR LF CR LF, past the
    double LF that ends it for Python; one leaf holds what follows."""
    crlf, lflf = data.find(b'\r\n\r\n'), data.find(b'\n\n')
    if len(nodes) != 1 or crlf < 0 or not 0 <= lflf < crlf:
        return False
    rest = data[crlf + 4:]
    if nodes[0]['encoding'].strip().lower() == 'base64':
        return nodes[0]['bytes'] == our_base64(rest)
    return nodes[0]['bytes'] == rest


def check_message(nodes, path, counts, failures):
    if nodes is None:
        failures.append((path, '', 'tool failed'))
        return
    with open(path, 'rb') as f:
        data = f.read()
    mine_counts, mine = collections.Counter(), []
    compare(nodes, data, path, mine_counts, mine)
    if mine:
        for rule, transform in REREADS:
            changed = transform(data)
            if changed is None:
                continue
            again_counts, again = collections.Counter(), []
            compare(nodes, changed, path, again_counts, again)
            if not again:
                mine_counts, mine = again_counts, []
                mine_counts[rule] += 1
                break
    if mine and all(what == STRUCTURE for _, _, what in mine):
        if kept_whole(nodes, data):
            mine_counts['multipart kept whole'] += 1
            mine = []
        elif header_to_first_crlf_pair(nodes, data):
            mine_counts['header ends at CR LF CR LF'] += 1
            mine = []
    counts.update(mine_counts)
    failures.extend(mine)


def compare(nodes, data, path, counts, failures):
    message = email.message_from_bytes(data, policy=email.policy.default)
    for node in nodes:
        node['file'] = data
    ours = [n for n in nodes if n['parts'] == 0 and n['path'] != '.' or len(nodes) == 1]
    theirs = py_leaves(message)
    boundaries = [p.get_boundary().encode('utf-8', 'surrogateescape')
                  for p in message.walk() if p.get_boundary()]
    if len(ours) != len(theirs):
        failures.append((path, '', STRUCTURE))
        return
    for node, part in zip(ours, theirs):
        where = node['path']
        counts['leaves'] += 1
        py_type = part.get_content_type()
        if node['content_type'] != py_type:
            if node['content_type'] == '' and part['content-type'] is None:
                counts['no-type'] += 1
            elif '/' not in node['content_type'] and part['content-type'] is not None:
                counts['bad-type'] += 1
            elif node['content_type'].startswith('multipart/') and \
                    node['path'].count('.') + 1 >= MAX_NESTING:
                counts['nesting limit'] += 1
                continue
            elif node['content_type'].startswith('multipart/') and node['parts'] == 0 and \
                    not part.keys() and not encoded_payload(part).strip():
                counts['empty part'] += 1
            elif has_defect(part, 'MissingHeaderBodySeparatorDefect') and \
                    part['content-type'] is None and node['content_type'] and \
                    re.search(rb'(?im)^content-type:\s*' + re.escape(node['content_type'].encode()),
                              encoded_payload(part)):
                counts['python-header-cut'] += 1
            elif node['content_type'] and py_type.startswith(node['content_type']) and \
                    py_type[len(node['content_type'])] in ' \t':
                counts['type ends at blank'] += 1
            else:
                failures.append((path, where, 'type %r vs %r' % (node['content_type'], py_type)))
                continue
        py_name = part.get_filename() or ''
        if node['filename'] != py_name:
            if node['filename'] == '' and py_name == (part.get_param('name') or py_name):
                counts['name-as-filename'] += 1
            elif filename_class(node, part, py_name):
                counts[filename_class(node, part, py_name)] += 1
            else:
                failures.append((path, where, 'file name %r vs %r' % (node['filename'], py_name)))
        raw = raw_bytes(part)
        is_text = py_type.startswith('text/') or node['content_type'] == ''
        if not is_text or py_type.startswith('message/'):
            if py_type.startswith('message/'):
                counts['attached messages'] += 1
            elif node['bytes'] == raw:
                counts['binary equal'] += 1
            elif no_delimiter(node, part, raw):
                counts[no_delimiter(node, part, raw)] += 1
            elif header_cut(node, part):
                counts['python-header-cut'] += 1
            elif binary_class(node, raw, part, boundaries):
                counts[binary_class(node, raw, part, boundaries)] += 1
            else:
                failures.append((path, where, 'binary bytes differ (%d vs %d)'
                                 % (len(node['bytes']), len(raw))))
            continue
        verdict = text_class(node['bytes'], part, raw, node)
        if verdict and verdict.startswith('UNEXPLAINED') and header_cut_text(node, part):
            verdict = 'python-header-cut'
        if verdict is None:
            counts['text equal'] += 1
        elif verdict.startswith('UNEXPLAINED'):
            failures.append((path, where, 'text differs'))
        else:
            counts[verdict] += 1


def main():
    args = [a for a in sys.argv[1:] if not a.startswith('--')]
    limit = 0
    for option in sys.argv[1:]:
        if option.startswith('--max-unexplained='):
            limit = int(option.split('=', 1)[1])
    if not args:
        print(__doc__)
        return 2
    tool = args[0]
    corpus = args[1] if len(args) > 1 else os.path.join(
        os.path.dirname(os.path.abspath(__file__)), '..', '..', '..', 'shared', 'corpus')
    if not os.path.isdir(corpus):
        print('crosscheck: no corpus at %s: skipped' % corpus)
        return 0
    files = sorted(os.path.join(d, f) for d, _, names in os.walk(corpus)
                   for f in names if f.endswith('.eml'))
    counts = collections.Counter()
    failures = []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        trees = pool.map(lambda path: (path, our_tree(tool, path)), files)
        for path, nodes in trees:
            try:
                check_message(nodes, path, counts, failures)
            except Exception as error:  # Python's own parser gave up: no verdict on us
                counts['python failed'] += 1
                print('python could not read %s: %s' % (path, error))
    print('%d messages, %d leaves compared' % (len(files), counts.pop('leaves', 0)))
    for key, value in sorted(counts.items(), key=lambda kv: -kv[1]):
        print('  %6d  %s' % (value, RULES.get(key, key)))
    for path, where, what in failures:
        print('UNEXPLAINED %s [%s]: %s' % (path, where, what))
    print('%d unexplained (at most %d allowed)' % (len(failures), limit))
    return 1 if len(failures) > limit else 0


if __name__ == '__main__':
    sys.exit(main())
