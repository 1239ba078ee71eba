# The file name a tech module is built under: the name the host's loader
# looks for (platform/modulelookup.h). Builds are 64-bit only.
if(WIN32)
  set(VELTECH_MODULE_STEM veltech64)
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
