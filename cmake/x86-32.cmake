# 32-bit x86 on a 64-bit x86 system (g++-multilib). SSE2 arithmetic: x87 would round doubles twice.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# Kernels of 64-bit x86 systems often refuse to run 32-bit programs; the emulator runs them everywhere.
find_program(ZEL_QEMU_I386 qemu-i386)
if(ZEL_QEMU_I386)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${ZEL_QEMU_I386}")
endif()
