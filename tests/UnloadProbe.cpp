#include <dlfcn.h>

#include <cstdio>

// Loads the library that its argument names, uses it, unloads it, and tells whether it is gone.

int main(int /*argc*/, char** argv) {
    void* library = dlopen(argv[1], RTLD_NOW);
    // EventTrackJLogger::getInstance() and JLogger::isFileModeEnabled()
    auto* getInstance = reinterpret_cast<void* (*)()>(
            dlsym(library, "_ZN4JCam5Utils4JLog5Track17EventTrackJLogger11getInstanceEv"));
    auto* isFileModeEnabled = reinterpret_cast<bool (*)()>(
            dlsym(library, "_ZN4JCam5Utils4JLog7JLogger17isFileModeEnabledEv"));
    if (getInstance == nullptr || isFileModeEnabled == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    getInstance();
    isFileModeEnabled();
    dlclose(library);
    fputs(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr ? "unloaded\n" : "still there\n",
          stderr);
    return 0;
}
