# Debian's android-liblog-dev: the real liblog, installed outside the default search paths.
find_path(LIBLOG_INCLUDE_DIR android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
find_library(LIBLOG_LIBRARY NAMES log liblog.so.0
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
add_library(liblog SHARED IMPORTED GLOBAL)
set_target_properties(liblog PROPERTIES
    IMPORTED_LOCATION ${LIBLOG_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${LIBLOG_INCLUDE_DIR})
get_filename_component(LIBLOG_DIR ${LIBLOG_LIBRARY} DIRECTORY)
list(APPEND CMAKE_BUILD_RPATH ${LIBLOG_DIR})
list(APPEND CMAKE_INSTALL_RPATH ${LIBLOG_DIR})
