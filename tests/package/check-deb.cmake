# Run by ctest as `cmake -DCPACK=... -DCPACK_CONFIG=... -DSCRATCH=... -P check-deb.cmake`: builds
# the Debian package, checks its dependencies and files, unpacks it into a scratch root and runs
# the unpacked sound board off screen until it has written its screenshot.

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT code EQUAL 0)
        message(FATAL_ERROR "${ARGN}\nfailed (${code}):\n${out}")
    endif()
    set(output "${out}" PARENT_SCOPE)
endfunction()

foreach(tool dpkg-deb dpkg-shlibdeps)
    find_program(found_${tool} ${tool})
    if(NOT found_${tool})
        message(STATUS "skipped: ${tool} is not installed (dpkg-dev)")
        return()
    endif()
endforeach()

file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")

run("${CPACK}" --config "${CPACK_CONFIG}" -G DEB -B "${SCRATCH}/cpack")
file(GLOB packages "${SCRATCH}/cpack/brindle-sounds_*.deb")
list(LENGTH packages count)
if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected one package in ${SCRATCH}/cpack, found: ${packages}")
endif()

# Runtime libraries only: a -dev package would drag the whole tool chain onto a user's machine.
run(dpkg-deb --field "${packages}" Depends)
string(STRIP "${output}" depends)
message(STATUS "Depends: ${depends}")
if(depends MATCHES "-dev[ ,(]|-dev$")
    message(FATAL_ERROR "the package depends on a development package: ${depends}")
endif()
foreach(library libqt6webenginewidgets6 libqt6multimedia6 libavformat)
    if(NOT depends MATCHES "${library}")
        message(FATAL_ERROR "the package does not depend on ${library}: ${depends}")
    endif()
endforeach()

set(root "${SCRATCH}/root")
run(dpkg-deb -x "${packages}" "${root}")
foreach(file
        bin/brindle-sounds
        bin/sorvel-adserver
        share/brindle-sounds/buttonEffect.caf
        share/brindle-sounds/adserver/demo-inventory.json
        share/applications/brindle-sounds.desktop
        share/icons/hicolor/scalable/apps/brindle-sounds.svg
        share/icons/hicolor/48x48/apps/brindle-sounds.png
        share/icons/hicolor/256x256/apps/brindle-sounds.png)
    if(NOT EXISTS "${root}/usr/${file}")
        message(FATAL_ERROR "the package lacks /usr/${file}")
    endif()
endforeach()

run("${root}/usr/bin/sorvel-adserver" --help)

# The program as a user starts it, with a profile of its own; nothing points it at the build
# tree, so the sounds it finds are the unpacked ones.
set(shot "${SCRATCH}/screenshot.png")
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env --unset=BRINDLE_SOUNDS_RESOURCES
            "XDG_CONFIG_HOME=${SCRATCH}/config" "XDG_CACHE_HOME=${SCRATCH}/cache"
            "XDG_DATA_HOME=${SCRATCH}/data"
            "${root}/usr/bin/brindle-sounds" --screenshot "${shot}" --screenshot-delay 30
    WORKING_DIRECTORY "${SCRATCH}"
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out
    TIMEOUT 90)
message(STATUS "brindle-sounds said:\n${out}")
if(NOT code EQUAL 0)
    message(FATAL_ERROR "the unpacked brindle-sounds ended with ${code}")
endif()
foreach(line
        "sounds from ${root}/usr/share/brindle-sounds"
        "ad shown"
        "screenshot written to ${shot}")
    string(FIND "${out}" "brindle-sounds: ${line}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "brindle-sounds did not say \"${line}\"")
    endif()
endforeach()

# A PNG of the window: the signature, then the header chunk with width and height.
file(READ "${shot}" head LIMIT 24 HEX)
string(SUBSTRING "${head}" 0 16 signature)
string(SUBSTRING "${head}" 24 24 header)
if(NOT signature STREQUAL "89504e470d0a1a0a")
    message(FATAL_ERROR "${shot} is not a PNG")
endif()
# "IHDR", width 320, height 480
if(NOT header STREQUAL "4948445200000140000001e0")
    message(FATAL_ERROR "${shot} is not 320 x 480: header ${header}")
endif()
