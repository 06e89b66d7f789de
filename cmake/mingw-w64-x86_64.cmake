# Cross-build for 64-bit Windows with mingw-w64's posix thread model (the
# win32 model lacks std::thread and std::mutex, which GoogleTest needs).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KRL_MINGW_PREFIX x86_64-w64-mingw32)
find_program(CMAKE_CXX_COMPILER NAMES ${KRL_MINGW_PREFIX}-g++-posix ${KRL_MINGW_PREFIX}-g++ REQUIRED)
# GoogleTest, built from source here, enables C too.
find_program(CMAKE_C_COMPILER NAMES ${KRL_MINGW_PREFIX}-gcc-posix ${KRL_MINGW_PREFIX}-gcc REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${KRL_MINGW_PREFIX}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KRL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
