# shellcheck shell=bash
# Completion of engine-cli for bash, 3.2 and later. Source it, or install it where bash-completion looks.
# It never starts the engine: every start leaves lines in the log.

_engine_cli_subcommands='hello run check-updates disk-free export-logs'
_engine_cli_apps='brenna tolvi rulo galdivane'

# The options that the line can take, given its road: a subcommand or --silent.
_engine_cli_options() {
  case $1 in
    --silent) echo '--silent --mode --apps --strict --open-after-install --verbose --offline' ;;
    run) echo '--action --apps --strict --offline' ;;
    check-updates) echo '--apps --offline' ;;
    disk-free) echo '--path --offline' ;;
    export-logs) echo '--out --offline' ;;
    hello) echo '--offline' ;;
  esac
}

# The road of the line. --silent counts wherever it stands, the word at work excepted; a line without a subcommand
# makes sense on no other road.
_engine_cli_road() {
  local i
  for ((i = 1; i < ${#COMP_WORDS[@]}; i++)); do
    [ "$i" != "$COMP_CWORD" ] && [ "${COMP_WORDS[i]}" = --silent ] && { echo --silent; return; }
  done
  [ "$COMP_CWORD" -gt 1 ] || return
  case ${COMP_WORDS[1]} in --*) echo --silent ;; *) echo "${COMP_WORDS[1]}" ;; esac
}

# What one more app makes of a list like "brenna,tol"; nobody is named twice.
_engine_cli_app_lists() {
  local named='' app
  case $1 in *,*) named=${1%,*}, ;; esac
  for app in $_engine_cli_apps; do
    case ,$named in *",$app,"*) ;; *) echo "$named$app" ;; esac
  done
}

# Options of the road that the line doesn't have yet.
_engine_cli_options_left() {
  local option word
  for option in $(_engine_cli_options "$1"); do
    for word in "${COMP_WORDS[@]}"; do
      [ "$word" = "$option" ] && [ "$word" != "${COMP_WORDS[COMP_CWORD]}" ] && continue 2
    done
    echo "$option"
  done
}

_engine_cli_words() {
  local road=$1 before=$2 word=$3
  case $road:$before in
    *:--apps) _engine_cli_app_lists "$word" ;;
    --silent:--mode) echo 'install uninstall' ;;
    --silent:--strict | --silent:--open-after-install) echo 'true false' ;;
    run:--action) echo 'install update uninstall' ;;
    run:--strict) echo 'true' ;;
    :*) echo "$_engine_cli_subcommands --silent" ;;
    *) _engine_cli_options_left "$road" ;;
  esac
}

_engine_cli() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} road kind=
  road=$(_engine_cli_road)
  # A word that begins like an option is completed as one, whatever stands before it.
  case $word in --*) before= ;; esac
  case $road:$before in disk-free:--path) kind=-f ;; export-logs:--out) kind=-d ;; esac

  COMPREPLY=()
  local IFS=$' \t\n' candidate
  if [ -n "$kind" ]; then
    compopt -o filenames 2>/dev/null
    while IFS= read -r candidate; do COMPREPLY+=("$candidate"); done < <(compgen "$kind" -- "$word")
    return
  fi
  # A list of apps may go on behind a comma.
  [ "$before" = --apps ] && compopt -o nospace 2>/dev/null
  while IFS= read -r candidate; do COMPREPLY+=("$candidate"); done \
    < <(compgen -W "$(_engine_cli_words "$road" "$before" "$word")" -- "$word")
}

complete -F _engine_cli engine-cli
