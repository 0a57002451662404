#!/usr/bin/python3
"""check_delivered.py MANIFEST MAILDIR - what the test server received against
what the mail objects held. MANIFEST: one tab-separated line per message in
the order sent: queue file, hex UTF-8 of From address, recipients (blank-
separated), plain body, HTML body; number of attachments. Prints each fault."""

import email
import email.policy
import re
import sys


def parse(data):
    return email.message_from_bytes(data, policy=email.policy.compat32)


def normalised(text):
    return "\n".join(l.rstrip() for l in text.replace("\r\n", "\n").split("\n")).strip("\n")


def text_of(part):
    return (part.get_payload(decode=True) or b"").decode(part.get_content_charset() or "ascii", "replace")


def is_base64(part):
    return part.get("Content-Transfer-Encoding", "").strip().lower() == "base64"


def stored_leaves(message):
    """Decoded leaves (also with LF line ends), and whether the message is whole:
    no defect seen by Python's parser and clean Base64. A damaged message has
    no single right reading to compare with."""
    found, whole = set(), True
    for part in message.walk():
        whole = whole and not part.defects
        if not part.is_multipart():
            payload = part.get_payload(decode=True) or b""
            found.update((payload, payload.replace(b"\r\n", b"\n")))
            if is_base64(part):
                raw = re.sub(r"\s+", "", str(part.get_payload()))
                whole = whole and len(raw) % 4 == 0 and re.fullmatch(r"[A-Za-z0-9+/]*={0,2}", raw)
    return found, whole


def split_received(message, plain, html):
    """(plain part, HTML part, attachments) of a composed message."""
    bodies, attachments = message, []
    if message.get_content_type() == "multipart/mixed":
        children = message.get_payload()
        bodies, attachments = (children[0], children[1:]) if plain or html else (None, children)
    if bodies is not None and bodies.get_content_type() == "multipart/alternative":
        return bodies.get_payload()[0], bodies.get_payload()[1], attachments
    return (bodies if plain else None), (bodies if html and not plain else None), attachments


def check(number, fields, maildir):
    path, sender, rcpts, plain, html, count = fields
    sender, rcpts, plain, html = (bytes.fromhex(f).decode() for f in (sender, rcpts, plain, html))
    stem = "%s/%04d" % (maildir, number)
    with open(stem + ".env") as f:
        env = [line.rstrip("\n").split(" ", 1) for line in f if line.strip()]
    if [v for k, v in env if k == "mail_from"] != [sender]:
        yield "envelope sender"
    if [v for k, v in env if k == "rcpt_to"] != rcpts.split(" "):
        yield "recipients"
    with open(stem + ".eml", "rb") as f:
        received = parse(f.read())
    if any(k.lower().startswith("x-nvqueueservice-") for k in received.keys()):
        yield "a control header went out"
    if sender not in str(received.get("From", "")):
        yield "From header %r" % received.get("From")
    got_plain, got_html, attachments = split_received(received, plain, html)
    for want, got in ((plain, got_plain), (html, got_html)):
        if want and (got is None or normalised(text_of(got)) != normalised(want)):
            yield "a body differs"
    if len(attachments) != int(count):
        yield "%d attachments, wanted %s" % (len(attachments), count)
    with open(path, "rb") as f:
        stored, whole = stored_leaves(parse(f.read()))
    # Binary attachments only (text may be re-encoded on the way), of whole messages.
    for part in [p for p in attachments if whole and is_base64(p)]:
        payload = part.get_payload(decode=True)
        if payload not in stored and payload.replace(b"\r\n", b"\n") not in stored:
            yield "attachment %s is not byte-identical to a stored part" % part.get_filename()


def main():
    with open(sys.argv[1]) as f:
        lines = [line.rstrip("\n").split("\t") for line in f if line.strip()]
    faults = 0
    for number, fields in enumerate(lines, start=1):
        try:
            problems = list(check(number, fields, sys.argv[2]))
        except Exception as error:  # the oracle failing is a fault to see
            problems = ["checker failed: %r" % error]
        for problem in problems:
            print("%s (%04d): %s" % (fields[0], number, problem))
        faults += len(problems)
    print("checked %d messages, %d faults" % (len(lines), faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
