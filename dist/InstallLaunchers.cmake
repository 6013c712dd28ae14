# Run at install time: writes the systemd user unit and the desktop entry with the path of the
# installed vqserv, quoted as each format wants it, and installs them.

# An absolute folder under the install prefix, as the installed programs will see it.
if(IS_ABSOLUTE "${VQ_BINDIR}")
  set(vq_bindir "${VQ_BINDIR}")
else()
  set(vq_bindir "${CMAKE_INSTALL_PREFIX}/${VQ_BINDIR}")
endif()
set(vq_vqserv "${vq_bindir}/vqserv")

# A systemd command line: % and $ are doubled; a path with blanks or quotes goes in quotes.
function(vq_quote_for_systemd path out)
  string(REPLACE "%" "%%" text "${path}")
  string(REPLACE "$" "$$" text "${text}")
  if(text MATCHES "[ \t\"'\\\\]")
    string(REPLACE "\\" "\\\\" text "${text}")
    string(REPLACE "\"" "\\\"" text "${text}")
    set(text "\"${text}\"")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# A desktop entry's Exec: a path with reserved characters goes in quotes with ", `, $ and \
# escaped; then the value's own escape doubles every backslash, and % is doubled.
function(vq_quote_for_desktop path out)
  set(text "${path}")
  if(text MATCHES "[ \t\n\"'\\\\><~|&;$*?#()`]")
    string(REPLACE "\\" "\\\\" text "${text}")
    string(REPLACE "\"" "\\\"" text "${text}")
    string(REPLACE "`" "\\`" text "${text}")
    string(REPLACE "$" "\\$" text "${text}")
    set(text "\"${text}\"")
  endif()
  string(REPLACE "\\" "\\\\" text "${text}")
  string(REPLACE "%" "%%" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

set(vq_written "${VQ_DIST_BINARY}/installed")
vq_quote_for_systemd("${vq_vqserv}" VQ_EXEC_VQSERV)
configure_file("${VQ_DIST_SOURCE}/orvantis-server.service.in" "${vq_written}/orvantis-server.service" @ONLY)
vq_quote_for_desktop("${vq_vqserv}" VQ_EXEC_VQSERV)
configure_file("${VQ_DIST_SOURCE}/orvantis-server.desktop.in" "${vq_written}/orvantis-server.desktop" @ONLY)

file(INSTALL "${vq_written}/orvantis-server.service" DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/user")
file(INSTALL "${vq_written}/orvantis-server.desktop" DESTINATION "${CMAKE_INSTALL_PREFIX}/${VQ_DATADIR}/applications")
