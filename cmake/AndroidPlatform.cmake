# The platform interfaces of a device, for a build with the NDK's toolchain file. The NDK has liblog,
# and libbinder_ndk without the service manager. The rest comes from a tree of the product, named by
# two lists of folders. One error names everything that is missing.

set(JCAM_DEVICE_INCLUDE_DIRS "" CACHE STRING
    "Folders with the headers that the NDK lacks: android/binder_manager.h, cutils/, aidl/, ulog/, jlc/")
set(JCAM_DEVICE_LIBRARY_DIRS "" CACHE STRING
    "Folders with the libraries that the NDK lacks")

add_library(jcam_platform INTERFACE)
set(missing "")

foreach(header
        android/log.h
        android/binder_manager.h
        cutils/properties.h
        cutils/trace.h
        aidl/android/frameworks/stats/IStats.h
        ulog/FileULogger.h
        jlc/jlc_exception.h)
    string(MAKE_C_IDENTIFIER "JCAM_DEVICE_${header}" variable)
    # The product's folders, which are outside the NDK, come before the NDK. Every configure searches
    # anew, because the folders may have changed.
    unset(${variable} CACHE)
    find_path(${variable} "${header}" PATHS ${JCAM_DEVICE_INCLUDE_DIRS}
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    find_path(${variable} "${header}")
    if(NOT ${variable})
        list(APPEND missing "<${header}> (JCAM_DEVICE_INCLUDE_DIRS)")
    endif()
endforeach()

foreach(library log cutils binder_ndk android.frameworks.stats-V1-ndk mtkcam_ulog)
    string(MAKE_C_IDENTIFIER "JCAM_DEVICE_lib${library}" variable)
    unset(${variable} CACHE)
    find_library(${variable} NAMES "${library}" "${library}.so" PATHS ${JCAM_DEVICE_LIBRARY_DIRS}
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    find_library(${variable} NAMES "${library}" "${library}.so")
    if(${variable})
        target_link_libraries(jcam_platform INTERFACE "${${variable}}")
    else()
        list(APPEND missing "lib${library} (JCAM_DEVICE_LIBRARY_DIRS)")
    endif()
endforeach()

# A product may lack the log collector. The reference to it is weak, so the linker must be told to
# keep it.
unset(JCAM_DEVICE_libjlc_vnd CACHE)
find_library(JCAM_DEVICE_libjlc_vnd NAMES jlc_vnd PATHS ${JCAM_DEVICE_LIBRARY_DIRS}
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(JCAM_DEVICE_libjlc_vnd)
    target_link_libraries(jcam_platform INTERFACE "${JCAM_DEVICE_libjlc_vnd}")
    target_link_options(jcam_platform INTERFACE LINKER:--no-as-needed)
else()
    message(STATUS "This product has no log collector: libjlc_vnd is not in JCAM_DEVICE_LIBRARY_DIRS")
endif()

if(missing)
    list(JOIN missing "\n  " missing)
    message(FATAL_ERROR "A device build takes the platform's own interfaces. Missing are\n  ${missing}")
endif()
# After all other include folders: such a folder may hold more than the headers above.
foreach(folder IN LISTS JCAM_DEVICE_INCLUDE_DIRS)
    target_compile_options(jcam_platform INTERFACE "SHELL:-idirafter \"${folder}\"")
endforeach()
