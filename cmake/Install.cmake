# What `cmake --install` puts where, and the CMake package that other
# projects find with find_package(ZentorJSON 1.16):
#
#   bin/zentor                      the reference host
#   lib/libzentor_json.so           the JSON module, found by the host there
#   lib/libmjson.a                  the value library (ZentorJSON::mjson)
#   include/ZentorJSON-1.16/        host interfaces (ZentorJSON::sdk) and the
#                                   value library's public headers
#   lib/cmake/ZentorJSON/           the package: targets, version, config
#   share/ZentorJSON/zentor_json.supp
#                                   valgrind suppressions for the module's
#                                   node pool
include(CMakePackageConfigHelpers)

set(ZENTOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZentorJSON)

install(TARGETS zentor_sdk mjson EXPORT ZentorJSONTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${ZENTOR_INSTALL_INCLUDEDIR})
install(FILES ${ZENTOR_SDK_HEADERS} ${ZENTOR_MJSON_HEADERS}
  DESTINATION ${ZENTOR_INSTALL_INCLUDEDIR})

if(TARGET zentor AND TARGET zentor_json)
  install(TARGETS zentor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS zentor_json LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/module/zentor_json.supp
    DESTINATION ${CMAKE_INSTALL_DATADIR}/ZentorJSON)
endif()

install(EXPORT ZentorJSONTargets NAMESPACE ZentorJSON:: DESTINATION ${ZENTOR_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZentorJSONConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZentorJSONConfig.cmake
  INSTALL_DESTINATION ${ZENTOR_CMAKE_DIR}
  PATH_VARS ZENTOR_INSTALL_INCLUDEDIR CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR
    CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZentorJSONConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/ZentorJSONConfig.cmake
  ${PROJECT_BINARY_DIR}/ZentorJSONConfigVersion.cmake
  DESTINATION ${ZENTOR_CMAKE_DIR})
