-- Bash completion for velconfig, written from the key catalogue (build/keys.json):
--   lua5.1 tools/catalogue/completion.lua build/keys.json > velconfig.bash
-- It completes the options, the commands, and after get, set or help the keys each takes.
local cjson = require "cjson"

local catalogue = cjson.decode(assert(io.open((assert(arg[1], "usage: completion.lua KEYS.json")))):read("*a"))
local names = { get = {}, set = {}, all = {} }
local seen = {}
for _, k in ipairs(catalogue) do
  if k.built then
    table.insert(names[k.call], k.key)
    if not seen[k.key] then table.insert(names.all, k.key) end
    seen[k.key] = true
  end
end

-- The event names, from the event command's own table (tools/velconfig_event.lua).
local tools = arg[0]:match("^(.*)/catalogue/[^/]*$") or ".."
local events = {}
for _, e in ipairs(dofile(tools .. "/velconfig_event.lua").EVENTS) do events[#events + 1] = e.name end

local script = ([==[
# bash completion for velconfig; generated from the key catalogue, do not edit.
_velconfig() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command="" at=0 i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --state) ((i++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]} at=$i; break ;;
    esac
  done
  case $prev in
    --state) COMPREPLY=($(compgen -f -- "$cur")); return ;;
    --port) return ;;
    --pages) COMPREPLY=($(compgen -d -- "$cur")); return ;;
  esac
  if [[ -z $command ]]; then
    COMPREPLY=($(compgen -W "get set dump import serve run env event play keys help -v --state --help --version" -- "$cur"))
  elif ((COMP_CWORD == at + 1)); then
    case $command in
      get) COMPREPLY=($(compgen -W "GET_KEYS" -- "$cur")) ;;
      set) COMPREPLY=($(compgen -W "SET_KEYS" -- "$cur")) ;;
      help) COMPREPLY=($(compgen -W "ALL_KEYS" -- "$cur")) ;;
      serve) COMPREPLY=($(compgen -W "--pages --port --state --no-token" -- "$cur")) ;;
      run) COMPREPLY=($(compgen -f -- "$cur")) ;;
      dump) COMPREPLY=($(compgen -W "--with-secrets" -- "$cur")) ;;
      import) COMPREPLY=($(compgen -f -- "$cur")) ;;
      event) COMPREPLY=($(compgen -W "EVENT_NAMES --help" -- "$cur")) ;;
      play) COMPREPLY=($(compgen -f -W "--no-wait" -- "$cur")) ;;
    esac
  elif [[ $command == serve ]]; then
    COMPREPLY=($(compgen -W "--pages --port --state --no-token" -- "$cur"))
  elif [[ $command == run ]]; then
    COMPREPLY=($(compgen -f -- "$cur"))
  elif [[ $command == set ]] && ((COMP_CWORD == at + 2)); then
    COMPREPLY=($(compgen -W "--text" -- "$cur"))
  fi
}
complete -F _velconfig velconfig
]==]):gsub("(%u+)_KEYS", function(which) return table.concat(names[which:lower()], " ") end)
  :gsub("EVENT_NAMES", table.concat(events, " "))
io.write(script)
