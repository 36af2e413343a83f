# 32-bit Linux. An x86-64 processor runs the programs itself, with the C library of the compiler's
# package.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(talvcs_i686_lib /usr/i686-linux-gnu/lib)
set(CMAKE_CROSSCOMPILING_EMULATOR
  ${talvcs_i686_lib}/ld-linux.so.2 --library-path ${talvcs_i686_lib})
