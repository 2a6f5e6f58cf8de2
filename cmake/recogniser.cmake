# The speech libraries of the engine PAL and of everything that measures it, found once:
# PkgConfig::SNDFILE, PkgConfig::SOXR and pocketsphinx (PocketSphinx with its include directories).
find_package(PkgConfig REQUIRED)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET GLOBAL sndfile)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET GLOBAL soxr)
pkg_check_modules(POCKETSPHINX REQUIRED pocketsphinx)

add_library(pocketsphinx INTERFACE)
# Debian's pocketsphinx.pc names an include directory that the package does not install.
foreach(dir ${POCKETSPHINX_INCLUDE_DIRS})
    if(EXISTS ${dir})
        target_include_directories(pocketsphinx SYSTEM INTERFACE ${dir})
    endif()
endforeach()
target_link_libraries(pocketsphinx INTERFACE ${POCKETSPHINX_LINK_LIBRARIES})
