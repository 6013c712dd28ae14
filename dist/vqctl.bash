# bash completion for vqctl, the client of the Orvantis Personal Server.
# Commands and options come from vqctl's own --help texts, task keys from the running server.

# Sets _vqctl_text to the --help text of a command of vqctl, asked once per shell.
declare -gA _vqctl_help_texts=()
_vqctl_help() {
  local program=$1
  shift
  local key="$program $*"
  if [[ -z ${_vqctl_help_texts[$key]+set} ]]; then
    _vqctl_help_texts[$key]=$("$program" "$@" --help 2>/dev/null)
  fi
  _vqctl_text=${_vqctl_help_texts[$key]}
}

# The names listed in one section ("Subcommands:", "Options:") of a help text; options are
# split where a help line gives several spellings (-h,--help).
_vqctl_section() {
  awk -v heading="$1" '
    $0 == heading { inside = 1; next }
    inside && /^$/ { exit }
    inside && /^  [^ ]/ { n = split($1, names, ","); for (i = 1; i <= n; i++) print names[i] }'
}

# Whether an option takes a value: its help line gives a type one blank after the name, where
# a flag's line goes on with the padding before its description.
_vqctl_takes_value() {
  awk -v option="$1" '
    /^  -/ { n = split($1, names, ","); for (i = 1; i <= n; i++) if (names[i] == option) { print ($0 ~ /^  [^ ]+ [^ ]/); exit } }'
}

_vqctl() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  local program=${COMP_WORDS[0]/#\~/$HOME}
  COMPREPLY=()

  # The command words typed so far (config get, queue start, ...): each one found among the
  # commands of the one before.
  local -a path=()
  local _vqctl_text help i word
  _vqctl_help "$program"
  help=$_vqctl_text
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if _vqctl_section "Subcommands:" <<< "$help" | grep -qxF -- "$word"; then
      path+=("$word")
      _vqctl_help "$program" "${path[@]}"
      help=$_vqctl_text
    fi
  done

  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_vqctl_section "Options:" <<< "$help")" -- "$cur")
    return
  fi
  local prev=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $prev == -* && $(_vqctl_takes_value "$prev" <<< "$help") == 1 ]]; then
    compopt -o default 2>/dev/null
    return
  fi
  local commands
  commands=$(_vqctl_section "Subcommands:" <<< "$help")
  if [[ -n $commands ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
    return
  fi
  case "${path[*]}" in
    show | report | follow | remove | wait | hold | resume | cancel | info | exists)
      # One key per line from the server; nothing when none answers.
      mapfile -t COMPREPLY < <(compgen -W "$(timeout 3 "$program" status --keys 2>/dev/null)" -- "$cur")
      ;;
    *)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      ;;
  esac
}
complete -F _vqctl vqctl
