# The library's objects are compiled once; the static and the shared library are both made of them.
# Folders below add their sources with ferrox_sources().

add_library(ferrox_objects OBJECT)
target_include_directories(ferrox_objects PUBLIC "${PROJECT_SOURCE_DIR}")
target_compile_definitions(ferrox_objects PRIVATE FERROX_VERSION="${PROJECT_VERSION}" BOOST_ASIO_NO_DEPRECATED)
target_link_libraries(ferrox_objects
  PRIVATE ferrox_flags Boost::json Boost::url CURL::libcurl ICU::i18n ICU::uc OpenSSL::Crypto
          PkgConfig::AVAHI Threads::Threads)

function(ferrox_sources)
  list(TRANSFORM ARGN PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  target_sources(ferrox_objects PRIVATE ${ARGN})
endfunction()

function(ferrox_library target kind)
  add_library(${target} ${kind} $<TARGET_OBJECTS:ferrox_objects>)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ferrox VERSION ${PROJECT_VERSION}
                        SOVERSION ${PROJECT_VERSION_MAJOR} LINKER_LANGUAGE CXX)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
  target_link_libraries(${target} PRIVATE ferrox_flags Boost::json Boost::url CURL::libcurl ICU::i18n ICU::uc
                        OpenSSL::Crypto PkgConfig::AVAHI PUBLIC Threads::Threads)
endfunction()

ferrox_library(ferrox STATIC)
add_library(Ferrox::ferrox ALIAS ferrox)
if(FERROX_BUILD_SHARED)
  ferrox_library(ferrox_shared SHARED)
endif()
