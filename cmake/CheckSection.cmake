# Fails unless every audio-thread function of the effect objects lies in the
# section RT_CODE of BINARY: cmake -DOBJDUMP=... -DBINARY=... -P CheckSection.cmake
execute_process(COMMAND ${OBJDUMP} -d -C -j RT_CODE ${BINARY}
  OUTPUT_VARIABLE listing RESULT_VARIABLE status ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${BINARY}: ${errors}")
endif()
foreach(function
    "CZOR_LFX_APO_Universal_Base::APOProcess("
    "CZOR_LFX_APO_Universal_Base::CopyPath("
    "CZOR_LFX_APO_Universal_Base::FadeIn("
    "CZOR_LFX_APO_Universal_Base::HasSound("
    "CZOR_LFX_Capture_APO_Universal::APOProcess(")
  string(FIND "${listing}" "${function}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${function}...) is not in RT_CODE of ${BINARY}")
  endif()
endforeach()
message(STATUS "The audio-thread functions lie in RT_CODE")
