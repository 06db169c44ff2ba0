# corvid_refresh_icons(THEME)
# Has desktops see that the icons below the theme's folder have changed: as long as the theme's cache
# is younger than the folder itself, which files further below do not touch, they look nowhere else.
function(corvid_refresh_icons theme)
  if(NOT "$ENV{DESTDIR}" STREQUAL "" OR NOT EXISTS "${theme}/icon-theme.cache")
    return() # Where packages are made, the system refreshes it when one is installed.
  endif()
  find_program(updater NAMES gtk-update-icon-cache gtk4-update-icon-cache NO_CACHE)
  set(result 1)
  if(updater)
    execute_process(COMMAND "${updater}" --quiet --force --ignore-theme-index "${theme}"
                    RESULT_VARIABLE result)
  endif()
  if(NOT result EQUAL 0)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E touch "${theme}") # Now the cache is the older one.
  endif()
endfunction()
