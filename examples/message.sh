#!/usr/bin/env bash
# A message from its sender over the relay to its recipient, and what must go wrong on the way.
#   message.sh FOLDER-OF-PROGRAMS WORK-FOLDER GATEWAY-DOMAIN
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
PATH=$1:$PATH
rm -rf "$2"
mkdir "$2" && cd "$2"
umask 022
fail() { echo "message.sh: $*" >&2; exit 1; }
is() { [ "$2" = "$3" ] || fail "$1: wanted '$2', got '$3'"; }  # WHAT WANTED GOT
year=$(($(date +%Y) - 1900))
make_keys keys/ >/dev/null

# What cannot be sealed whole is refused before the keys are touched.
for ((i = 1; i <= 3000; i++)); do echo "ligne $i, les résultats"; done >long.txt
head -c 1000000 /dev/urandom >largest.pdf
head -c 1000001 /dev/zero >larger.pdf
cp long.txt 'a|b'
printf 'a\0b' >zero.txt
sum=$(cksum keys/*)
: >there.block
while IFS=: read -r options text; do
  read -ra words <<<"$options"
  block=refused.block
  [ "$options" ] || [ "$text" != long.txt ] || block=there.block
  seal "${words[@]}" keys/ "$text" $block 2>/dev/null && fail "sealed: $options $text"
done <<'END'
-a nix:long.txt
-a keys:long.txt
-a larger.pdf:long.txt
-a a|b:long.txt
-d 2026-13-31:long.txt
-d hier -a largest.pdf:long.txt
:nix
:keys
:zero.txt
:long.txt
END
is "keys after refused messages" "$sum" "$(cksum keys/*)"

seal -r 'dr.b@service.example,c@ailleurs.example' -s 'Résultats été' -d '2026-01-31 23:59:59' -a largest.pdf -a "$here/note.txt" \
  keys/ long.txt long.block >/dev/null
cp long.block damaged.block
printf x | dd of=damaged.block bs=1 seek=1000 conv=notrunc status=none
mkfifo pipe
routed=$(timeout 20 relay keys/ damaged.block pipe nix long.txt long.block long.block.grey) && fail "relay does not tell that some were bad"
to="-> dr.b@service.example,c@ailleurs.example, key durand.$((year + 100))"
is "routes" "damaged.block: refused: -73: WHY
pipe: refused: cannot be read
nix: refused: cannot be read
long.txt: refused: no block
long.block: medecin (medecin.z.$year) $to
long.block.grey: medecin (not signed) $to" "$(sed 's/\(-73: \).*/\1WHY/' <<<"$routed")"

note_bytes=$(stat -c %s "$here/note.txt")
is "opened" "Written by medecin.z.$year:
$(cat long.txt)
Attached, 1000000 bytes: largest.pdf
Attached, $note_bytes bytes: note.txt" "$(open long.block.grey keys/ <<<a_b_c_d)"

grey_to_eml long.block.grey keys/ long.eml <<<a_b_c_d
is "mode of a mail" 600 "$(stat -c %a long.eml)"
grey_to_eml long.block.grey keys/ long.eml <<<a_b_c_d 2>/dev/null && fail "a mail is written over another"
python3 "$here/../tests/mail/read_mail.py" .
hex() { od -An -v -tx1 "$1" | tr -d ' \n'; }
is "mail" "From: medecin$3
To: dr.b@service.example, c@ailleurs.example
Date: Sat, 31 Jan 2026 23:59:59 +002
Subject: Résultats été
Reply-To: medecin$3
X-KestruneV2MessageID: NEW" "$(head -n 6 long.read | sed 's/\(MessageID: \).*/\1NEW/')"
is "attachments" "$(hex largest.pdf | cksum) $(hex "$here/note.txt")" \
  "$(sed -n 's/.*; largest.pdf: //p' long.read | tr -d '\n' | cksum) $(sed -n 's/.*; note.txt: //p' long.read)"

# Without its sender's certificate nobody knows who wrote it; a wrong pass phrase opens nothing.
mkdir stranger && cp keys/[Md]* stranger/
for folder in stranger/ keys/; do
  phrase=a_b_c_d
  [ $folder = stranger/ ] || phrase=wrong
  [ -z "$(open long.block.grey $folder <<<$phrase 2>/dev/null)" ] || fail "shown from $folder"
  grey_to_eml long.block.grey $folder none.eml <<<$phrase 2>/dev/null && fail "a mail from $folder"
done

# A body that was cut leads into a sleep: the deadline ends it.
python3 - <<'END'
import hashlib
grey = open("long.block.grey", "rb").read()
body = 24 + int.from_bytes(grey[8:16], "big")
cut = grey[:16] + (40).to_bytes(8, "big") + grey[24:body + 40]
open("forged.grey", "wb").write(cut + hashlib.sha512(cut).digest())
END
is "opening a forged block" "opening: out of time" "$(open forged.grey keys/ 1 <<<a_b_c_d 2>&1)"
is "a mail of it" "opening: out of time" "$(grey_to_eml forged.grey keys/ none.eml 1 <<<a_b_c_d 2>&1)"
[ ! -e none.eml ] && [ ! -e refused.block ] || fail "a file that must not be there"
