# Run by ctest as `cmake -DDOXYFILE=... -DSCRATCH=... -DHINTS=... -P check-docs.cmake`: makes the
# ad client's API reference from the build's Doxyfile (the one `sorvel-docs` runs) into a scratch
# folder, and fails on any doxygen warning or when the HTML or the Qt help file is missing.

foreach(tool doxygen qhelpgenerator)
    find_program(found_${tool} ${tool} HINTS ${HINTS})
    if(NOT found_${tool})
        message(FATAL_ERROR "${tool} is not installed: scripts/setup installs it "
                            "(doxygen, qt6-documentation-tools)")
    endif()
endforeach()
if(NOT EXISTS "${DOXYFILE}")
    message(FATAL_ERROR "${DOXYFILE} is missing: doxygen was not found when the build was "
                        "configured; run cmake again")
endif()
file(STRINGS "${DOXYFILE}" qhg_location REGEX "^QHG_LOCATION *= *\"[^\"]+\"")
if(NOT qhg_location)
    message(FATAL_ERROR "${DOXYFILE} names no qhelpgenerator: it was not found when the build was "
                        "configured; run cmake again")
endif()

# The build's settings, with the output moved to the scratch folder (the Qt help file follows the
# HTML folder).
file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
file(WRITE "${SCRATCH}/Doxyfile" "@INCLUDE = \"${DOXYFILE}\"\nOUTPUT_DIRECTORY = \"${SCRATCH}\"\n")
execute_process(COMMAND "${found_doxygen}" "${SCRATCH}/Doxyfile" WORKING_DIRECTORY "${SCRATCH}"
                RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
# Doxygen's warnings and errors go to the error output, as does Qt's chatter about the
# environment from qhelpgenerator, which does not count.
if(NOT code EQUAL 0 OR err MATCHES "(warning|error):")
    message(FATAL_ERROR "doxygen failed (${code}):\n${err}\n${out}")
endif()

foreach(made html/index.html html/classPXBBannerView.html sorvel.qch)
    if(NOT EXISTS "${SCRATCH}/${made}")
        message(FATAL_ERROR "doxygen made no ${made}:\n${out}")
    endif()
endforeach()
message(STATUS "API reference made without warnings: ${SCRATCH}")
