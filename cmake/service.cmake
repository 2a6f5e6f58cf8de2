# The service library, from the same seven sources that service/Android.bp builds on a device,
# compiled once for both of its forms:
#
# voxa_service: a static library for tests and benchmarks; its PAL symbols stay undefined until an
# executable links a PAL implementation (the fake, the scripted engine or the engine).
# libvoxa: the shared library the host process loads with dlopen; its PAL symbols resolve against
# the PAL linked into that process, as libvoxa.so resolves against the device's PAL library. It
# exports registerService alone (service/libvoxa.map).
#
# Hidden visibility suits both: it only decides what a shared object exports, so the executables
# that link voxa_service see every symbol as before, and libvoxa keeps its own copies of the
# interface code to itself.
set(VOXA_SERVICE_SOURCES
    service/AidlToPalConverter.cpp
    service/PalToAidlConverter.cpp
    service/PalWorker.cpp
    service/Service.cpp
    service/Utils.cpp
    service/Voxa.cpp
    service/VoxaSession.cpp
)
set(VOXA_SERVICE_EXPORTS ${CMAKE_CURRENT_LIST_DIR}/../service/libvoxa.map)

set(VOXA_SERVICE_DEPENDENCIES vendor.orbo.hardware.voxa-V3-ndk binder_ndk liblog pal_headers)

add_library(voxa_service_objects OBJECT ${VOXA_SERVICE_SOURCES})
set_target_properties(voxa_service_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(voxa_service_objects PRIVATE ${VOXA_SERVICE_DEPENDENCIES})

add_library(voxa_service STATIC $<TARGET_OBJECTS:voxa_service_objects>)
target_include_directories(voxa_service PUBLIC service)
target_link_libraries(voxa_service PUBLIC ${VOXA_SERVICE_DEPENDENCIES})

add_library(libvoxa MODULE $<TARGET_OBJECTS:voxa_service_objects>)
set_target_properties(libvoxa PROPERTIES
    OUTPUT_NAME voxa PREFIX lib LINK_DEPENDS ${VOXA_SERVICE_EXPORTS})
target_link_libraries(libvoxa PRIVATE ${VOXA_SERVICE_DEPENDENCIES})
target_link_options(libvoxa PRIVATE "LINKER:--version-script=${VOXA_SERVICE_EXPORTS}")
