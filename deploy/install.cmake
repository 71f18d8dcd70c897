# install.cmake - run by cmake --install, when the program is in place: takes the build tree's run path off it, writes the
# web server's configuration, which names the program where it will be on the switch, and installs the other files.

# path_on_switch: sets `result` to the absolute path of what lies at `path`, below the prefix unless it is absolute.
function(path_on_switch result path)
  set(prefix ${CMAKE_INSTALL_PREFIX})
  if(prefix STREQUAL "/usr" AND path MATCHES "^etc/")
    set(prefix "") # the configuration of what lies in /usr is in /etc
  endif()
  get_filename_component(absolute "${path}" ABSOLUTE BASE_DIR "${prefix}/")
  set(${result} ${absolute} PARENT_SCOPE)
endfunction()

# install_file: copies a source file, with its @...@ filled in, to a path on the switch.
function(install_file source directory name)
  get_filename_component(directory "${directory}" ABSOLUTE BASE_DIR "${CMAKE_INSTALL_PREFIX}/")
  configure_file(${CMAKE_SOURCE_DIR}/${source} ${CMAKE_BINARY_DIR}/install/${name} @ONLY)
  file(INSTALL ${CMAKE_BINARY_DIR}/install/${name} DESTINATION ${directory} USE_SOURCE_PERMISSIONS)
endfunction()

# install_packed: the same, compressed.
function(install_packed source directory name)
  configure_file(${CMAKE_SOURCE_DIR}/${source} ${CMAKE_BINARY_DIR}/install/${name} @ONLY)
  set(directory "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${directory}")
  file(MAKE_DIRECTORY ${directory})
  execute_process(COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/install/${name} OUTPUT_FILE ${directory}/${name}.gz RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "gzip: ${failed}")
  endif()
endfunction()

path_on_switch(SWITCHING_CGI_DIR ${SWITCHING_CGI_DIR})
path_on_switch(SWITCHING_CONF_DIR ${SWITCHING_CONF_DIR})
set(SWITCHING_CGI_PATH ${SWITCHING_CGI_DIR}/switching_v2.cgi)
file(RPATH_REMOVE FILE "$ENV{DESTDIR}${SWITCHING_CGI_PATH}")
install_file(deploy/switching_v2.conf.in ${SWITCHING_CONF_DIR} switching_v2.conf)
# Not where the web server reads it by itself: it replaces the other one.
install_file(deploy/switching_v2_resident.conf.in share/switching switching_v2_resident.conf)
install_file(deploy/files_at_boot.sh libexec/switching files_at_boot.sh)
install_file(deploy/switching_v2.spdx.json.in share/switching switching_v2.spdx.json)
install_packed(api/openapi.json share/switching openapi.json)
install_packed(deploy/man/switching_v2.cgi.8 share/man/man8 switching_v2.cgi.8)
