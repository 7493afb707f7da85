# Completion of kestrunesign for bash.
_kestrunesign() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} folder=. i
  COMPREPLY=()
  case $prev in
    -k)
      compopt -o nospace 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -S / -- "$cur")
      return ;;
    -s)
      # Names of keys: what stands before ".LETTER.YEAR.key" in the key folder.
      for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -k ]] && folder=${COMP_WORDS[i + 1]}
      done
      mapfile -t COMPREPLY < <(compgen -W "$(cd -- "${folder/#\~/$HOME}" 2>/dev/null &&
        printf '%s\n' *.key | sed -n 's/\.[a-z]\.[0-9]*\.key$//p' | sort -u)" -- "$cur")
      return ;;
    -i | -p) return ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '-i -s -p -k -v -x' -- "$cur")
}
complete -F _kestrunesign kestrunesign
