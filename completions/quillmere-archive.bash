# shellcheck shell=bash
# Completion of quillmere-archive's command line in bash. Needs nothing but bash itself.

# Prints the options that the command $1 takes; those of the program while there is none.
_quillmere_archive_options() {
  case $1 in
    init) echo '--server --compress --help -h' ;;
    sync)
      echo '--client --policy --schedule --newer-than --limit --skip --jobs --timeout' \
        '--keep-free --again --metrics --dry-run --quiet --help -h'
      ;;
    list) echo '--sets --images --json --stale --help -h' ;;
    verify) echo '--jobs --help -h' ;;
    prune) echo '--older-than --keep-last --dry-run --yes --force --help -h' ;;
    find)
      echo '--client --policy --schedule --before --after --substring --ignore-case --newest' \
        '--json --help -h'
      ;;
    entries)
      echo '--client --policy --schedule --before --after --format --columns --header --help -h'
      ;;
    *) echo 'init sync list verify prune find entries --help -h --version' ;;
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
      --again | --dry-run | --quiet | --sets | --images | --json | --yes | --force) ;;
      --substring | --ignore-case | --newest | --header) ;;
      --*) option=$word ;;
      *) command=${command:-$word} ;;
    esac
  done

  if [[ $option ]]; then
    return # Every value is free text.
  fi
  if [[ $command && $current != -* ]]; then
    if [[ $command == entries ]]; then
      compopt -o default # documents, too
    else
      compopt -o plusdirs # the archive
    fi
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$(_quillmere_archive_options "$command")" -- "$current")
}

complete -F _quillmere_archive quillmere-archive
