// Completion for bash: names from the catalogue, commands and options from rynctl itself, so that none stands here
// twice. Stateless: any thread.
#include "catalog/catalog.h"
#include "generate/documents.h"

namespace catalog {

std::string BashCompletion() {
  std::string script = "# bash completion for rynctl. Made from the catalogue.\n_rynctl_events='";
  for (const Event &event : Events()) script += "\n" + event.name;
  script += "'\n_rynctl_observations='";
  for (const Observation &observation : Observations()) script += "\n" + observation.id;
  script += R"~~('
_rynctl() {
  local word=${COMP_WORDS[COMP_CWORD]} command= names= i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done
  if [[ -z $command || $command == help ]]; then
    names="help $(rynctl --help 2>/dev/null | sed -n '/^Commands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')"
  elif [[ $word == -* ]]; then
    names=$(rynctl "$command" --help 2>/dev/null | grep -o -e '--[a-z][a-z-]*' | sort -u)
  else
    case $command in
      explain | catalog | trace) names="$_rynctl_events $_rynctl_observations" ;;
      submit) names=$_rynctl_observations ;;
      why | why-not) names=$_rynctl_events ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$names" -- "$word")
}
complete -o default -F _rynctl rynctl
)~~";
  return script;
}

}  // namespace catalog
