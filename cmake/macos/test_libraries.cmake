# What the tests stand on where they are built for a Mac on another system. GoogleTest is built from its sources.
# cpp-httplib and OpenSSL are declarations alone: what uses them is linked without them, which is enough to see
# that it compiles and that nothing else is missing; it cannot run here anyway.
set(MSP_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's sources")
set(INSTALL_GTEST OFF)
add_subdirectory(${MSP_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

foreach(library IN ITEMS PkgConfig::HTTPLIB OpenSSL::SSL OpenSSL::Crypto)
  add_library(${library} INTERFACE IMPORTED GLOBAL)
  target_link_options(${library} INTERFACE -Wl,-undefined,dynamic_lookup)
endforeach()
