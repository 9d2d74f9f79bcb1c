# Helpers shared by every layer's CMakeLists.txt.

# fu_public_headers(<header>...)
# Marks headers (paths relative to the current source dir) as public API: they are installed
# under include/filterutilities/ keeping their path below the source root, and the umbrella header
# filterutilities.h includes them.
function(fu_public_headers)
    foreach(h IN LISTS ARGN)
        get_filename_component(abs "${h}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
        file(RELATIVE_PATH rel "${CMAKE_SOURCE_DIR}" "${abs}")
        set_property(GLOBAL APPEND PROPERTY FU_PUBLIC_HEADERS "${rel}")
    endforeach()
endfunction()

# fu_host_headers(<header>...)
# Marks headers of the pipeline host that programs embedding the host need. They are installed
# like public headers but apart from the filter API: the umbrella header pipelinehost.h includes
# them, filterutilities.h does not. The host's other headers are not installed.
function(fu_host_headers)
    foreach(h IN LISTS ARGN)
        get_filename_component(abs "${h}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
        file(RELATIVE_PATH rel "${CMAKE_SOURCE_DIR}" "${abs}")
        set_property(GLOBAL APPEND PROPERTY FU_HOST_HEADERS "${rel}")
    endforeach()
endfunction()

# fu_library(<target> <SHARED|STATIC> [OUTPUT_NAME name])
# Creates a library whose headers are included as "layer/.../file.h" from the source root.
function(fu_library target kind)
    cmake_parse_arguments(ARG "" "OUTPUT_NAME" "" ${ARGN})
    add_library(${target} ${kind})
    add_library(filterutilities::${target} ALIAS ${target})
    target_include_directories(${target} PUBLIC
        "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>"
        "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/filterutilities>")
    if(ARG_OUTPUT_NAME)
        set_target_properties(${target} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT_NAME})
    endif()
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION}
                                               SOVERSION ${PROJECT_VERSION_MAJOR})
    set_property(GLOBAL APPEND PROPERTY FU_INSTALLED_TARGETS ${target})
endfunction()

# fu_test(<name> SOURCES <files>... LIBS <targets>...)
# One GoogleTest executable per tested area; every test is registered with CTest.
function(fu_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main GTest::gmock)
    target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}" "${CMAKE_SOURCE_DIR}/tests")
    target_compile_definitions(${name} PRIVATE
        FU_CORPUS_DIR="${FU_CORPUS_DIR}"
        FU_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
        FU_BINARY_DIR="${CMAKE_BINARY_DIR}")
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                         PROPERTIES ENVIRONMENT "FU_DEBUG_SINK=none")
endfunction()

# Installs the headers a global property lists (keeping their path below the source root) and
# an umbrella header, made from cmake/<umbrella>.in, that includes them all.
function(fu_install_headers property umbrella)
    get_property(headers GLOBAL PROPERTY ${property})
    list(SORT headers)
    set(includes "")
    foreach(h IN LISTS headers)
        string(APPEND includes "#include \"${h}\"\n")
        get_filename_component(dir "${h}" DIRECTORY)
        install(FILES "${CMAKE_SOURCE_DIR}/${h}"
                DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/filterutilities/${dir}")
    endforeach()
    set(FU_UMBRELLA_INCLUDES "${includes}")
    configure_file("${CMAKE_SOURCE_DIR}/cmake/${umbrella}.in"
                   "${CMAKE_BINARY_DIR}/include/${umbrella}" @ONLY)
    install(FILES "${CMAKE_BINARY_DIR}/include/${umbrella}"
            DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/filterutilities")
endfunction()

# Called once at the end of the top-level CMakeLists.txt: umbrella headers, install rules,
# CMake package and pkg-config file.
function(fu_finish_install)
    get_property(targets GLOBAL PROPERTY FU_INSTALLED_TARGETS)
    fu_install_headers(FU_PUBLIC_HEADERS filterutilities.h)
    fu_install_headers(FU_HOST_HEADERS pipelinehost.h)
    if(targets)
        install(TARGETS ${targets} EXPORT filterutilitiesTargets
                LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
                RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
        install(EXPORT filterutilitiesTargets NAMESPACE filterutilities::
                DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/filterutilities")
    endif()
    include(CMakePackageConfigHelpers)
    set(FU_FILTER_MODULE_DIR "${CMAKE_INSTALL_LIBDIR}/filterutilities/filters")
    set(FU_DATA_DIR "${CMAKE_INSTALL_DATADIR}/filterutilities")
    configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/filterutilitiesConfig.cmake.in"
        "${CMAKE_BINARY_DIR}/filterutilitiesConfig.cmake"
        INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/filterutilities"
        PATH_VARS FU_FILTER_MODULE_DIR FU_DATA_DIR)
    write_basic_package_version_file("${CMAKE_BINARY_DIR}/filterutilitiesConfigVersion.cmake"
        COMPATIBILITY SameMajorVersion)
    install(FILES "${CMAKE_BINARY_DIR}/filterutilitiesConfig.cmake"
                  "${CMAKE_BINARY_DIR}/filterutilitiesConfigVersion.cmake"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/filterutilities")
    # The pkg-config file finds its prefix relative to itself, so the installed tree can move.
    file(RELATIVE_PATH FU_PC_RELATIVE_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" FU_PC_RELATIVE_PREFIX "${FU_PC_RELATIVE_PREFIX}")
    set(FU_PC_DL_LIBS "")
    foreach(lib IN LISTS CMAKE_DL_LIBS)
        string(APPEND FU_PC_DL_LIBS " -l${lib}")
    endforeach()
    string(STRIP "${FU_PC_DL_LIBS}" FU_PC_DL_LIBS)
    configure_file("${CMAKE_SOURCE_DIR}/cmake/filterutilities.pc.in"
                   "${CMAKE_BINARY_DIR}/filterutilities.pc" @ONLY)
    install(FILES "${CMAKE_BINARY_DIR}/filterutilities.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()
