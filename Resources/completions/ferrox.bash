# bash completion of the ferrox command
# Made by scripts/manual of the command's help: change scripts/lib/completions.py.

_ferrox() {
  local current=${COMP_WORDS[COMP_CWORD]} subcommand=${COMP_WORDS[1]} options arguments="none"
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "run peers list copy post watch search check fetch follow object-id doctor demo -h --help --version" -- "$current")
    return
  fi
  case $subcommand in
    run)
      options="-h --help --share --stream --moments --observe --status --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    peers)
      options="-h --help --wait --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    list)
      options="-h --help --addresses --wait --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    copy)
      options="-h --help --max-content-length --jobs --timeout --on-low-storage --resume --replace --allow-empty-files --verify-sizes --preserve-times --wait --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      arguments="folder"
      ;;
    post)
      options="-h --help --filter --user-info --wait --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    watch)
      options="-h --help --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    search)
      options="-h --help --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      arguments="host"
      ;;
    check)
      options="-h --help --http --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      arguments="host"
      ;;
    fetch)
      options="-h --help --timeout --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level --segment"
      arguments="file"
      ;;
    follow)
      options="-h --help --timeout --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level --interval --until-idle"
      arguments="file"
      ;;
    object-id)
      options="-h --help --count --json"
      ;;
    doctor)
      options="-h --help --port --computer-name --device-uuid --host-name --interface --discovery --peer --json --log-level"
      ;;
    demo)
      options="-h --help --nodes --interface --json --log-level"
      ;;
    *) return ;;
  esac

  # bash cuts a line at "=" and ":" too; what it is about are whole words.
  local line=${COMP_LINE:0:COMP_POINT}
  local word=${line##*[[:space:]]}
  local before=${line%"$word"}
  before=${before%"${before##*[![:space:]]}"}
  local option=${before##*[[:space:]]}
  if [[ $word == --*=* ]]; then
    option=${word%%=*}
    word=${word#*=}
  fi
  case $option in
    --share)
      _ferrox_values offer "$word"
      return
      ;;
    --stream)
      _ferrox_values offer "$word"
      return
      ;;
    --moments)
      _ferrox_values offer "$word"
      return
      ;;
    --observe) return ;;
    --status) return ;;
    --port) return ;;
    --computer-name) return ;;
    --device-uuid) return ;;
    --host-name) return ;;
    --interface)
      _ferrox_values interface "$word"
      return
      ;;
    --discovery)
      mapfile -t COMPREPLY < <(compgen -W "auto embedded avahi off" -- "$word")
      return
      ;;
    --peer)
      _ferrox_values host "$word"
      return
      ;;
    --log-level)
      mapfile -t COMPREPLY < <(compgen -W "verbose debug warn error" -- "$word")
      return
      ;;
    --wait) return ;;
    --max-content-length) return ;;
    --jobs) return ;;
    --timeout) return ;;
    --on-low-storage)
      mapfile -t COMPREPLY < <(compgen -W "abort continue" -- "$word")
      return
      ;;
    --filter) return ;;
    --user-info) return ;;
    --segment) return ;;
    --interval) return ;;
    --until-idle) return ;;
    --count) return ;;
    --nodes) return ;;
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  _ferrox_values "$arguments" "$word"
}

# Kind of the values, and what of one is there.
_ferrox_values() {
  local kind=$1 word=$2
  case $kind in
    offer)
      [[ $word == *=* ]] || return
      word=${word#*=}
      kind=folder
      ;;
    host)
      [[ $word != *:* ]] || return
      ;;
  esac
  case $kind in
    folder) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    file) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$word") ;;
    interface) mapfile -t COMPREPLY < <(compgen -W "$(command ls /sys/class/net 2>/dev/null)" -- "$word") ;;
  esac
  # Names of files are shown and quoted as such; outside of a completion bash refuses that.
  [[ $kind != folder && $kind != file ]] || compopt -o filenames 2>/dev/null
}

complete -F _ferrox ferrox
