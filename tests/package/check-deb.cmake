# Run by ctest as `cmake -DCPACK=... -DCPACK_CONFIG=... -DSCRATCH=... -P check-deb.cmake`: builds
# the Debian packages (the sound board, the ad server, the ad client library's two), checks their
# dependencies and files, runs the checks distributions apply (lintian, desktop-file-validate,
# appstreamcli), unpacks them into a scratch root and runs the unpacked sound board off screen
# until it has written its screenshot.

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
set(root "${SCRATCH}/root")
foreach(package brindle-sounds sorvel-adserver)
    file(GLOB found "${SCRATCH}/cpack/${package}_*.deb")
    list(LENGTH found count)
    if(NOT count EQUAL 1)
        message(FATAL_ERROR "expected one ${package} package in ${SCRATCH}/cpack, found: ${found}")
    endif()
    set(deb_${package} "${found}")
    # Runtime libraries only: a -dev package would drag the tool chain onto a user's machine.
    run(dpkg-deb --field "${found}" Depends)
    string(STRIP "${output}" depends_${package})
    message(STATUS "${package} depends on: ${depends_${package}}")
    if(depends_${package} MATCHES "-dev[ ,(]|-dev$")
        message(FATAL_ERROR "${package} depends on a development package")
    endif()
    run(dpkg-deb -x "${found}" "${root}")
endforeach()
# The ad client library for other applications, when the build made it: its runtime package, and
# the development package that may well depend on other development packages.
file(GLOB deb_libraries "${SCRATCH}/cpack/libsorvel1_*.deb" "${SCRATCH}/cpack/libsorvel-dev_*.deb")
foreach(found ${deb_libraries})
    run(dpkg-deb -x "${found}" "${root}")
endforeach()
# The engines come with the ad client's runtime package, which the sound board runs on.
file(GLOB deb_runtime "${SCRATCH}/cpack/libsorvel1_*.deb")
if(NOT deb_runtime)
    message(FATAL_ERROR "no libsorvel1 package")
endif()
run(dpkg-deb --field "${deb_runtime}" Depends)
if(NOT depends_brindle-sounds MATCHES "(^|, )libsorvel1 \\(= ")
    message(FATAL_ERROR "brindle-sounds does not depend on its own version of libsorvel1")
endif()
foreach(library libqt6webenginewidgets6 libqt6multimedia6 libavformat libssl3)
    if(NOT output MATCHES "${library}")
        message(FATAL_ERROR "libsorvel1 does not depend on ${library}")
    endif()
endforeach()
# The cipher's library, which it loads by itself, is named for the server too.
if(NOT depends_sorvel-adserver MATCHES "libssl3")
    message(FATAL_ERROR "sorvel-adserver does not depend on libssl3")
endif()
# The developer's server is not the user's: it has a package of its own.
run(dpkg-deb --contents "${deb_brindle-sounds}")
if(output MATCHES "sorvel-adserver")
    message(FATAL_ERROR "brindle-sounds carries the ad server's files:\n${output}")
endif()

foreach(file
        bin/brindle-sounds
        bin/sorvel-adserver
        share/brindle-sounds/buttonEffect.caf
        share/sorvel-adserver/demo-inventory.json
        share/applications/brindle-sounds.desktop
        share/metainfo/brindle-sounds.metainfo.xml
        share/icons/hicolor/scalable/apps/brindle-sounds.svg
        share/icons/hicolor/48x48/apps/brindle-sounds.png
        share/icons/hicolor/256x256/apps/brindle-sounds.png
        share/man/man1/brindle-sounds.1.gz
        share/man/man1/sorvel-adserver.1.gz
        share/doc/brindle-sounds/copyright
        share/doc/sorvel-adserver/changelog.gz)
    if(NOT EXISTS "${root}/usr/${file}")
        message(FATAL_ERROR "the packages lack /usr/${file}")
    endif()
endforeach()

if(deb_libraries)
    foreach(file */libsorvel.so.1 */libsorvel-platform.so.1 */sorvel/libsorvel-audio.so
            */sorvel/libsorvel-decoder.so */sorvel/libsorvel-webengine.so */libsorvel.so */cmake/Sorvel/SorvelConfig.cmake
            */pkgconfig/sorvel.pc ../include/sorvel/SorvelAds)
        file(GLOB found "${root}/usr/lib/${file}")
        if(NOT found)
            message(FATAL_ERROR "the library packages lack /usr/lib/${file}")
        endif()
    endforeach()
endif()

# The checks distributions apply. Any finding fails: a justified exception belongs in the
# package's lintian overrides, with its reason.
foreach(tool desktop-file-validate appstreamcli lintian)
    find_program(found_${tool} ${tool})
    if(NOT found_${tool})
        message(FATAL_ERROR "${tool} is not installed (scripts/setup installs it)")
    endif()
endforeach()
run(desktop-file-validate "${root}/usr/share/applications/brindle-sounds.desktop")
if(NOT output STREQUAL "")
    message(FATAL_ERROR "desktop-file-validate:\n${output}")
endif()
run(appstreamcli validate --no-net --pedantic
    "${root}/usr/share/metainfo/brindle-sounds.metainfo.xml")
if(output MATCHES "(^|\n)[EW]: ")
    message(FATAL_ERROR "appstreamcli:\n${output}")
endif()
# Root runs lintian only when told that it may.
execute_process(COMMAND lintian --pedantic --allow-root --no-tag-display-limit
                        "${deb_brindle-sounds}" "${deb_sorvel-adserver}" ${deb_libraries}
                RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
message(STATUS "lintian:\n${out}")
if(NOT code EQUAL 0 OR out MATCHES "(^|\n)[EWIP]: ")
    message(FATAL_ERROR "lintian found something (${code})")
endif()

run("${root}/usr/bin/sorvel-adserver" --help)

# The program as a user starts it, with a profile of its own; nothing points it at the build
# tree, so the sounds it finds are the unpacked ones. Unpacked, not installed, its libraries are
# where the loader does not look by itself.
set(shot "${SCRATCH}/screenshot.png")
file(GLOB unpacked_libdir "${root}/usr/lib/*/libsorvel.so.1")
get_filename_component(unpacked_libdir "${unpacked_libdir}" DIRECTORY)
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env --unset=BRINDLE_SOUNDS_RESOURCES
            "LD_LIBRARY_PATH=${unpacked_libdir}"
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
