# Install layout: telmoraq in sbin (added with the target), telmoraq-submit in
# bin, the systemd unit, the default settings file (never over an edited one),
# and the spool and log folders the settings point to.
include(GNUInstallDirs)
set(TELMORAQ_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE PATH "Where the systemd unit goes")
set(TELMORAQ_CONFIG_DIR "/etc/telmoraq" CACHE PATH "Where the registry file goes")

set(SBIN_DIR "${CMAKE_INSTALL_PREFIX}/sbin")
configure_file(${CMAKE_SOURCE_DIR}/dist/telmoraq.service
               ${CMAKE_BINARY_DIR}/dist/telmoraq.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/dist/telmoraq.service DESTINATION ${TELMORAQ_SYSTEMD_UNIT_DIR})

install(CODE "
  set(config \"\$ENV{DESTDIR}${TELMORAQ_CONFIG_DIR}/registry.reg\")
  if(EXISTS \"\${config}\")
    message(STATUS \"Kept: \${config}\")
  else()
    file(INSTALL \"${CMAKE_SOURCE_DIR}/dist/registry.reg\" DESTINATION \"${TELMORAQ_CONFIG_DIR}\")
  endif()
  foreach(dir /var/spool/telmoraq/pickup /var/spool/telmoraq/sent /var/spool/telmoraq/failed /var/log/telmoraq)
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${dir}\")
  endforeach()
")
