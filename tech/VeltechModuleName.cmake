# The file name a tech module is built under: the name the host's loader
# looks for (platform/modulelookup.h), which on Windows follows the bitness
# of the processes that load it.
if(WIN32)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(VELTECH_MODULE_STEM veltech64)
  else()
    set(VELTECH_MODULE_STEM veltech32)
  endif()
  set(VELTECH_MODULE_PREFIX "")
else()
  set(VELTECH_MODULE_STEM veltech)
  set(VELTECH_MODULE_PREFIX "lib")
endif()
set(VELTECH_MODULE_FILE
  "${VELTECH_MODULE_PREFIX}${VELTECH_MODULE_STEM}${CMAKE_SHARED_LIBRARY_SUFFIX}")

# veltech_name_module(<target>): builds <target> under the tech module's file
# name.
function(veltech_name_module target)
  set_target_properties(${target} PROPERTIES
    PREFIX "${VELTECH_MODULE_PREFIX}"
    OUTPUT_NAME "${VELTECH_MODULE_STEM}"
    SUFFIX "${CMAKE_SHARED_LIBRARY_SUFFIX}")
endfunction()
