import ast
import datetime
import email
import json
import os
import pathlib
import pickle
import shutil
import signal
import subprocess
import sys
import time

import kestrune
import pytest
from conftest import opened, sealed
from folder import BUILD, ROOT, YEAR
from kestrune import _sealing

import relay


def test_what_is_refused_says_why(folder):
    block = sealed().block
    grey = kestrune.check(block, keys="keys").grey
    protected = folder / "protected"
    protected.mkdir()
    shutil.copy(ROOT / "tests/data/rsa2048-protected.key", protected / f"medecin.z.{YEAR}.key")
    form = kestrune.encrypt("é" * 40, pass_phrase=b"a_b_c_d")
    by_intrus, by_medecin = (kestrune.sign("a", signer=name, keys="keys") for name in ("intrus", "medecin"))
    rows = [
        (kestrune.SignatureError, lambda: kestrune.verify("<SIGN></SIGN>", keys="keys")),
        (kestrune.SignatureError, lambda: kestrune.verify(by_intrus, keys="keys", signer="medecin")),
        (kestrune.UnknownSigner, lambda: kestrune.verify(by_medecin, keys=folder)),
        (kestrune.SignatureError, lambda: kestrune.verify(by_medecin, keys="others")),
        (kestrune.UnknownSigner, lambda: kestrune.check(block, keys=folder)),
        (kestrune.WrongPassPhrase, lambda: kestrune.sign("a", signer="medecin", keys=protected, pass_phrase=b"no")),
        (kestrune.WrongPassPhrase, lambda: opened(block, pass_phrase=bytearray(b"no"))),
        (kestrune.WrongPassPhrase, lambda: sealed(pass_phrase=b"no")),
        (kestrune.WrongPassPhrase, lambda: kestrune.decrypt(form, pass_phrase=b"other")),
        (kestrune.DamagedBlock, lambda: kestrune.decrypt(form[:-20] + "!" + form[-19:], pass_phrase=b"a_b_c_d")),
        (kestrune.DamagedBlock, lambda: kestrune.decrypt(form, keys="keys")),
        (kestrune.DamagedBlock, lambda: kestrune.check(block[:-1], keys="keys")),
        (kestrune.DamagedBlock, lambda: kestrune.route(b"")),
        (kestrune.DamagedBlock, lambda: opened(b"no block")),
        (kestrune.KeyNotFound, lambda: sealed(user="nobody")),
        (kestrune.InvalidArgument, lambda: kestrune.route(block)),
        (kestrune.InvalidArgument, lambda: kestrune.sign("a\0b", signer="medecin", keys="keys")),
        (kestrune.InvalidArgument, lambda: kestrune.encrypt("a" * 3744, to="medecin", keys="keys")),
        (kestrune.InvalidArgument, lambda: sealed(signer="../keys/medecin")),
        (kestrune.InvalidArgument, lambda: sealed(to="a</D><F>martin</F>")),
        (kestrune.InvalidArgument, lambda: sealed(to=["a@b.example,c@d.example"])),
        (kestrune.InvalidArgument, lambda: sealed(to=[])),
        (kestrune.InvalidArgument, lambda: opened(grey, deadline=0)),
        (kestrune.InvalidArgument, lambda: opened(grey, deadline=float("inf"))),
    ]  # fmt: skip
    for number, (kind, call) in enumerate(rows):
        with pytest.raises(kestrune.KestruneError) as raised:
            call()
        error = raised.value
        assert type(error) is kind, f"row {number}: {error!r}"
        assert error.cause and error.name and (error.code < 0) == ("::" in error.name), f"row {number}: {error!r}"
        assert pickle.loads(pickle.dumps(error)).args == error.args
    with pytest.raises(TypeError):
        sealed(pass_phrase="a_b_c_d")


def test_no_attachment_is_left_out(folder):
    (folder / "with|bar").mkdir()
    paths = [folder / "with|bar" / "a.bin", folder / "b.txt", folder / "large"]
    for path, content in zip(paths, (bytes(range(256)), b"", bytes(1_000_001))):
        path.write_bytes(content)
    many = [(f"{n}.txt", b"x" * n) for n in range(97)]
    block = sealed("", [paths[0], str(paths[1]), *many]).block
    message = opened(block)
    sent = [("a.bin", bytes(range(256))), ("b.txt", b""), *many]
    assert [(part.name, part.data) for part in message.attachments] == sent
    for refused in [paths[2], "missing", "keys", ("a|b", b""), ("../a", b""), ("a" * 250, b"")]:
        with pytest.raises(kestrune.AttachmentError):
            sealed("", [paths[1], refused, paths[1]])
    os.mkfifo("fifo")
    with pytest.raises(kestrune.AttachmentError):
        sealed("", ["fifo", paths[1]])
    with pytest.raises(kestrune.AttachmentError):
        sealed("", [("a", b"")] * 100)
    # What the length of a block must be, so that one that the library left out is noticed.
    sizes, lists = [(4, 5), (4, 0)], [b"x@y.example", b"", b""]
    block = sealed("Bonjour", [("a", b"12345"), ("b", b"")], to="x@y.example").block
    assert 0 <= len(block) - _sealing._least_length(block, b"Bonjour", sizes, lists) <= 58
    one_missing = sealed("Bonjour", [("a", b"12345")], to="x@y.example").block
    assert len(one_missing) < _sealing._least_length(one_missing, b"Bonjour", sizes, lists)


def test_a_message_comes_out_as_it_went_in():
    moment = datetime.datetime(2031, 5, 6, 7, 8, 9)
    given = sealed(
        "Grüße", [("a/b".replace("/", "\\"), b"\0\1")], to=["a@x.example", "b@y.example"], cc="c@z.example",
        bcc=["d@w.example"], reply_to="r", subject="Élève", date=moment,
    )  # fmt: skip
    message, outer = opened(given.block), kestrune.route(given.block, keys="keys")
    assert (message.text, message.routing.date, message.routing.reply_to) == ("Grüße", moment, "r")
    assert message.routing.to == ("a@x.example", "b@y.example") and message.routing.cc == ("c@z.example",)
    assert outer.to == ("a@x.example", "b@y.example", "c@z.example", "d@w.example")
    assert message.routing.identifier == outer.identifier == given.identifier
    assert message.verified and message.signature.signer == outer.signer == message.routing.signer
    assert [(part.name, part.safe_name) for part in message.attachments] == [("a\\b", "b")]
    mail = kestrune.to_mail(message)
    assert (mail["Subject"], mail["Date"].datetime.replace(tzinfo=None)) == ("Élève", moment)
    assert mail["From"].startswith("medecin@") and [part.get_content() for part in mail.iter_attachments()] == [b"\0\1"]
    zoned = moment.replace(tzinfo=datetime.timezone.utc)
    assert kestrune.route(sealed(date=zoned).block, keys="keys").date.astimezone() == zoned


def test_nobody_poses_as_another(folder):
    """Messages of somebody who signs as himself, outside and inside, and of one who changes what he signed."""
    rows = [("posed.tr", "intrus", 3), ("inside.tr", "medecin", 3), ("changed.tr", "scan.pdf", 1)]
    for name, named, problems in rows:
        block = (folder / name).read_bytes()
        with pytest.raises(kestrune.SignatureError, match=named):
            opened(block)
        message = opened(block, accept_unverified=True)
        assert not message.verified and len(message.problems) == problems, message.problems
    assert [part.signature.code for part in message.attachments] == [-68] and message.signature.by_sender
    posed = (folder / "posed.tr").read_bytes()
    for call in kestrune.check, kestrune.route:
        with pytest.raises(kestrune.SignatureError, match="intrus"):
            call(posed, keys="keys")
    assert kestrune.check(posed, keys="keys", any_signer=True).signer == f"intrus.z.{YEAR}"

    block = sealed(attachments=[("a", b"a")]).block
    shutil.copytree("keys", "unknown")
    os.remove(f"unknown/medecin.z.{YEAR}.pem")
    grey = kestrune.check(block, keys="keys").grey
    with pytest.raises(kestrune.UnknownSigner):
        opened(grey, keys="unknown")
    assert len(opened(grey, keys="unknown", accept_unverified=True).problems) == 3


def test_the_trap_ends_at_the_deadline(folder):
    grey = (folder / "trap.grey").read_bytes()
    start = time.monotonic()
    with pytest.raises(kestrune.DeadlineExceeded):
        opened(grey, deadline=datetime.timedelta(seconds=1.5))
    assert 1.4 < time.monotonic() - start < 10
    # A parent that is killed takes the child along, at the deadline at the latest.
    program = (
        f"import sys; sys.path.append({str(pathlib.Path(kestrune.__file__).parents[1])!r}); import kestrune, pathlib;"
        "kestrune.open_message(pathlib.Path('trap.grey').read_bytes(), keys='keys', pass_phrase=b'a_b_c_d', deadline=3)"
    )
    parent = subprocess.Popen([sys.executable, "-c", program])
    children = pathlib.Path(f"/proc/{parent.pid}/task/{parent.pid}/children")
    while not children.read_text():
        time.sleep(0.01)
    child = pathlib.Path("/proc", children.read_text().split()[0])
    time.sleep(1)
    for secret in "cmdline", "environ":
        assert b"a_b_c_d" not in (child / secret).read_bytes()
    os.kill(parent.pid, signal.SIGKILL)
    parent.wait()
    end = time.monotonic() + 20
    while child.exists() and "zombie" not in (child / "status").read_text():
        assert time.monotonic() < end
        time.sleep(0.05)


def test_a_process_opens_many_messages(folder, monkeypatch):
    block = (folder / "message.block").read_bytes()
    children = pathlib.Path(f"/proc/self/task/{os.getpid()}/children")
    opened(block)
    first = children.read_text()
    monkeypatch.chdir("keys")
    opened(block, keys=".")
    assert len(first.split()) == 1 and children.read_text() == first
    forked = os.fork()
    if forked == 0:
        try:
            os._exit(0 if opened(block, keys=".").verified else 1)
        finally:
            os._exit(2)
    assert os.waitpid(forked, 0)[1] == 0
    os.kill(int(first), signal.SIGKILL)
    assert opened(block, keys=".").verified and children.read_text() not in ("", first)


def test_safe_names(folder):
    taken = set()
    rows = [
        ("../../.profile", "profile"), ("C:\\a\\b.TXT", "b.TXT"), ("B.txt", "B (2).txt"), ("b.txt", "b (3).txt"),
        ("", "attachment"), ("..", "attachment (2)"), ("a\r\nb", "a__b"), ("x\u202etxt.exe", "x_txt.exe"), ("NUL.txt", "_NUL.txt"),
        ("é" * 300 + ".pdf", "é" * 98 + ".pdf"), ("a" * 300, "a" * 200), ("a" * 301, "a" * 196 + " (2)"), (" .a. ", "a"), ("-rf", "rf"),
    ]  # fmt: skip
    assert [kestrune.safe_name(name, taken) for name, _ in rows] == [safe for _, safe in rows]
    names = [part.safe_name for part in opened((folder / "names.tr").read_bytes()).attachments]
    assert names[:5] == ["profile", "attachment", "report.pdf", "Report (2).PDF", "rf"] and len(set(names)) == 8


def test_c_and_the_programs_understand_it(folder):

    def run(name, *arguments, given=""):
        program = [BUILD / name, *map(str, arguments)]
        return subprocess.run(program, input=given.encode(), stdout=subprocess.PIPE, check=True).stdout.decode()

    (folder / "note").write_text("Bonjour de C")
    run("examples/seal", "-s", "Été", "-a", "note", "keys/", "note", "c.block")
    message = opened(pathlib.Path("c.block").read_bytes())
    assert (message.text, message.routing.subject, message.attachments[0].name) == ("Bonjour de C", "Été", "note")
    pathlib.Path("py.block").write_bytes(sealed("Bonjour de Python", [("a.txt", b"1234")]).block)
    assert f"medecin (medecin.z.{YEAR})" in run("examples/relay", "keys/", "py.block")
    shown = run("examples/open", "py.block.grey", "keys/", given="a_b_c_d\n")
    assert f"medecin.z.{YEAR}" in shown and "Bonjour de Python" in shown and "4 bytes: a.txt" in shown
    run("examples/grey_to_eml", "py.block.grey", "keys/", "py.eml", given="a_b_c_d\n")
    mail = email.message_from_bytes(pathlib.Path("py.eml").read_bytes())
    ours = kestrune.to_mail(opened(pathlib.Path("py.block").read_bytes()))
    names = ["From", "To", "Reply-To", "X-KestruneV2MessageID"]
    assert [mail[name] for name in names] == [ours[name] for name in names]
    (folder / "pass").write_text("a_b_c_d")
    by_file = "-k", "keys", "--passphrase-file", "pass"
    run("kestrune", "seal", *by_file, "-s", "medecin", "--to", "b", "--attach", "note", "-o", "k.block", given="Bonjour, Python")
    message = opened(pathlib.Path("k.block").read_bytes())
    assert (message.text, message.attachments[0].data) == ("Bonjour, Python", b"Bonjour de C")
    run("kestrune", "open", *by_file, "-o", "opened", "py.block")
    assert "Bonjour de Python" in (folder / "opened/message.txt").read_text()
    assert (folder / "opened/a.txt").read_bytes() == b"1234"
    told = json.loads(run("kestrune", "route", "-k", "keys", "--json", "py.block"))
    routing = kestrune.route(pathlib.Path("py.block").read_bytes(), keys="keys")
    assert (told["sender"], told["identifier"], told["key"]) == (routing.sender, routing.identifier, routing.key)
    assert kestrune.verify(run("kestrune", "sign", "-k", "keys", "-s", "medecin", "Texte"), keys="keys").text == "Texte"
    assert "Texte" in run("kestrune", "verify", "-k", "keys", given=kestrune.sign("Texte", signer="medecin", keys="keys"))
    for way in dict(pass_phrase=b"a_b_c_d"), dict(keys="keys"):
        form = kestrune.encrypt("été", **way, **({"to": "medecin"} if "keys" in way else {}))
        options = () if "keys" in way else by_file[2:]
        assert run("kestrune", "decrypt", "-k", "keys", *options, given=form) == "été"
        to = ("--to", "medecin") if "keys" in way else options
        assert kestrune.decrypt(run("kestrune", "encrypt", "-k", "keys", *to, given="été"), **way) == "été"
    assert kestrune.verify(run("examples/sign", "keys/", "medecin", "Texte", given="\n"), keys="keys").text == "Texte"
    assert "Texte" in run("examples/verify", "keys/", given=kestrune.sign("Texte", signer="medecin", keys="keys"))


def test_a_relay_ends_with_a_report(folder):
    report = relay.run(folder, messages=24, workers=4, deadline=4)
    assert report == {"delivered": 22, "DamagedBlock": 1, "DeadlineExceeded": 1}


def test_sources_are_for_the_oldest_python_and_one_version():
    for source in pathlib.Path(kestrune.__file__).parent.glob("*.py"):
        ast.parse(source.read_text(), feature_version=(3, 9))
    header = (ROOT / "include/kestrune/kestrune.h").read_text()
    assert f'"{kestrune.__version__}"' in header and kestrune.library_version() == kestrune.__version__
