# shellcheck shell=bash
# Completion of quillmere-report's command line in bash. Needs nothing but bash itself.

_quillmere_report() {
  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $before in
    -o | --output)
      compopt -o default # the page
      return
      ;;
    --image | --set | --max-entries) return ;; # free text
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(
      compgen -W '-o --output --image --set --max-entries -h --help --version' -- "$current"
    )
  else
    compopt -o plusdirs # the archive
  fi
}

complete -F _quillmere_report quillmere-report
