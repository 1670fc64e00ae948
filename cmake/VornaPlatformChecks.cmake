# The safe save depends on an atomic exchange of two directory entries; refuse to
# build where the C library cannot name it rather than fall back silently.
include(CheckSymbolExists)
set(CMAKE_REQUIRED_DEFINITIONS -D_GNU_SOURCE)
check_symbol_exists(renameat2 "stdio.h" VORNA_HAVE_RENAMEAT2)
check_symbol_exists(RENAME_EXCHANGE "stdio.h;linux/fs.h" VORNA_HAVE_RENAME_EXCHANGE)
unset(CMAKE_REQUIRED_DEFINITIONS)
if(NOT VORNA_HAVE_RENAMEAT2 OR NOT VORNA_HAVE_RENAME_EXCHANGE)
  message(FATAL_ERROR "renameat2 with RENAME_EXCHANGE is required (glibc 2.28 or later on Linux)")
endif()
