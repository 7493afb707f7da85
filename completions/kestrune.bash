# Completion of kestrune for bash. Commands and options are those that its help shows, whatever its language.
_kestrune_words() {
  "$@" --help 2>/dev/null | sed -n 's/^  \([a-z]\{1,\}\)  .*/\1/p; s/^  \(-[a-z]\), \(--[a-z-]*\).*/\1\n\2/p; s/^      \(--[a-z-]*\).*/\1/p'
}

# Names of the key folder's files, as the pattern makes them.
_kestrune_keys() {
  local folder=${KESTRUNE_KEYS:-${XDG_DATA_HOME:-$HOME/.local/share}/kestrune/keys} i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in -k | --keys) folder=${COMP_WORDS[i + 1]} ;; esac
  done
  # shellcheck disable=SC2012
  ls -- "${folder/#\~/$HOME}" 2>/dev/null | sed -n "$1" | sort -u
}

_kestrune() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command=() i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -k | --keys | --color) ((i++)) ;;
      -*) ;;
      *) [[ ${#command[@]} -eq 0 || (${#command[@]} -eq 1 && ${command[0]} = keys) ]] && command+=("${COMP_WORDS[i]}") ;;
    esac
  done
  compopt -o filenames 2>/dev/null
  case "${command[0]} $prev" in
    *" -k" | *" --keys" | "open -o" | "open --output") mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
    *" --color") mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$cur"); return ;;
    *" -s" | *" --signer") mapfile -t COMPREPLY < <(compgen -W "$(_kestrune_keys 's/\.[a-z]\.[0-9]*\.key$//p')" -- "$cur"); return ;;
    *" -u" | *" --user") mapfile -t COMPREPLY < <(compgen -W "$(_kestrune_keys '/^Master\./d; s/\.2[0-9][0-9]$//p')" -- "$cur"); return ;;
    "encrypt --to") mapfile -t COMPREPLY < <(compgen -W "$(_kestrune_keys 's/\.pem$//p')" -- "$cur"); return ;;
    *" --to" | *" --cc" | *" --bcc" | *" --reply-to" | *" --subject" | *" --date" | *" --deadline" | *" -j" | *" --jobs" | *"-fd") return ;;
  esac
  if [[ $cur = -* || ${#command[@]} -eq 0 || (${#command[@]} -eq 1 && ${command[0]} = keys) ]] &&
    [[ $prev != -o && $prev != --output && $prev != --*file && $prev != --attach && $prev != --eml && $prev != --xml ]]; then
    compopt +o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -W "$(_kestrune_words "${COMP_WORDS[0]}" "${command[@]}")" -- "$cur")
    # Options are offered when one is begun.
    [[ -n $cur ]] || mapfile -t COMPREPLY < <(printf '%s\n' "${COMPREPLY[@]}" | grep -v '^-')
    return
  fi
  case ${command[0]} in explain | bench) return ;; esac
  mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}
complete -F _kestrune kestrune
