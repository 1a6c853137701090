# What is built.

# An option VELMORA_CAN_BRIDGE_<name> for one part: ON, OFF or AUTO, which is the default where all is
# built that it needs: bridge_part(NAME DEFAULT TEXT [part...]). What a parent project sets counts, and
# does not get into the cache.
function(bridge_part name default text)
  set(option VELMORA_CAN_BRIDGE_${name})
  set(${option} AUTO CACHE STRING "${text}: ON, OFF, or AUTO, where all that it needs is built")
  set_property(CACHE ${option} PROPERTY STRINGS AUTO ON OFF)
  set(missing "")
  foreach(part IN LISTS ARGN)
    if(NOT VELMORA_CAN_BRIDGE_${part})
      list(APPEND missing VELMORA_CAN_BRIDGE_${part})
    endif()
  endforeach()

  if(${option} STREQUAL "AUTO")
    set(wanted OFF)
    if(VELMORA_CAN_BRIDGE_COMPANIONS AND NOT missing)
      set(wanted ${default})
    endif()
  else()
    set(wanted ${${option}})
  endif()
  if(wanted AND missing)
    list(JOIN missing " and " missing)
    message(FATAL_ERROR "${option} is ON and needs ${missing}, which is OFF")
  endif()
  set(${option} ${wanted} PARENT_SCOPE)
endfunction()

# find_package for a package that one part needs, unless a parent project has its target: says which
# Debian package has it, and the option that leaves the part out.
function(bridge_find_package name target debian_package leave_out)
  if(TARGET ${target})
    return()
  endif()
  find_package(${name} QUIET)
  if(NOT ${name}_FOUND)
    message(FATAL_ERROR "${name} is missing. Install it (on Debian: ${debian_package}), "
                        "or leave this part out with ${leave_out}.")
  endif()
endfunction()
