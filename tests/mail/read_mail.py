"""Reads each *.eml of a folder with Python's email package and writes what it found to *.read."""

import email
import email.errors
import email.header
import email.policy
import pathlib
import sys


def unfolded(value):
    return str(value).replace("\r\n", "").replace("\n", "")


def decoded(value):
    try:
        return str(email.header.make_header(email.header.decode_header(value)))
    except (email.errors.HeaderParseError, LookupError, UnicodeError):
        return value


def report(message):
    lines = []
    for name, value in message.raw_items():
        if name == "Subject":
            value = decoded(unfolded(value))
        if not name.startswith(("Content-", "MIME-")):
            lines.append(f"{name}: {unfolded(value)}")
    for part in message.walk():
        lines += [f"defect {defect!r}" for defect in part.defects]
        if part.is_multipart():
            continue
        # A fold may tear the encoded word of a name: the space behind it is the fold's too.
        name = decoded(unfolded(part.get_filename("None").replace("\n ", "\n")))
        kind = f"{part.get_content_type()}; {part.get_param('charset')}; {name}"
        lines.append(f"{kind}: {part.get_payload(decode=True).hex()}")
    return "".join(line + "\n" for line in lines)


for path in pathlib.Path(sys.argv[1]).glob("*.eml"):
    mail = email.message_from_bytes(path.read_bytes(), policy=email.policy.compat32)
    path.with_suffix(".read").write_bytes(report(mail).encode("utf-8", "surrogateescape"))
