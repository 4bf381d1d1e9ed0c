# shellcheck shell=bash
# Completion of engine-cli and kelo for bash, 3.2 and later. Source it, or install it in a folder that bash-completion searches.
# It doesn't start the engine, because each start writes to the log.

# generated: words
_engine_cli_subcommands='hello run check-updates disk-free export-logs'
_engine_cli_apps='brenna tolvi rulo galdivane'

# The options of --silent or of a subcommand.
_engine_cli_options() {
  case $1 in
    --silent) echo '--silent --mode --apps --strict --open-after-install --verbose --offline' ;;
    hello) echo '--offline' ;;
    run) echo '--action --apps --strict --offline' ;;
    check-updates) echo '--apps --offline' ;;
    disk-free) echo '--path --offline' ;;
    export-logs) echo '--out --offline' ;;
  esac
}

# The words that an option takes.
_engine_cli_values() {
  case $1:$2 in
    --silent:--mode) echo 'install uninstall' ;;
    --silent:--strict) echo 'true false' ;;
    --silent:--open-after-install) echo 'true false' ;;
    run:--action) echo 'install update uninstall' ;;
    run:--strict) echo 'true' ;;
  esac
}
# end

# Prints the form of the line: --silent or a subcommand. --silent can be anywhere except in the word being completed. A line
# that begins with an option can only be an unattended run.
_engine_cli_form() {
  local i
  for ((i = 1; i < ${#COMP_WORDS[@]}; i++)); do
    [ "$i" != "$COMP_CWORD" ] && [ "${COMP_WORDS[i]}" = --silent ] && { echo --silent; return; }
  done
  [ "$COMP_CWORD" -gt 1 ] || return
  case ${COMP_WORDS[1]} in --*) echo --silent ;; *) echo "${COMP_WORDS[1]}" ;; esac
}

# Prints the lists to which one more app can complete a list such as "brenna,tol". No app occurs twice.
_engine_cli_app_lists() {
  local named='' app
  case $1 in *,*) named=${1%,*}, ;; esac
  for app in $_engine_cli_apps; do
    case ,$named in *",$app,"*) ;; *) echo "$named$app" ;; esac
  done
}

# Prints the options of the form that the line doesn't have yet.
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
  local form=$1 before=$2 word=$3 values
  values=$(_engine_cli_values "$form" "$before")
  case $form:$before:$values in
    *:--apps:*) _engine_cli_app_lists "$word" ;;
    :*) echo "$_engine_cli_subcommands --silent" ;;
    *:) _engine_cli_options_left "$form" ;;
    *) echo "$values" ;;
  esac
}

_engine_cli() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} form kind=
  form=$(_engine_cli_form)
  # A word that begins like an option is completed as an option, after any other word.
  case $word in --*) before= ;; esac
  case $form:$before in disk-free:--path) kind=-f ;; export-logs:--out) kind=-d ;; esac

  COMPREPLY=()
  local IFS=$' \t\n' candidate
  if [ -n "$kind" ]; then
    compopt -o filenames 2>/dev/null
    while IFS= read -r candidate; do COMPREPLY+=("$candidate"); done < <(compgen "$kind" -- "$word")
    return
  fi
  # A list of apps may continue after a comma.
  [ "$before" = --apps ] && compopt -o nospace 2>/dev/null
  while IFS= read -r candidate; do COMPREPLY+=("$candidate"); done \
    < <(compgen -W "$(_engine_cli_words "$form" "$before" "$word")" -- "$word")
}

complete -F _engine_cli engine-cli kelo
