# shellcheck shell=bash
# Completion of quillmere's command line in bash. Needs nothing but bash itself.

# Prints the options that the action $1 takes; all of them while there is no action yet. Those that
# every action takes come last.
_quillmere_options() {
  local always='--action --verbose --help -h'
  case $1 in
    dump_backup_set_list) echo "--policy --client --count --output_dir $always" ;;
    dump_backup_set) echo "--policy --client --time --output_dir $always" ;;
    list_backups) echo "--policy --client --schedule $always" ;;
    dump_backup) echo "--backup_id --output_dir $always" ;;
    *) echo "--policy --client --schedule --time --count --backup_id --output_dir $always" ;;
  esac
}

_quillmere() {
  local current=${COMP_WORDS[COMP_CWORD]} option='' action='' word
  COMPREPLY=()

  # As the program walks them: an option takes the word behind it, whatever that looks like. In the
  # end $option is the one whose value is being typed, if any.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $option ]]; then
      [[ $option != --action ]] || action=$word
      option=''
      continue
    fi
    case $word in
      -h | --help) return ;; # Nothing behind it is looked at.
      --*) option=$word ;;
    esac
  done

  case $option in
    '') mapfile -t COMPREPLY < <(compgen -W "$(_quillmere_options "$action")" -- "$current") ;;
    --action)
      mapfile -t COMPREPLY < <(compgen -W \
        'dump_backup_set_list dump_backup_set list_backups dump_backup' -- "$current")
      ;;
    --output_dir)
      # Left to bash, which knows about quotes and the tilde.
      compopt -o plusdirs
      ;;
    --verbose) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3' -- "$current") ;;
    # Every other value is free text.
  esac
}

complete -F _quillmere quillmere
