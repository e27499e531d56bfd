# What `make install` (cmake --install) puts under the prefix, and the Debian package
# made of it. Every path is relative to the prefix, so an installed tree can be moved:
#
#   bin/velconfig                          the command-line tool
#   <libdir>/lua/5.1/velconfig.so          the module, where Lua 5.1 looks for C modules
#   <libdir>/velconfig/                    the simulator and the tool's own C modules
#   libexec/velconfig/uci                  the PC uci the simulator runs (never on PATH)
#   share/velconfig/                       the console's pages, the tool's Lua files,
#                                          the key catalogue and the default model
#   share/man/man1/velconfig.1.gz, share/doc/velconfig/, share/bash-completion/
#
# <libdir> is Debian's lib/<multiarch> for the prefix /usr (where Debian's lua5.1 looks
# first) and lib elsewhere; a gateway image names its own with VELCONFIG_LUA_CMODDIR.
include(GNUInstallDirs)
if(VELCONFIG_LUA_CMODDIR)
  set(VELCONFIG_INSTALL_CMODDIR ${VELCONFIG_LUA_CMODDIR})
else()
  set(VELCONFIG_INSTALL_CMODDIR ${CMAKE_INSTALL_LIBDIR}/lua/5.1)
endif()
set(VELCONFIG_INSTALL_PRIVLIB ${CMAKE_INSTALL_LIBDIR}/velconfig)
set(VELCONFIG_INSTALL_SHARE ${CMAKE_INSTALL_DATADIR}/velconfig)
set(VELCONFIG_INSTALL_UCIDIR ${CMAKE_INSTALL_LIBEXECDIR}/velconfig)

# A path from the prefix-relative folder FROM to the prefix-relative TO.
function(velconfig_relative out from to)
  file(RELATIVE_PATH rel /${from} /${to})
  set(${out} ${rel} PARENT_SCOPE)
endfunction()

# The installed tool finds everything from its own folder ($ORIGIN, see the script).
# A function, so that the build tree's paths stay as they are outside it.
function(velconfig_configure_installed_tool)
  velconfig_relative(to_cmod ${CMAKE_INSTALL_BINDIR} ${VELCONFIG_INSTALL_CMODDIR})
  velconfig_relative(to_priv ${CMAKE_INSTALL_BINDIR} ${VELCONFIG_INSTALL_PRIVLIB})
  velconfig_relative(to_share ${CMAKE_INSTALL_BINDIR} ${VELCONFIG_INSTALL_SHARE})
  velconfig_relative(to_uci ${CMAKE_INSTALL_BINDIR} ${VELCONFIG_INSTALL_UCIDIR})
  set(VELCONFIG_TOOL_CPATH "$ORIGIN/${to_cmod}/?.so;")
  if(VELCONFIG_PLATFORM STREQUAL "sim")
    string(APPEND VELCONFIG_TOOL_CPATH "$ORIGIN/${to_priv}/?.so;")
    set(VELCONFIG_TOOL_UCI_DIR "$ORIGIN/${to_uci}")
  endif()
  set(VELCONFIG_TOOL_LPATH "$ORIGIN/${to_share}/lua/?.lua;")
  set(VELCONFIG_WEB_DIR "$ORIGIN/${to_share}/web")
  set(VELCONFIG_CATALOGUE "$ORIGIN/${to_share}/keys.json")
  configure_file(tools/velconfig.in ${CMAKE_CURRENT_BINARY_DIR}/install/velconfig @ONLY)
endfunction()
velconfig_configure_installed_tool()

set(VELCONFIG_LIBRARY_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/install/velconfig DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES tools/velconfig_json.lua DESTINATION ${VELCONFIG_INSTALL_SHARE}/lua)
install(TARGETS velconfig LIBRARY DESTINATION ${VELCONFIG_INSTALL_CMODDIR} PERMISSIONS ${VELCONFIG_LIBRARY_PERMISSIONS})

if(VELCONFIG_PLATFORM STREQUAL "sim")
  # The module and the simulator's companion find the simulator library beside the
  # companion, wherever the prefix is.
  velconfig_relative(cmod_to_priv ${VELCONFIG_INSTALL_CMODDIR} ${VELCONFIG_INSTALL_PRIVLIB})
  set_target_properties(velconfig PROPERTIES INSTALL_RPATH "$ORIGIN/${cmod_to_priv}")
  set_target_properties(velconfig_simctl PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS velconfig_sim velconfig_simctl velconfig_http
          LIBRARY DESTINATION ${VELCONFIG_INSTALL_PRIVLIB} PERMISSIONS ${VELCONFIG_LIBRARY_PERMISSIONS})
  install(TARGETS uci RUNTIME DESTINATION ${VELCONFIG_INSTALL_UCIDIR})
  install(FILES tools/console/console.lua DESTINATION ${VELCONFIG_INSTALL_SHARE}/lua)
  install(FILES web/index.html web/console.css web/console.js DESTINATION ${VELCONFIG_INSTALL_SHARE}/web)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/keys.json sim/default_model.json DESTINATION ${VELCONFIG_INSTALL_SHARE})

  # The manual page, compressed without a time stamp as Debian keeps them.
  configure_file(tools/velconfig.1 ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1 @ONLY)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz
                     COMMAND gzip -9 -n -c velconfig.1 > velconfig.1.gz
                     DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1 COMMENT "Compressing the manual page")
  add_custom_target(velconfig_man ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
endif()
