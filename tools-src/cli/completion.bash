# Completes the quillmar command in bash. What there is to choose from comes from the command's own --help.
_quillmar() {
  local at="$COMP_CWORD" command="" value="" help words
  local word="${COMP_WORDS[at]#=}"  # "--option=value" comes as three words
  [[ "${COMP_WORDS[at]}" == "=" ]] || at=$((at - 1))
  [[ "${COMP_WORDS[at]}" != "=" ]] || at=$((at - 1))
  ((COMP_CWORD < 2)) || [[ "${COMP_WORDS[1]}" == -* ]] || command="${COMP_WORDS[1]}"
  help="$("$1" ${command:+"$command"} --help 2>/dev/null)"
  COMPREPLY=()

  if [[ "${COMP_WORDS[at]}" =~ ^--[a-z-]+$ ]]; then
    value="$(sed -nE "s/^  ${COMP_WORDS[at]} ([A-Z]+:)?([^ =]+).*/\2/p" <<<"$help")"
  fi
  case "$value" in
    FILE)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    DIR)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    "{"*) words="$(tr '{,}' ' ' <<<"$value")" ;;
    "") words="$(sed -nE 's/^  (-h,)?(--[a-z-]+|[a-z]+) .*/\2/p' <<<"$help")" ;;
    *) return ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if grep -q '^  CONFIG ' <<<"$help"; then  # an argument without a name
    compopt -o filenames 2>/dev/null
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _quillmar quillmar
