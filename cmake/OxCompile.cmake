# How each kind of target is compiled and linked.
include(CheckCXXCompilerFlag)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

if(OX_SANITIZE)
  # vptr checks need the type information that the module is built without.
  add_compile_options(-fsanitize=${OX_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OX_SANITIZE})
endif()

# Everything.
function(ox_compile target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  # Before the folders of a project that has this one as a part: it may have a "host" of its own.
  target_include_directories(${target} BEFORE
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> PRIVATE ${PROJECT_SOURCE_DIR})
  # On 32-bit systems too: otherwise a large inode number or directory offset makes a file look missing,
  # and a missing configuration empties the cache. Public, since headers hold times.
  target_compile_definitions(${target} PUBLIC _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>
    $<$<BOOL:${OX_WARNINGS_ARE_ERRORS}>:-Werror>)
endfunction()

# Programs whose time goes into system calls: built often, so built fast.
function(ox_compile_fast target)
  ox_compile(${target})
  target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>)
endfunction()

# What ends up in the module: no exceptions, no RTTI, no guards around statics, and no call into the
# C library that the compiler makes up out of a loop or a declaration. A device's loader has no C
# library to offer, so the hardening that calls it (stack protector, FORTIFY) is off here, even where
# a package's flags turn it on for everything else.
function(ox_system_code target)
  ox_compile(${target})
  target_compile_options(${target} PRIVATE
    -fvisibility=hidden -fvisibility-inlines-hidden
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-sized-deallocation
    -fno-asynchronous-unwind-tables -fno-unwind-tables
    -fno-builtin -fno-stack-protector -U_FORTIFY_SOURCE
    -ffunction-sections -fdata-sections)
  check_cxx_compiler_flag(-fno-tree-loop-distribute-patterns OX_HAS_NO_LOOP_PATTERNS)
  if(OX_HAS_NO_LOOP_PATTERNS)
    target_compile_options(${target} PRIVATE -fno-tree-loop-distribute-patterns)
  endif()
endfunction()

function(ox_module_link target)
  set_target_properties(${target} PROPERTIES PREFIX lib)
  target_link_options(${target} PRIVATE
    -Wl,-Bsymbolic -Wl,--gc-sections -Wl,--exclude-libs,ALL -Wl,--as-needed -Wl,-z,relro,-z,now
    -static-libgcc)
  if(NOT OX_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()
