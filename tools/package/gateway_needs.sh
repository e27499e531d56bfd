#!/usr/bin/env bash
# What the gateway archive needs from the gateway it is unpacked on, read from the
# built module itself (readelf reads an aarch64 module on any host):
#   tools/package/gateway_needs.sh VELCONFIG.so VERSION CMODDIR > gateway-needs.txt
set -euo pipefail
module=${1:?usage: gateway_needs.sh VELCONFIG.so VERSION CMODDIR}
version=${2:?usage: gateway_needs.sh VELCONFIG.so VERSION CMODDIR}
cmoddir=${3:?usage: gateway_needs.sh VELCONFIG.so VERSION CMODDIR}
libraries=$(readelf -d "$module" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^\(lib\(c\|m\|gcc_s\|stdc++\|pthread\|dl\)\.so\|ld-linux\)')
operations=$(readelf --dyn-syms -W "$module" | awk '$7 == "UND" && $8 ~ /^ZoVel/ { sub(/@.*/, "", $8); print $8 }' | sort -u)
[ -n "$operations" ] || { echo "gateway_needs.sh: $module calls no ZoVel operation" >&2; exit 1; }
cat <<TEXT
velconfig $version for the gateway needs from the gateway:

- a Lua 5.1 interpreter (or LuaJIT 2.1) that loads C modules from $cmoddir,
  the web server's for the pages, and one named lua on PATH for usr/bin/velconfig
  (its #! line; the tool reads and writes JSON with its own velconfig_json.lua);
- the uci command, in the web server's PATH or else in /sbin, /usr/sbin, /bin or /usr/bin (LOID registration hold-off);
- these shared libraries:
$(sed 's/^/    /' <<<"$libraries")
- from libcapi3.so, the platform library, these $(echo "$operations" | wc -l) operations:
$(sed 's/^/    /' <<<"$operations")

The archive leaves out what needs a PC: the simulator, import and serve (the web
console and page server). velconfig get, set, dump, run, env, keys and help work.
TEXT
