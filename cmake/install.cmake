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
install(FILES tools/velconfig_json.lua tools/velconfig_dump.lua tools/velconfig_run.lua tools/velconfig_usage.lua
        DESTINATION ${VELCONFIG_INSTALL_SHARE}/lua)
install(TARGETS velconfig LIBRARY DESTINATION ${VELCONFIG_INSTALL_CMODDIR} PERMISSIONS ${VELCONFIG_LIBRARY_PERMISSIONS})

if(VELCONFIG_PLATFORM STREQUAL "sim")
  # The module and the simulator's companion find the simulator library beside the
  # companion, wherever the prefix is.
  velconfig_relative(cmod_to_priv ${VELCONFIG_INSTALL_CMODDIR} ${VELCONFIG_INSTALL_PRIVLIB})
  set_target_properties(velconfig PROPERTIES INSTALL_RPATH "$ORIGIN/${cmod_to_priv}")
  set_target_properties(velconfig_simctl PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS velconfig_sim velconfig_simctl velconfig_http velconfig_pages
          LIBRARY DESTINATION ${VELCONFIG_INSTALL_PRIVLIB} PERMISSIONS ${VELCONFIG_LIBRARY_PERMISSIONS})
  install(TARGETS uci RUNTIME DESTINATION ${VELCONFIG_INSTALL_UCIDIR})
  install(FILES tools/console/console.lua tools/velconfig_import.lua tools/velconfig_event.lua tools/pages/pages.lua
                tools/pages/page_runner.lua
          DESTINATION ${VELCONFIG_INSTALL_SHARE}/lua)
  install(FILES web/index.html web/console.css web/console.js web/favicon.svg DESTINATION ${VELCONFIG_INSTALL_SHARE}/web)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/keys.json sim/default_model.json DESTINATION ${VELCONFIG_INSTALL_SHARE})

  # Bash completion of the commands and of the keys, from the key catalogue.
  find_program(VELCONFIG_LUA_FOR_TOOLS NAMES lua5.1 luajit REQUIRED)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/velconfig.bash
                     COMMAND ${VELCONFIG_LUA_FOR_TOOLS} ${CMAKE_CURRENT_SOURCE_DIR}/tools/catalogue/completion.lua
                             ${VELCONFIG_CATALOGUE} > velconfig.bash
                     DEPENDS ${VELCONFIG_CATALOGUE} tools/catalogue/completion.lua tools/velconfig_event.lua
                     COMMENT "Generating the bash completion")
  add_custom_target(velconfig_completion ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/velconfig.bash)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velconfig.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME velconfig)

  # The manual page, compressed without a time stamp as Debian keeps them.
  # Generated from the source of --help, so that both say the same.
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1
                     COMMAND ${VELCONFIG_LUA_FOR_TOOLS} ${CMAKE_CURRENT_SOURCE_DIR}/tools/velconfig_usage.lua
                             ${PROJECT_VERSION} > velconfig.1
                     DEPENDS tools/velconfig_usage.lua COMMENT "Generating the manual page")
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz
                     COMMAND gzip -9 -n -c velconfig.1 > velconfig.1.gz
                     DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1 COMMENT "Compressing the manual page")
  add_custom_target(velconfig_man ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velconfig.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
  # The simulator's schema, where the installed docs' links look for it.
  install(FILES sim/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/sim)
  install(DIRECTORY examples/scenarios DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()

# Packages (make package): the PC tools as a Debian package, or for a gateway build the
# files laid out as on the gateway's root file system, in a .tar.gz. Both take their
# version from project().
set(VELCONFIG_MAINTAINER "velconfig maintainers <maintainers@velconfig.invalid>"
    CACHE STRING "Maintainer named in the packages")
set(CPACK_PACKAGE_NAME velconfig)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${VELCONFIG_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "home gateway configuration module with a simulator and a CLI")
if(VELCONFIG_PLATFORM STREQUAL "sim")
  # Debian's own files for a package: its copyright and its changelog.
  string(TIMESTAMP VELCONFIG_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH when set
  configure_file(tools/package/changelog.Debian.in ${CMAKE_CURRENT_BINARY_DIR}/changelog @ONLY)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
                     COMMAND gzip -9 -n -c changelog > changelog.gz
                     DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog COMMENT "Compressing the Debian changelog")
  add_custom_target(velconfig_debian_changelog ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
  install(FILES tools/package/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})

  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${VELCONFIG_MAINTAINER})
  set(CPACK_PACKAGE_DESCRIPTION "velconfig is the Lua 5.1 extension module behind a home gateway's web
management pages. This package holds the PC build: the module linked against
a gateway simulator that keeps an editable model of one gateway, the velconfig
command-line tool that calls the module's get and set and prints JSON, and a
web console and JSON API over the simulated gateway on 127.0.0.1.")
  # The libraries the files link come from dpkg-shlibdeps; the interpreter and the
  # JSON module the tool loads are named here.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR}/sim)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "lua5.1, lua-cjson")
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS "lua-filesystem")
else()
  # The key catalogue comes from a PC build (the gateway build cannot run its generator).
  set(VELCONFIG_GATEWAY_CATALOGUE "" CACHE FILEPATH "A PC build's keys.json to install with the gateway build")
  if(VELCONFIG_GATEWAY_CATALOGUE)
    install(FILES ${VELCONFIG_GATEWAY_CATALOGUE} DESTINATION ${VELCONFIG_INSTALL_SHARE} RENAME keys.json)
  endif()
  # What the archive needs from the gateway, read from the module as built.
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/gateway-needs.txt
                     COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tools/package/gateway_needs.sh $<TARGET_FILE:velconfig>
                             ${PROJECT_VERSION} ${CMAKE_INSTALL_PREFIX}/${VELCONFIG_INSTALL_CMODDIR} > gateway-needs.txt
                     DEPENDS velconfig tools/package/gateway_needs.sh COMMENT "Listing what the module needs from the gateway")
  add_custom_target(velconfig_gateway_needs ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/gateway-needs.txt)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/gateway-needs.txt DESTINATION ${VELCONFIG_INSTALL_SHARE})
  set(CPACK_GENERATOR TGZ)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
  set(CPACK_SET_DESTDIR ON)
  set(CPACK_PACKAGE_FILE_NAME velconfig-${PROJECT_VERSION}-gateway-${CMAKE_SYSTEM_PROCESSOR})
endif()
include(CPack)
