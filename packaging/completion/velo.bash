# Completion of velo for bash: what can be typed next is what `velo complete` says.
_velo() {
  local line=${COMP_LINE:0:COMP_POINT} words typed=${COMP_WORDS[COMP_CWORD]} IFS=$' \t\n'
  read -ra words <<<"$line"
  [[ $line != *[[:blank:]] ]] || words+=("")
  local whole=${words[-1]} word
  COMPREPLY=()
  # The shell takes a word to begin behind the last colon.
  local before=${whole%"$typed"}
  while IFS= read -r word; do
    if [[ $word == :files ]]; then
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$typed")
      return
    fi
    COMPREPLY+=("${word#"$before"}")
  done < <("${words[0]}" complete -- "${words[@]:1}" 2>/dev/null)
}
complete -F _velo velo
