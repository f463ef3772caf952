# What the tests stand on where they are built for a Mac on another system. GoogleTest is built from its sources.
# cpp-httplib and OpenSSL are declarations and link stubs: cmake/macos/stub-test-libraries writes the stubs once
# the object files are there. So everything is linked, and what is missing is found; it cannot run here anyway.
set(MSP_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's sources")
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK OFF)
add_subdirectory(${MSP_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

foreach(library IN ITEMS PkgConfig::HTTPLIB OpenSSL::SSL OpenSSL::Crypto)
  add_library(${library} INTERFACE IMPORTED GLOBAL)
endforeach()
target_compile_definitions(PkgConfig::HTTPLIB INTERFACE CPPHTTPLIB_OPENSSL_SUPPORT)
target_link_libraries(PkgConfig::HTTPLIB INTERFACE ${CMAKE_BINARY_DIR}/test_stubs/libhttplib.tbd)
target_link_libraries(OpenSSL::SSL INTERFACE ${CMAKE_BINARY_DIR}/test_stubs/libssl.tbd)
target_link_libraries(OpenSSL::Crypto INTERFACE ${CMAKE_BINARY_DIR}/test_stubs/libcrypto.tbd)
