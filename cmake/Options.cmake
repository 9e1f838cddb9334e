# Warnings, hardening and sanitizers: one interface target that everything links.
include(CheckCXXCompilerFlag)
find_package(Threads REQUIRED)

add_library(tav_options INTERFACE)
target_compile_options(tav_options INTERFACE -Wall -Wextra -Wshadow -Wconversion)
if(TAV_WERROR)
  target_compile_options(tav_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(tav_options INTERFACE -Wthread-safety)
endif()

target_compile_definitions(tav_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(tav_options INTERFACE -fstack-protector-strong -ffunction-sections -fdata-sections)
check_cxx_compiler_flag(-ftrivial-auto-var-init=zero TAV_HAS_AUTO_INIT)
if(TAV_HAS_AUTO_INIT)
  target_compile_options(tav_options INTERFACE -ftrivial-auto-var-init=zero)
endif()

if(TAV_SANITIZE)
  target_compile_options(tav_options INTERFACE -fsanitize=${TAV_SANITIZE} -fno-omit-frame-pointer
                                               -fno-sanitize-recover=all)
  target_link_options(tav_options INTERFACE -fsanitize=${TAV_SANITIZE})
  # Sanitizers make gcc doubt <regex> and fmt; it looks for such faults in the release build.
  target_compile_options(tav_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  target_compile_definitions(tav_options INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  target_link_options(tav_options INTERFACE -pie -Wl,-z,relro,-z,now,-z,noexecstack,--gc-sections)
endif()

# The agent carries the C++ runtime with it and needs libc alone.
add_library(tav_static_runtime INTERFACE)
if(NOT TAV_SANITIZE)
  target_link_options(tav_static_runtime INTERFACE -static-libstdc++ -static-libgcc $<$<CONFIG:Release>:-s>)
endif()
