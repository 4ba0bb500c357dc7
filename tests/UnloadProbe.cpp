#include <dlfcn.h>

#include <cstdio>

// Loads the library that its argument names, makes the tracker, unloads the library, and tells
// whether it is gone.

int main(int /*argc*/, char** argv) {
    void* library = dlopen(argv[1], RTLD_NOW);
    if (library == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    // EventTrackJLogger::getInstance()
    auto* getInstance = reinterpret_cast<void* (*)()>(
            dlsym(library, "_ZN4JCam5Utils4JLog5Track17EventTrackJLogger11getInstanceEv"));
    if (getInstance == nullptr || getInstance() == nullptr) {
        fprintf(stderr, "no tracker\n");
        return 1;
    }
    dlclose(library);
    fprintf(stderr,
            dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr ? "unloaded\n" : "still there\n");
    return 0;
}
