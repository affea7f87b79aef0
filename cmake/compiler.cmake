# Flags of every target, and rdb_module: one folder of the library as a set of objects.

# what a module shows to other modules is hidden from the world, unless the tests want to see it
if(NOT RDB_EXPORT_ALL)
    set(CMAKE_C_VISIBILITY_PRESET hidden)
    set(CMAKE_CXX_VISIBILITY_PRESET hidden)
    set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
endif()

add_library(rdbFlags INTERFACE)
target_include_directories(rdbFlags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(rdbFlags INTERFACE -Wall -Wextra -Wformat-security -Wno-unused-parameter)
# messages name a source file from the project's folder on, however the generator names it to the compiler
file(RELATIVE_PATH upToSource ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "/$" "" upToSource "${upToSource}")
target_compile_options(rdbFlags INTERFACE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=" "-fmacro-prefix-map=${upToSource}/=")
if(RDB_WERROR)
    target_compile_options(rdbFlags INTERFACE -Werror)
endif()
if(RDB_SANITIZE)
    add_compile_options(-fsanitize=${RDB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${RDB_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # the checks that are built in confuse this warning, in the standard library's own headers
        target_compile_options(rdbFlags INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()

# rdb_module(base sysMess.cpp ...)
function(rdb_module name)
    add_library(${name}Objects OBJECT ${ARGN})
    target_link_libraries(${name}Objects PUBLIC rdbFlags)
endfunction()
