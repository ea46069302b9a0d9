# Completion of oxcache and oxhostcheck in bash. It reads what the tool's own --help tells, so there
# is nothing to keep in step.

# What an option takes, as --help names it; nothing for a flag.
_ox_value() {
  awk -v name="$1" '/^  -/ {
    count = split($1, names, ",")
    for (i = 1; i <= count; ++i)
      if (names[i] == name && /^  [^ ]+ [^ ]/) { print $2; exit }
  }'
}

# The first words of the lines in a section of --help.
_ox_section() {
  awk -v title="$1:" '$0 == title { inside = 1; next } /^$/ { inside = 0 }
    inside && /^  [^ ]/ { print $1 }'
}

_ox() {
  local tool=${1/#\~/$HOME} current=$2 line=${COMP_LINE:0:COMP_POINT}
  local words word help commands command='' wants='' places=0
  # By blanks: bash itself would take a URL apart at its colon.
  read -ra words <<<"$line"
  [[ $line != *[[:blank:]] ]] || words+=('')
  local last=${words[${#words[@]} - 1]}
  help=$("$tool" --help 2>/dev/null) || return
  commands=$(_ox_section Subcommands <<<"$help")

  for word in "${words[@]:1:${#words[@]}-2}"; do
    if [[ $wants ]]; then
      wants=''
    elif [[ $word == -?* ]]; then
      wants=$(_ox_value "$word" <<<"$help")
    elif [[ $commands && ! $command ]]; then
      command=$word
      help+=$'\n\n'$("$tool" "$command" --help 2>/dev/null) || return
    else
      ((++places))
    fi
  done
  if [[ $last == --*=* ]]; then
    wants=$(_ox_value "${last%%=*}" <<<"$help")
    current=${last#*=}
  fi

  local choices='' files=''
  case $wants in
    ':{'*) choices=$(tr -s ':{,}' ' ' <<<"$wants") ;;
    *DIR*) files=-d ;;
    *FILE* | *PATH*) files=-f ;;
    ?*) ;;
    *)
      if [[ $last == -* ]]; then
        choices=$(_ox_section Options <<<"$help" | tr , '\n')
      elif [[ $commands && ! $command ]]; then
        choices=$commands
      else
        case $(_ox_section Positionals <<<"$help" | sed -n "$((places + 1))p") in
          file | library) files=-f ;;
        esac
      fi
      ;;
  esac
  if [[ $files ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$files" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
  fi
}
complete -F _ox oxcache oxhostcheck
