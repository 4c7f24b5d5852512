# Finds the mimetic MIME library and defines the imported target Mimetic::Mimetic.
find_path(Mimetic_INCLUDE_DIR mimetic/mimetic.h)
find_library(Mimetic_LIBRARY mimetic)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Mimetic REQUIRED_VARS Mimetic_LIBRARY Mimetic_INCLUDE_DIR)

if(Mimetic_FOUND AND NOT TARGET Mimetic::Mimetic)
  add_library(Mimetic::Mimetic UNKNOWN IMPORTED)
  set_target_properties(Mimetic::Mimetic PROPERTIES
    IMPORTED_LOCATION "${Mimetic_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Mimetic_INCLUDE_DIR}")
endif()
mark_as_advanced(Mimetic_INCLUDE_DIR Mimetic_LIBRARY)
