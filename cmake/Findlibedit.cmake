# libedit, which lets a person edit lines on a terminal, as the target libedit::libedit.
find_path(libedit_INCLUDE_DIR histedit.h)
find_library(libedit_LIBRARY edit)
mark_as_advanced(libedit_INCLUDE_DIR libedit_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(libedit REQUIRED_VARS libedit_LIBRARY libedit_INCLUDE_DIR)

if(libedit_FOUND AND NOT TARGET libedit::libedit)
  add_library(libedit::libedit UNKNOWN IMPORTED)
  set_target_properties(
    libedit::libedit PROPERTIES IMPORTED_LOCATION ${libedit_LIBRARY}
                                INTERFACE_INCLUDE_DIRECTORIES ${libedit_INCLUDE_DIR})
endif()
