# shellcheck shell=bash
# Completion of quillmere-archive's command line in bash. Needs nothing but bash itself.

# Prints the options that the command $1 takes; those of the program while there is none.
_quillmere_archive_options() {
  case $1 in
    init) echo '--server --compress --help -h' ;;
    sync)
      echo '--client --policy --schedule --newer-than --limit --skip --jobs --timeout' \
        '--keep-free --dry-run --quiet --help -h'
      ;;
    list) echo '--sets --images --json --stale --help -h' ;;
    verify) echo '--jobs --help -h' ;;
    *) echo 'init sync list verify --help -h --version' ;;
  esac
}

_quillmere_archive() {
  local current=${COMP_WORDS[COMP_CWORD]} option='' command='' word
  COMPREPLY=()

  # In the end $option is the one whose value is being typed, if any.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $option ]]; then
      option=''
      continue
    fi
    case $word in
      -h | --help | --version) return ;; # Nothing else is looked at.
      --dry-run | --quiet | --sets | --images | --json) ;;
      --*) option=$word ;;
      *) command=${command:-$word} ;;
    esac
  done

  if [[ $option ]]; then
    return # Every value is free text.
  fi
  if [[ $command && $current != -* ]]; then
    compopt -o plusdirs # the archive
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$(_quillmere_archive_options "$command")" -- "$current")
}

complete -F _quillmere_archive quillmere-archive
