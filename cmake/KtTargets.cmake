# What this project's targets have in common. Everything is a property of a target, so a project that adds this one as a
# subdirectory keeps its own flags.

# The settings of every target of this project, libraries and programs alike.
function(kt_compile_settings target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(
        ${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

    # The arithmetic is the same at every optimisation level: no fused multiply-add, and no 80-bit registers, which the
    # old floating-point unit of 32-bit x86 would bring in.
    if(MSVC)
        # Before version 19.30 the compiler fused under /fp:precise; clang's driver of the same kind does so still.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
            target_compile_options(${target} PRIVATE /fp:precise /clang:-ffp-contract=off)
        elseif(MSVC_VERSION LESS 1930)
            target_compile_options(${target} PRIVATE /fp:strict)
        else()
            target_compile_options(${target} PRIVATE /fp:precise)
        endif()
    else()
        target_compile_options(${target} PRIVATE -ffp-contract=off)
        if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64|x86|i[3-6]86)$")
            target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse)
        endif()
    endif()

    if(KT_DEVELOPER)
        if(MSVC)
            # Exported classes have private members of the standard library, which that compiler warns of.
            target_compile_options(${target} PRIVATE /W4 /WX /wd4251 /wd4275)
        else()
            target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
        endif()
    endif()
endfunction()

# A library of all sources below `sources`, with its public headers in `headers`. The libraries share the headers in
# foundation/internal, which are not installed.
function(kt_add_library target sources headers)
    file(GLOB_RECURSE files CONFIGURE_DEPENDS ${sources}/*.cpp)
    add_library(${target} ${files})
    kt_compile_settings(${target})
    # No other library replaces a function of this one, so the compiler may inline its exported functions too. And a library
    # with symbols that are unique in the process is never unloaded, and takes from another copy of itself what is in there.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -fno-semantic-interposition -fno-gnu-unique)
        target_link_options(${target} PRIVATE -fno-gnu-unique)
    endif()
    target_compile_options(${target} PRIVATE ${KT_LIBRARY_OPTIONS})
    target_link_options(${target} PRIVATE ${KT_LIBRARY_OPTIONS})
    target_include_directories(
        ${target}
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/${headers}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
        PRIVATE ${PROJECT_SOURCE_DIR}/foundation/internal)
    set_target_properties(
        ${target}
        PROPERTIES VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}
                   POSITION_INDEPENDENT_CODE ON)

    # An installed library finds the other one beside itself, wherever the folder was moved.
    if(APPLE)
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "@loader_path")
    else()
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
    endif()

    get_target_property(type ${target} TYPE)
    if(type STREQUAL STATIC_LIBRARY)
        target_compile_definitions(${target} PUBLIC KT_STATIC)
    endif()
endfunction()

# The files of the neighbour scan that need flags of their own. One is compiled for wider vectors, which the program asks
# the processor for before it uses them; one must not have its powers replaced by cheaper operations.
function(kt_compile_neighbor_scan folder)
    if(MSVC)
        return()
    endif()
    set_source_files_properties(${folder}/exact_distance.cpp PROPERTIES COMPILE_OPTIONS -fno-builtin)
    set_source_files_properties(${folder}/kernels_baseline.cpp PROPERTIES COMPILE_OPTIONS -O3)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64|x86|i[3-6]86)$")
        set_source_files_properties(${folder}/kernels_avx2.cpp ${folder}/batch_kernels_avx2.cpp
            PROPERTIES COMPILE_OPTIONS "-O3;-mavx2;-mfma")
        set_source_files_properties(${folder}/batch_kernels_vnni.cpp
            PROPERTIES COMPILE_OPTIONS "-O3;-mavx512f;-mavx512bw;-mavx512vnni")
    endif()
endfunction()

# The loops of the normal density that are compiled for wider vectors, which the program asks the processor for before it uses
# them. Only the multiply-adds that they ask for are fused: see -ffp-contract above.
function(kt_compile_normal_density folder)
    if(NOT MSVC AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64|x86|i[3-6]86)$")
        set_source_files_properties(${folder}/learning_steps_avx2.cpp PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
        set_source_files_properties(${folder}/evaluation_steps_avx2.cpp PROPERTIES COMPILE_OPTIONS -mavx2)
    endif()
endfunction()

# A class that only the registry knows is named by no program, and a linker leaves out what nobody names: an object file of
# a static library, and many a shared library as a whole. So everything that links `target` is made to take it in. The
# object file that defines `symbol` names all registered classes. The same options are noted for the .pc file.
function(kt_keep_registered_classes target symbol)
    get_target_property(type ${target} TYPE)
    # 32-bit Windows and Apple's systems put an underscore before the name of a C symbol.
    if(APPLE OR (WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4))
        string(PREPEND symbol _)
    endif()
    # What a DLL exports is known to the programs under this name.
    if(WIN32 AND NOT type STREQUAL STATIC_LIBRARY)
        string(PREPEND symbol __imp_)
    endif()
    set(pc_libs "-l${target}")
    if(MSVC)
        target_link_options(${target} INTERFACE "LINKER:/INCLUDE:${symbol}")
    elseif(type STREQUAL STATIC_LIBRARY OR WIN32)
        target_link_options(${target} INTERFACE "LINKER:-u,${symbol}")
        set(pc_libs "-Wl,-u,${symbol} ${pc_libs}")
    elseif(NOT APPLE)
        set(file $<TARGET_LINKER_FILE:clastool::${target}>)
        target_link_options(${target} INTERFACE "LINKER:--push-state,--no-as-needed,${file},--pop-state")
        set(pc_libs "-Wl,--push-state,--no-as-needed ${pc_libs} -Wl,--pop-state")
    endif()
    set_target_properties(${target} PROPERTIES KT_PC_LIBS "${pc_libs}")
endfunction()
