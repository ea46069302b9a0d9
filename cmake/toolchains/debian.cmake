# Any processor that Debian has a cross compiler for, with Debian's own choice of instructions. The
# environment says which, as "dpkg-architecture -a ARCH -s" prints it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $ENV{DEB_HOST_GNU_CPU})
set(CMAKE_CXX_COMPILER $ENV{DEB_HOST_GNU_TYPE}-g++)
