"""Opening in a process of its own: a message can be made so that opening it never ends.

The child is a fresh interpreter, so the parent may have any threads. Secrets come by its standard input; the message and
what it opens to lie in files without a name, for pipes would take as long as the opening. All are lists of fields, each
behind its length. The child imports the library's declarations alone: the rest of the package would double the time that
it takes to start.
"""

from __future__ import annotations

import ctypes
import faulthandler
import mmap
import os
import resource
import struct
import sys

from . import _library as library

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any, Iterable, List

    from ._texts import Data

_LENGTH = struct.Struct("!Q")
_AFTER_THE_PARENT = 1.0
_START = """
import sys
package = type(sys)("kestrune")
package.__path__ = [sys.argv[1]]
sys.modules["kestrune"] = package
from kestrune._child import main
main(*map(int, sys.argv[2:]))
"""


class ChildFailed(Exception):
    """The child ended without an answer."""


def _write(file: Any, fields: Iterable[Any]) -> None:
    for field in fields:
        file.write(_LENGTH.pack(len(field)))
        file.write(field)


def _read(packed: Any) -> List[bytes]:
    fields, at = [], 0
    while at < len(packed):
        (length,) = _LENGTH.unpack_from(packed, at)
        at += _LENGTH.size
        fields.append(packed[at : at + length])
        at += length
    return fields


def open_in_child(grey: bytes, folder: bytes, pass_phrase: Data, deadline: float) -> List[bytes]:
    """The fields of `library.open_message`. TimeoutError when the deadline is over, ChildFailed when it crashed."""
    with open(os.memfd_create("message"), "wb") as message, open(os.memfd_create("opened"), "rb") as answer:
        message.write(grey)
        message.flush()
        _run((message.fileno(), answer.fileno()), [b"%f" % deadline, folder, pass_phrase], deadline)
        with mmap.mmap(answer.fileno(), 0, access=mmap.ACCESS_READ) as opened:
            return _read(opened)


def _run(files: Iterable[int], secrets: List[Data], deadline: float) -> None:
    import subprocess

    package = os.path.dirname(os.path.abspath(__file__))
    command = [sys.executable, "-I", "-S", "-c", _START, package, *map(str, files)]
    pipe, nowhere = subprocess.PIPE, subprocess.DEVNULL
    request = bytearray().join(part for field in secrets for part in (_LENGTH.pack(len(field)), field))
    try:
        with subprocess.Popen(command, stdin=pipe, stdout=nowhere, stderr=pipe, pass_fds=tuple(files)) as child:
            try:
                _, complaint = child.communicate(request, timeout=deadline)
            except subprocess.TimeoutExpired:
                raise TimeoutError from None
            finally:
                child.kill()  # whatever ended the waiting, an interrupt too; nothing when it has ended
    finally:
        request[:] = bytes(len(request))
    if child.returncode != 0:
        last = complaint.decode(errors="replace").strip().rpartition("\n")[2]
        raise ChildFailed(f"it ended with status {child.returncode}: {last}")


def main(message: int, answer: int) -> None:
    """The child's whole life."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    deadline, folder, pass_phrase = _read(sys.stdin.buffer.read())
    # For a parent that was killed: this process would sleep for ever.
    faulthandler.dump_traceback_later(float(deadline) + _AFTER_THE_PARENT, exit=True)
    size = os.fstat(message).st_size
    grey = (ctypes.c_char * size).from_buffer(mmap.mmap(message, size, access=mmap.ACCESS_COPY)) if size else b""
    with open(answer, "wb") as file:
        _write(file, library.open_message(grey, folder, pass_phrase))
