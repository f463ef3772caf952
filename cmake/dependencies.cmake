# The libraries the agent stands on. All are Debian packages and Homebrew formulas; scripts/setup installs them.
find_package(Threads REQUIRED)
find_package(CURL REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(PkgConfig REQUIRED)

find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(msp_asio INTERFACE)
target_include_directories(msp_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(msp_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(msp_asio INTERFACE Threads::Threads)

# Unicode categories and property lists: the system's own on a Mac, two libraries elsewhere.
add_library(msp_system INTERFACE)
if(APPLE)
  target_link_libraries(msp_system INTERFACE
    "-framework CoreFoundation" "-framework IOKit" "-framework SystemConfiguration")
else()
  pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
  pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
  target_link_libraries(msp_system INTERFACE PkgConfig::UTF8PROC PkgConfig::PLIST)
endif()

if(CMAKE_CROSSCOMPILING AND MSP_BUILD_TESTS)
  include(${CMAKE_CURRENT_LIST_DIR}/macos/test_libraries.cmake)
elseif(MSP_BUILD_TESTS OR MSP_BUILD_BENCHMARKS)
  find_package(GTest REQUIRED)
  find_package(benchmark REQUIRED)
  find_package(OpenSSL REQUIRED)
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
