#!/usr/bin/env python3
"""Writes the flat_*.hex files beside it: flat block trees, made without the library that they test."""
import hashlib
import pathlib
import struct


def cell(name, xml=b"", data=b"", subs=()):
    body = data or b"".join(subs)
    name = name.encode()
    return struct.pack(">BBB5sQQ", 2, 1 if subs else 0, len(name), name, len(xml), len(body)) + xml + body


def write(name, tree):
    flat = tree + hashlib.sha512(tree).digest()
    rows = [flat[i:i + 32].hex(" ") for i in range(0, len(flat), 32)]
    pathlib.Path(__file__).with_name(f"flat_{name}.hex").write_text("\n".join(rows) + "\n")


write("leaf", cell("TEXT", b"ab", b"xyz"))
write("message", cell("RED", subs=[
    cell("ROUT", b"<M>\n<F>dr.a</F>\n</M>"),
    cell("TEXT", b"<SIGN>\n</SIGN>", b"Bonjour\nBob"),
    cell("PJ", b"<AT><N>YS5wZGY=</N></AT>", bytes(range(256))),
    cell("PJ", b"<AT></AT>", bytes(300)),
]))
write("nested", cell("DEEP5", b"<root/>", subs=[
    cell("", subs=[
        cell("A", b"\0", subs=[cell("B", b"x", b"\xff" * 40), cell("")]),
        cell("A", b"<second/>", b"\n"),
    ]),
    cell("EMPTY"),
    cell("TAIL", subs=[cell("TAIL", subs=[cell("TAIL", subs=[cell("END", b"e")])])]),
]))
