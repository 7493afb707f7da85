"""Opening in a process of its own: a message can be made so that opening it never ends.

The child is a fresh interpreter, so the parent may have any threads. It opens one message after another, for its start
takes longer than opening a megabyte; one that is late, or crashed, goes, and takes no other message along. Secrets come
by its standard input; the message and what it opens to lie in files without a name, for pipes would take as long as the
opening. All are lists of fields, each behind its length. The child imports the library's declarations alone: the rest
of the package would double the time that it takes to start.
"""

from __future__ import annotations

import atexit
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
    from typing import Any, Iterable, Iterator, List, Optional, Tuple

    from ._texts import Data

_LENGTH = struct.Struct("!Q")
_AFTER_THE_PARENT = 1.0
_MOST_IDLE = 4
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


def _packed(fields: Iterable[Any]) -> Iterator[Any]:
    for field in fields:
        yield _LENGTH.pack(len(field))
        yield field


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
    here = b"/" if os.path.isabs(folder) else os.getcwdb()
    secrets = (b"%f" % deadline, here, folder, pass_phrase)
    child = _take_idle()
    if child is not None:
        try:
            return child.open(grey, secrets, deadline)
        except ChildFailed:
            pass  # somebody may have killed it while it waited; what kills a child kills the next one, too
    return _Child().open(grey, secrets, deadline)


class _Child:
    def __init__(self) -> None:
        import subprocess

        self.owner = _owner()
        self._message, self._answer, self._complaint = (open(os.memfd_create("kestrune"), "r+b") for _ in range(3))
        files = (self._message.fileno(), self._answer.fileno())
        package = os.path.dirname(os.path.abspath(__file__))
        command = [sys.executable, "-I", "-S", "-c", _START, package, *map(str, files)]
        pipe = subprocess.PIPE
        self.process = subprocess.Popen(command, 0, None, pipe, pipe, self._complaint, pass_fds=files)

    def open(self, grey: bytes, secrets: Iterable[Data], deadline: float) -> List[bytes]:
        """When it has answered, it waits for the next message."""
        try:
            _replace(self._message, [grey])
            self._send(secrets)
            if not self._answers(deadline):
                raise ChildFailed(self._how_it_ended())
            with mmap.mmap(self._answer.fileno(), 0, access=mmap.ACCESS_READ) as opened:
                fields = _read(opened)
            for file in self._message, self._answer:
                _replace(file, [])
        except BaseException:  # whatever ended the waiting, an interrupt too
            self.end()
            raise
        if len(_idle) < _MOST_IDLE:
            _idle.append(self)
        else:
            self.end()
        return fields

    def _send(self, secrets: Iterable[Data]) -> None:
        fields = bytearray().join(part for field in secrets for part in (_LENGTH.pack(len(field)), field))
        assert self.process.stdin is not None
        try:
            for part in _LENGTH.pack(len(fields)), fields:
                left = memoryview(part)
                while left:
                    left = left[self.process.stdin.write(left) :]
        except BrokenPipeError:
            pass  # it answers no more, either
        finally:
            fields[:] = bytes(len(fields))

    def _answers(self, deadline: float) -> bool:
        import select

        assert self.process.stdout is not None
        waiting = select.poll()
        waiting.register(self.process.stdout, select.POLLIN)
        if not waiting.poll(deadline * 1000):
            raise TimeoutError
        return self.process.stdout.read(1) != b""

    def _how_it_ended(self) -> str:
        status = self.process.wait()
        self._complaint.seek(0)
        last = self._complaint.read().decode(errors="replace").strip().rpartition("\n")[2]
        return f"it ended with status {status}: {last}"

    def end(self) -> None:
        self.process.kill()
        self.process.wait()
        self.close()

    def close(self) -> None:
        for file in self._message, self._answer, self._complaint, self.process.stdin, self.process.stdout:
            if file is not None:
                file.close()


_idle: List[_Child] = []


def _owner() -> Tuple[int, ...]:
    return (*os.getresuid(), *os.getresgid())


def _take_idle() -> Optional[_Child]:
    """One that has this process' rights of today."""
    while True:
        try:
            child = _idle.pop()
        except IndexError:
            return None
        if child.owner == _owner() and child.process.poll() is None:
            return child
        child.end()


@atexit.register
def _end_idle() -> None:
    while _idle:
        _idle.pop().end()


def _leave_idle() -> None:
    """In a forked process: they are its parent's, and end when nobody holds their standard input any more."""
    while _idle:
        child = _idle.pop()
        child.process.returncode = 0  # nothing to wait for here
        child.close()


os.register_at_fork(after_in_child=_leave_idle)


def _replace(file: Any, parts: Iterable[Any]) -> None:
    file.seek(0)
    file.truncate()
    for part in parts:
        file.write(part)
    file.flush()


# ---- The child ---------------------------------------------------------------------------------------


def main(message: int, answer: int) -> None:
    """Its whole life: it ends with its standard input."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with open(answer, "r+b") as file:
        while True:
            length, request = bytearray(_LENGTH.size), bytearray()
            if _fill(length):
                request = bytearray(*_LENGTH.unpack(length))
            if not request or not _fill(request):
                return
            _open(message, file, request)
            os.write(sys.stdout.fileno(), b".")


def _fill(buffer: bytearray) -> bool:
    left = memoryview(buffer)
    while left:
        count = os.readv(sys.stdin.fileno(), [left])
        if count == 0:
            return False
        left = left[count:]
    return True


def _open(message: int, answer: Any, request: bytearray) -> None:
    deadline, here, folder, pass_phrase = _read(memoryview(request))
    # For a parent that was killed: this process would sleep for ever.
    faulthandler.dump_traceback_later(float(bytes(deadline)) + _AFTER_THE_PARENT, exit=True)
    os.chdir(bytes(here))
    size = os.fstat(message).st_size
    grey = (ctypes.c_char * size).from_buffer(mmap.mmap(message, size, access=mmap.ACCESS_COPY)) if size else b""
    _replace(answer, _packed(library.open_message(grey, bytes(folder), pass_phrase)))
    faulthandler.cancel_dump_traceback_later()
    request[:] = bytes(len(request))
