# What every target of this project is compiled with.
add_library(msp_options INTERFACE)
target_compile_options(msp_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>
  $<$<PLATFORM_ID:Darwin>:-Werror=unguarded-availability-new>)
if(MSP_SANITIZE)
  target_compile_options(msp_options INTERFACE -fsanitize=${MSP_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(msp_options INTERFACE -fsanitize=${MSP_SANITIZE})
endif()
