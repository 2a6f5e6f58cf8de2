# The service library, from the same six sources that service/Android.bp builds on a device.
#
# voxa_service: a static library for tests and benchmarks; its PAL symbols stay undefined until an
# executable links a PAL implementation (the fake, or the engine).
# libvoxa: the shared library the host process loads with dlopen; its PAL symbols resolve against
# the PAL linked into that process, as libvoxa.so resolves against the device's PAL library.
set(VOXA_SERVICE_SOURCES
    service/AidlToPalConverter.cpp
    service/PalToAidlConverter.cpp
    service/Service.cpp
    service/Utils.cpp
    service/Voxa.cpp
    service/VoxaSession.cpp
)

add_library(voxa_service STATIC ${VOXA_SERVICE_SOURCES})
target_include_directories(voxa_service PUBLIC service)
target_link_libraries(voxa_service PUBLIC vendor.orbo.hardware.voxa-V3-ndk binder_ndk liblog pal_headers)

add_library(libvoxa MODULE ${VOXA_SERVICE_SOURCES})
set_target_properties(libvoxa PROPERTIES OUTPUT_NAME voxa PREFIX lib
                      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(libvoxa PRIVATE service)
target_link_libraries(libvoxa PRIVATE vendor.orbo.hardware.voxa-V3-ndk binder_ndk liblog pal_headers)
