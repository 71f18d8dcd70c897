# install.cmake - run by cmake --install, when the program is in place: takes the build tree's run path off it, writes
# the web server's configuration, which names the program where it is going to lie on the switch, and puts the
# description of the interface beside it.
set(prefix ${CMAKE_INSTALL_PREFIX}/)
cmake_path(ABSOLUTE_PATH SWITCHING_CGI_DIR BASE_DIRECTORY ${prefix} NORMALIZE)
if(prefix STREQUAL "/usr/" AND SWITCHING_CONF_DIR MATCHES "^etc/")
  set(prefix /) # the configuration of what lies in /usr is in /etc
endif()
cmake_path(ABSOLUTE_PATH SWITCHING_CONF_DIR BASE_DIRECTORY ${prefix} NORMALIZE)

set(SWITCHING_CGI_PATH ${SWITCHING_CGI_DIR}/switching_v2.cgi)
file(RPATH_REMOVE FILE "$ENV{DESTDIR}${SWITCHING_CGI_PATH}")
configure_file(${CMAKE_SOURCE_DIR}/deploy/switching_v2.conf.in ${CMAKE_BINARY_DIR}/install/switching_v2.conf @ONLY)
file(INSTALL ${CMAKE_BINARY_DIR}/install/switching_v2.conf DESTINATION ${SWITCHING_CONF_DIR})
# Not where the web server reads it by itself: it replaces the other one.
set(share ${CMAKE_INSTALL_PREFIX}/share/switching)
configure_file(${CMAKE_SOURCE_DIR}/deploy/switching_v2_resident.conf.in
               ${CMAKE_BINARY_DIR}/install/switching_v2_resident.conf @ONLY)
file(INSTALL ${CMAKE_BINARY_DIR}/install/switching_v2_resident.conf DESTINATION ${share})
execute_process(COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/api/openapi.json COMMAND_ERROR_IS_FATAL ANY
                OUTPUT_FILE "$ENV{DESTDIR}${share}/openapi.json.gz")
