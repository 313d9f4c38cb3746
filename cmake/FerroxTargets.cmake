# The library's objects are compiled once; the static and the shared library are both made of them.
# Folders below add their sources with ferrox_sources(), and name with ferrox_public_headers() what is installed.

set(FERROX_LIBRARIES Boost::json Boost::url CURL::libcurl ICU::i18n ICU::uc OpenSSL::Crypto PkgConfig::AVAHI)

add_library(ferrox_objects OBJECT)
target_include_directories(ferrox_objects PUBLIC "${PROJECT_SOURCE_DIR}")
target_compile_definitions(ferrox_objects PRIVATE FERROX_VERSION="${PROJECT_VERSION}" BOOST_ASIO_NO_DEPRECATED)
target_link_libraries(ferrox_objects PRIVATE ferrox_flags ${FERROX_LIBRARIES} Threads::Threads)
# What leaves the shared library says so with FRX_EXPORT.
set_target_properties(ferrox_objects PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

function(ferrox_sources)
  list(TRANSFORM ARGN PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  target_sources(ferrox_objects PRIVATE ${ARGN})
endfunction()

# Header by header what applications may include: no other header is installed, and scripts/check-layers, which
# reads these lists, sees to it that the command and the examples need none, nor the named ones themselves.
function(ferrox_public_headers)
  if(FERROX_INSTALL)
    file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
    install(FILES ${ARGN} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/ferrox/${folder}" COMPONENT development)
  endif()
endfunction()

function(ferrox_library target kind)
  add_library(${target} ${kind} $<TARGET_OBJECTS:ferrox_objects>)
  # The version of the binary interface is its own: it changes when a program has to be compiled again.
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ferrox VERSION ${PROJECT_VERSION} SOVERSION 1
                        LINKER_LANGUAGE CXX)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
                             "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ferrox>")
  target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:ferrox_flags>" ${FERROX_LIBRARIES}
                        PUBLIC Threads::Threads)
endfunction()

ferrox_library(ferrox STATIC)
set_target_properties(ferrox PROPERTIES EXPORT_NAME static)
add_library(Ferrox::static ALIAS ferrox)
if(FERROX_BUILD_SHARED)
  ferrox_library(ferrox_shared SHARED)
  set_target_properties(ferrox_shared PROPERTIES EXPORT_NAME shared
                        LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/ferrox.map")
  # Templates of other libraries that ended up in our objects stay inside as well.
  target_link_options(ferrox_shared PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/ferrox.map"
                      LINKER:--exclude-libs,ALL)
  if(NOT FERROX_SANITIZE)
    target_link_options(ferrox_shared PRIVATE LINKER:--no-undefined)
  endif()
  add_library(Ferrox::shared ALIAS ferrox_shared)
endif()

# Inside this tree and for who adds it to another one. Of an installed one FerroxConfig.cmake decides.
if(BUILD_SHARED_LIBS AND FERROX_BUILD_SHARED)
  add_library(Ferrox::ferrox ALIAS ferrox_shared)
else()
  add_library(Ferrox::ferrox ALIAS ferrox)
endif()
